// Servers that speak one version of TLS only.
#include "tests/integration/support/IntegrationFixture.h"
#include "tests/integration/tls/TlsPeer.h"

#include <gmock/gmock.h>

namespace {

using namespace integrationtest;
using testing::HasSubstr;
using testsupport::CertificateAuthority;
using testsupport::writeFile;
using vantik::Object;

class TlsVersions : public IntegrationFixture {};

// The class itself would take 1.1; the security level of OpenSSL 3 does not. The reason comes in the words of OpenSSL,
// which depend on its settings.
TEST_F(TlsVersions, AreAcceptedFrom12On) {
    struct Row {
        const char* Protocol;
        const char* Reason; // null: the exchange succeeds
    };
    const Row rows[] = {{"TLSv1", "alert protocol version"},
                        {"TLSv1.1", "legacy sigalg disallowed or unsupported"},
                        {"TLSv1.2", nullptr},
                        {"TLSv1.3", nullptr}};
    const CertificateAuthority authority;
    const testsupport::Credentials identity = authority.issue({.Names = "DNS:localhost"});
    std::vector<TlsSite> sites;
    for (const Row& row : rows) { // OpenSSL's own level would keep the server from offering its older versions at all
        sites.push_back({.Identity = identity, .Protocols = row.Protocol, .Ciphers = "ALL:@SECLEVEL=0"});
    }
    const TlsPeer peer(sites);
    const std::string trusted = folder().file("ca.pem");
    writeFile(trusted, authority.certificate());
    std::vector<std::string> served;
    for (std::size_t site = 0; site < sites.size(); ++site) {
        for (const auto& [file, key] :
             {std::pair{trusted, "SSLConnectionFailure"}, {std::string(), "SSLConnectionNoFile"}}) {
            SCOPED_TRACE(std::string(rows[site].Protocol) + " " + key);
            const Object connection = makeAdapter();
            connection.set("URL", peer.url(site));
            connection.set("CertificateFilename", file);
            connection.call("openConnection");
            if (rows[site].Reason == nullptr) {
                EXPECT_EQ(receiveBytes(connection), "secret");
                EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
                served.push_back(std::to_string(peer.port(site)) + " GET / HTTP/1.1");
            } else {
                const vantik::Message message = failureOf([&] { receiveBytes(connection); });
                EXPECT_EQ(message.identifier(), std::string("VANTIK:webservices:") + key);
                EXPECT_THAT(describe(message), HasSubstr("(" + peer.url(site) + ", "));
                EXPECT_THAT(describe(message), HasSubstr(rows[site].Reason)) << message.Text;
            }
            expectScopeUsable(connection);
        }
    }
    EXPECT_EQ(peer.requestsUpToNow(), served);
}

} // namespace
