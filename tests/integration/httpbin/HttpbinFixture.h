// One httpbin for all tests of a suite.
#pragma once

#include "tests/integration/httpbin/Httpbin.h"
#include "tests/integration/support/IntegrationFixture.h"

#include <nlohmann/json.hpp>

#include <memory>
#include <string>

namespace integrationtest {

inline std::string modeName(bool optionsMode) {
    return optionsMode ? "newer interface" : "older interface";
}

class HttpbinFixture : public IntegrationFixture {
protected:
    static void SetUpTestSuite() { Server = std::make_unique<Httpbin>(); }
    static void TearDownTestSuite() { Server.reset(); }

    static const Httpbin& server() { return *Server; }
    vantik::Object openPath(const std::string& path, bool optionsMode = true) {
        return open(server().url(path), optionsMode);
    }

    // The limits count from the open on, so they are set before it.
    vantik::Object openPath(const std::string& path, const vantik::Array& timeouts, bool optionsMode = true) {
        vantik::Object connection = makeAdapter(optionsMode);
        connection.set("URL", server().url(path));
        connection.set("TimeoutInMilliseconds", timeouts);
        connection.call("openConnection");
        return connection;
    }

    // The value of a field of the response; empty where there is none.
    static std::string responseField(const vantik::Object& connection, const std::string& name) {
        const vantik::Array value = connection.call("getResponseField", {vantik::Array(name)});
        return value.empty() ? std::string() : value.text();
    }

    // What the server has to say as JSON. An answer that is none is an exception, and so a failed test.
    nlohmann::json receiveJson(const vantik::Object& connection) {
        return nlohmann::json::parse(receiveBytes(connection));
    }

    // A plain exchange of the same object with the same server, whatever has happened before, and one of the scope.
    void expectServerUsable(const vantik::Object& connection) {
        connection.call("closeConnection"); // behind a failure an open alone does not begin anew
        receiveBytes(connection);           // what a failed transfer has left; the next one would be put behind it
        connection.set("URL", server().url("/anything/again"));
        connection.set("TimeoutInMilliseconds", vantik::Array::doubles({5000}));
        connection.call("openConnection");
        connection.set("RequestMethod", "GET");
        EXPECT_EQ(receiveJson(connection).at("url"), server().url("/anything/again"));
        EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
        expectScopeUsable(connection);
    }

private:
    static inline std::unique_ptr<Httpbin> Server;
};

} // namespace integrationtest
