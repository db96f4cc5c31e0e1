// Requests through the proxy Squid, forwarded and through a tunnel.
#include "tests/integration/apache/PasswordFiles.h"
#include "tests/integration/proxy/Squid.h"
#include "tests/integration/tls/TlsPeer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netrove/client.h>

namespace {

using namespace integrationtest;
using testing::HasSubstr;

class ClientThroughSquid : public testing::TestWithParam<SquidLogin> {
protected:
    ClientThroughSquid() { testsupport::writeFile(Folder.file("trust.pem"), Authority.certificate()); }

    netrove::Request through(const std::string& password) const {
        return {.proxy = {.url = Proxy.authority(), .login = {.user = kKnownUser, .password = password}},
                .tls = {.file = Folder.file("trust.pem")},
                .retry = {.attempts = 1}};
    }
    // The proxy alone knows the name.
    std::vector<std::string> urls() const {
        return {"http://origin.test:" + std::to_string(Origin.plainPort()) + "/", Origin.url(0, "/", "origin.test")};
    }

    testsupport::TemporaryFolder Folder;
    testsupport::CertificateAuthority Authority{"authority"};
    TlsPeer Origin{{TlsSite{.Identity = Authority.issue({.Names = "DNS:origin.test"}), .Content = "secure"}}};
    Squid Proxy{GetParam()};
};

TEST_P(ClientThroughSquid, TheLoginOfTheProxyOpensPlainAndSecurePages) {
    netrove::Client client(through(kKnownPassword));
    EXPECT_EQ(client.get(urls()[0]).text(), "plain");
    EXPECT_EQ(client.get(urls()[1]).text(), "secure");
}

TEST_P(ClientThroughSquid, AWrongPasswordNamesTheProxy) {
    netrove::Client client(through("hidden"));
    for (const std::string& url : urls()) {
        try {
            client.get(url);
            ADD_FAILURE() << "no error";
        } catch (const netrove::Error& error) {
            EXPECT_EQ(error.kind(), netrove::ErrorKind::Proxy) << error.what();
            EXPECT_THAT(error.what(), HasSubstr("the proxy " + Proxy.authority() + " asks for a login"));
            EXPECT_THAT(error.what(), testing::Not(HasSubstr("hidden")));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Squid, ClientThroughSquid, testing::Values(SquidLogin::Basic, SquidLogin::Digest),
                         [](const auto& info) { return info.param == SquidLogin::Basic ? "Basic" : "Digest"; });

} // namespace
