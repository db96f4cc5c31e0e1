// Certificates of servers as the command line meets them.
#include "tests/integration/tls/TlsPeer.h"
#include "tests/support/process/ProgramRun.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace {

using namespace integrationtest;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using testsupport::CertificateAuthority;
using testsupport::Outcome;
using testsupport::readFile;
using testsupport::TemporaryFolder;
using testsupport::writeFile;

class TlsCommand : public testing::Test {
protected:
    TlsCommand() { writeFile(CaFile, Authority.certificate()); }

    // Saves to "file", which must not be there where the exchange fails.
    Outcome save(const std::string& url, std::vector<std::string> options = {}) {
        std::vector<std::string> arguments = {"save", url, "file"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Outcome outcome = testsupport::run(arguments, {.Folder = Saved.path()});
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(Saved.path()), {}), outcome.Status == 0 ? 1 : 0);
        return outcome;
    }

    void expectSaved(const Outcome& outcome) {
        EXPECT_EQ(outcome.Status, 0) << outcome.Err;
        EXPECT_EQ(outcome.Err, "");
        EXPECT_EQ(readFile(Saved.file("file")), "secret");
    }

    // One line that names the URL and what helps.
    static void expectRefused(const Outcome& outcome, const std::string& key, const std::string& url,
                              const std::string& reason) {
        EXPECT_EQ(outcome.Status, 60);
        EXPECT_THAT(outcome.Err,
                    AllOf(StartsWith("netrove: VANTIK:webservices:" + key + ": "), HasSubstr(url), HasSubstr(reason)));
        EXPECT_EQ(outcome.Err.find('\n'), outcome.Err.size() - 1);
    }

    const TemporaryFolder Saved;
    const TemporaryFolder Folder;
    const std::string CaFile = Folder.file("ca.pem");
    const CertificateAuthority Authority;
    const TlsPeer Peer{
        {{.Identity = Authority.issue({.Names = "DNS:localhost"})},
         {.Identity = Authority.issue({.Names = "DNS:other.test"})},
         {.Identity = Authority.issue({.Names = "DNS:localhost", .ValidUntil = std::chrono::seconds(-1)})},
         {.Identity = Authority.issue({.Names = "DNS:localhost"}),
          .Protocols = "TLSv1",
          .Ciphers = "ALL:@SECLEVEL=0"}}};
};

TEST_F(TlsCommand, UnknownAuthorityIsRefusedUnlessSaidOtherwise) {
    expectRefused(save(Peer.url(0)), "SSLConnectionSystemFailure", Peer.url(0),
                  "unable to get local issuer certificate");
    EXPECT_EQ(Peer.requestsUpToNow(), std::vector<std::string>());
}

// Older versions of libcurl hand on a long head in pieces, and the class finds a line without an end in one of them.
TEST_F(TlsCommand, TokenInAHeadThatIsTooLongIsNotShown) {
    const std::string token(70000, 't');
    for (const char* name : {"Authorization", "cookie"}) {
        for (const char* option : {"--no-progress", "--json-errors"}) {
            const Outcome outcome = testsupport::run(
                {"get", Peer.url(0), "--ca-file", CaFile, option, "-H", std::string(name) + ": Bearer " + token});
            EXPECT_THAT(outcome.Err, Not(HasSubstr("tttt")));
            if (outcome.Status == 0) {
                EXPECT_THAT(outcome.Out, HasSubstr("400 Bad Request")) << "sent as a whole, and more than nginx takes";
                continue;
            }
            EXPECT_EQ(outcome.Status, 1);
            EXPECT_THAT(outcome.Err, AllOf(HasSubstr("VANTIK:webservices:InternalError"),
                                           HasSubstr("CRLF not found in headers ("), HasSubstr("shorten its fields")));
        }
    }
}

TEST_F(TlsCommand, AuthorityOfAFileIsTrusted) {
    expectSaved(save(Peer.url(0), {"--ca-file", CaFile}));
}

TEST_F(TlsCommand, AnythingIsAcceptedWithoutVerification) {
    expectSaved(save(Peer.url(1), {"-k"}));
}

TEST_F(TlsCommand, OtherNameIsRefusedUnlessSaidOtherwise) {
    expectRefused(save(Peer.url(1), {"--ca-file", CaFile}), "SSLConnectionFailure", Peer.url(1),
                  "no alternative certificate subject name matches");
    expectSaved(save(Peer.url(1), {"--ca-file", CaFile, "--no-verify-name"}));
}

TEST_F(TlsCommand, NameAloneIsNoReasonToTrust) {
    expectRefused(save(Peer.url(1), {"--no-verify-name"}), "SSLConnectionSystemFailure", Peer.url(1),
                  "unable to get local issuer certificate");
}

TEST_F(TlsCommand, ExpiredCertificateIsRefused) {
    expectRefused(save(Peer.url(2), {"--ca-file", CaFile}), "SSLConnectionFailure", Peer.url(2),
                  "certificate has expired");
}

// As docs/security.md says. That the list counts where somebody asks for it shows that it is in order.
TEST_F(TlsCommand, RevokedCertificateIsAccepted) {
    const testsupport::Credentials revoked = Authority.issue({.Names = "DNS:localhost"});
    const TlsPeer peer{{{.Identity = revoked}}};
    writeFile(CaFile, Authority.certificate() + Authority.revoke(revoked));
    const std::string leaf = Folder.file("leaf.pem");
    writeFile(leaf, revoked.Certificate);
    const Outcome asked =
        testsupport::run({"verify", "-crl_check", "-CAfile", CaFile, leaf}, {.Executable = "/usr/bin/openssl"});
    EXPECT_NE(asked.Status, 0);
    EXPECT_THAT(asked.Out + asked.Err, HasSubstr("certificate revoked"));
    expectSaved(save(peer.url(0), {"--ca-file", CaFile}));
}

TEST_F(TlsCommand, OldVersionIsRefusedEvenWithoutVerification) {
    expectRefused(save(Peer.url(3), {"-k"}), "SSLConnectionNoFile", Peer.url(3), "protocol version");
}

TEST_F(TlsCommand, MissingAuthorityFileIsNamed) {
    const std::string missing = Folder.file("missing.pem");
    expectRefused(save(Peer.url(0), {"--ca-file", missing}), "SSLConnectionFailure", Peer.url(0), missing);
}

TEST_F(TlsCommand, PlainPortIsNoTls) {
    const std::string url = "https://localhost:" + std::to_string(Peer.plainPort()) + "/";
    expectRefused(save(url), "SSLConnectionSystemFailure", url, "wrong version number");
}

} // namespace
