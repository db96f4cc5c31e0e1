// Fixture for what must come out the same over HTTP/1.1 and over HTTP/2 under TLS.
#pragma once

#include "tests/integration/nginx/Nginx.h"
#include "tests/integration/support/IntegrationFixture.h"

#include <memory>

namespace integrationtest {

enum class Protocol { Http1, Http2 };

// The server is started once for a suite.
class NginxFixture : public IntegrationFixture, public testing::WithParamInterface<Protocol> {
protected:
    static void SetUpTestSuite() { Server = std::make_unique<Nginx>(); }
    static void TearDownTestSuite() { Server.reset(); }

    static const Nginx& nginx() { return *Server; }
    static bool isHttp2() { return GetParam() == Protocol::Http2; }
    static std::string urlOf(const std::string& path) { return isHttp2() ? nginx().http2Url(path) : nginx().url(path); }

    // A new object, opened, with the server's authority as the only trusted one. `fields`: "Name: value".
    Object openPath(const std::string& path, const Texts& fields = {}) {
        Object connection = open(urlOf(path), {.CertificateFile = nginx().certificateFile()});
        for (const std::string& field : fields) {
            const std::size_t colon = field.find(": ");
            connection.call("setRequestProperty", {field.substr(0, colon), field.substr(colon + 2)});
        }
        return connection;
    }

    // HTTP/2 has no reason phrases.
    static void expectStatusLine(const Object& connection, const std::string& code, const std::string& reason) {
        EXPECT_EQ(resultTexts(connection, "getStatusLine", 3),
                  isHttp2() ? (Texts{"HTTP/2", code, ""}) : (Texts{"HTTP/1.1", code, reason}));
    }

    // Closes what was used, and makes a further exchange with the same server and one with another.
    void expectUsable(const Object& used) {
        used.call("closeConnection");
        const Object next = openPath("/redirect/chain/");
        EXPECT_EQ(receiveBytes(next), "end of the chain") << "the next request to the same server";
        EXPECT_EQ(status(next), 200);
        expectScopeUsable(next);
    }

private:
    static inline std::unique_ptr<Nginx> Server;
};

// For INSTANTIATE_TEST_SUITE_P.
inline const auto kBothProtocols = testing::Values(Protocol::Http1, Protocol::Http2);
inline constexpr auto kProtocolName = [](const auto& info) {
    return std::string(info.param == Protocol::Http2 ? "Http2" : "Http1");
};

} // namespace integrationtest
