// Fixture of the tests against Apache httpd, which is started once for a suite.
#pragma once

#include "tests/integration/apache/Apache.h"
#include "tests/integration/support/IntegrationFixture.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace integrationtest {

// Names of authentication schemes as the host's enumeration has them.
using Schemes = std::vector<std::string>;

struct Login {
    std::string User = kKnownUser;
    std::string Password = kKnownPassword;
    std::optional<Schemes> Allowed{}; // none: left as they are
};

class ApacheFixture : public IntegrationFixture {
protected:
    static void SetUpTestSuite() { Server = std::make_unique<Apache>(); }
    static void TearDownTestSuite() { Server.reset(); }
    static Apache& server() { return *Server; }

    static void logIn(const vantik::Object& connection, const Login& login) {
        connection.set("Username", login.User);
        connection.set("Password", login.Password);
        if (login.Allowed) {
            connection.call(
                "setAuthenticationSchemes",
                {vantik::Array::enumeration("vantik.net.http.AuthenticationScheme", *login.Allowed), false});
        }
    }

    vantik::Object openAt(const std::string& path, bool optionsMode = true) {
        return open(server().url(path), optionsMode);
    }

    static double status(const vantik::Object& connection) { return connection.get("ResponseCode").number(); }
    static std::string field(const vantik::Object& connection, const char* name) {
        return connection.call("getResponseField", {name}).text();
    }

private:
    inline static std::unique_ptr<Apache> Server;
};

} // namespace integrationtest
