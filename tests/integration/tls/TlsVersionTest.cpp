// Servers that speak one version of TLS only, and servers on whose port the other scheme is spoken.
#include "tests/integration/support/IntegrationFixture.h"
#include "tests/integration/tls/TlsPeer.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>

#include <ostream>

namespace {

using namespace integrationtest;
using testing::HasSubstr;
using testsupport::CertificateAuthority;
using testsupport::writeFile;
using vantik::Object;

// OpenSSL's own level would keep the server from offering its older versions at all.
constexpr const char* kAnyCipher = "ALL:@SECLEVEL=0";

struct VersionRow {
    const char* Name;
    const char* Protocol; // of the server
    const char* Reason;   // null: the exchange succeeds
};

void PrintTo(const VersionRow& row, std::ostream* stream) {
    *stream << row.Name;
}

class TlsVersions : public IntegrationFixture, public testing::WithParamInterface<VersionRow> {
protected:
    const CertificateAuthority Authority;
    const TlsPeer Peer{{{.Identity = Authority.issue({.Names = "DNS:localhost"}),
                         .Protocols = GetParam().Protocol,
                         .Ciphers = kAnyCipher}}};
};

TEST_P(TlsVersions, AreAcceptedFrom12On) {
    const std::string trusted = folder().file("ca.pem");
    writeFile(trusted, Authority.certificate());
    struct Setting {
        std::string File;
        const char* Key;
    };
    for (const Setting& setting : {Setting{trusted, "SSLConnectionFailure"}, Setting{"", "SSLConnectionNoFile"}}) {
        SCOPED_TRACE(setting.Key);
        const Object connection = makeAdapter();
        connection.set("URL", Peer.url(0));
        connection.set("CertificateFilename", setting.File);
        connection.call("openConnection");
        if (GetParam().Reason == nullptr) {
            EXPECT_EQ(digestOf(receiveBytes(connection)), digestOf("secret"));
            EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
        } else {
            const vantik::Message message = failureOf([&] { receiveBytes(connection); });
            EXPECT_EQ(message.identifier(), std::string("VANTIK:webservices:") + setting.Key);
            EXPECT_THAT(describe(message), HasSubstr("(" + Peer.url(0) + ", "));
            EXPECT_THAT(describe(message), HasSubstr(GetParam().Reason)) << message.Text;
        }
        expectScopeUsable(connection);
    }
    const std::size_t served = GetParam().Reason == nullptr ? 2 : 0;
    EXPECT_EQ(Peer.requestsUpToNow(),
              std::vector<std::string>(served, std::to_string(Peer.port(0)) + " GET / HTTP/1.1"));
}

// The class itself would take 1.1; the security level of OpenSSL 3 does not. The reason is told in the words of
// OpenSSL, which depend on its settings.
INSTANTIATE_TEST_SUITE_P(Table, TlsVersions,
                         testing::Values(VersionRow{"Tls10", "TLSv1", "alert protocol version"},
                                         VersionRow{"Tls11", "TLSv1.1", "legacy sigalg disallowed or unsupported"},
                                         VersionRow{"Tls12", "TLSv1.2", nullptr},
                                         VersionRow{"Tls13", "TLSv1.3", nullptr}),
                         [](const auto& info) { return info.param.Name; });

class OtherScheme : public IntegrationFixture {
protected:
    const CertificateAuthority Authority;
    const TlsPeer Peer{{{.Identity = Authority.issue({.Names = "DNS:localhost"})}}};
};

TEST_F(OtherScheme, TlsIsSpokenToAPlainPort) {
    const std::string url = "https://localhost:" + std::to_string(Peer.plainPort()) + "/";
    const Object connection = makeAdapter();
    connection.set("URL", url);
    connection.set("CertificateFilename", "default");
    connection.call("openConnection");
    const vantik::Message message = failureOf([&] { receiveBytes(connection); });
    EXPECT_EQ(message.identifier(), "VANTIK:webservices:SSLConnectionSystemFailure");
    EXPECT_EQ(std::get<std::string>(message.Arguments.at(0)), url);
    EXPECT_THAT(std::get<std::string>(message.Arguments.at(1)), HasSubstr("wrong version number"));
    expectScopeUsable(connection);
    const Object plain = open("http://localhost:" + std::to_string(Peer.plainPort()) + "/");
    EXPECT_EQ(receiveBytes(plain), "plain");
}

// The server understands what has happened and says so in an answer of its own.
TEST_F(OtherScheme, PlainHttpIsSpokenToATlsPort) {
    const Object connection = open("http://localhost:" + std::to_string(Peer.port(0)) + "/");
    EXPECT_THAT(receiveBytes(connection), HasSubstr("The plain HTTP request was sent to HTTPS port"));
    EXPECT_EQ(testsupport::resultTexts(connection, "getStatusLine", 3),
              (std::vector<std::string>{"HTTP/1.1", "400", "Bad Request"}));
    expectScopeUsable(connection);
    const Object older = open("http://localhost:" + std::to_string(Peer.port(0)) + "/", false);
    EXPECT_EQ(describe(failureOf([&] { receiveBytes(older); })),
              "VANTIK:webservices:StatusError(400, Bad Request, http://localhost:" + std::to_string(Peer.port(0)) +
                  "/)");
    expectScopeUsable(older);
}

} // namespace
