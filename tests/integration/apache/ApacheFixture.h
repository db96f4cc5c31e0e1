// Fixture of the tests against Apache httpd, which is started once for a suite.
#pragma once

#include "tests/integration/apache/Apache.h"
#include "tests/integration/support/IntegrationFixture.h"

#include <memory>
#include <optional>
#include <string>

namespace integrationtest {

struct Login {
    std::string User = kKnownUser;
    std::string Password = kKnownPassword;
    std::optional<Schemes> Allowed{}; // none: left as they are
};

class ApacheFixture : public IntegrationFixture {
protected:
    static void SetUpTestSuite() { start({}); }
    static void TearDownTestSuite() { Server.reset(); }
    static void start(const ApacheOptions& options) { Server = std::make_unique<Apache>(options); }
    static Apache& server() { return *Server; }

    static void logIn(const Object& connection, const Login& login) {
        connection.set("Username", login.User);
        connection.set("Password", login.Password);
        if (login.Allowed) {
            allow(connection, *login.Allowed);
        }
    }

    Object openAt(const std::string& path, bool optionsMode = true) { return open(server().url(path), optionsMode); }

    void expectPage(const Object& connection) { expectContent(connection, server().page()); }
    // A response like any other: its page can be read.
    static void expectRefusal(const Object& connection, const std::string& challenge) {
        EXPECT_NE(receiveBytes(connection).find("<title>401 Unauthorized</title>"), std::string::npos);
        EXPECT_EQ(status(connection), 401);
        EXPECT_THAT(field(connection, "WWW-Authenticate"), testing::StartsWith(challenge));
    }

private:
    inline static std::unique_ptr<Apache> Server;
};

} // namespace integrationtest
