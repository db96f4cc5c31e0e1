// Certificates of servers as the command line meets them.
#include "tests/integration/support/IntegrationFixture.h"
#include "tests/integration/tls/TlsPeer.h"

#include <filesystem>
#include <memory>

namespace {

using namespace integrationtest;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// The sites of one server.
enum Site { Good, OtherName, Expired, OldVersion };

class TlsCommand : public testing::Test {
protected:
    static void SetUpTestSuite() { Peers = std::make_unique<PeerSet>(); }
    static void TearDownTestSuite() { Peers.reset(); }

    TlsCommand() { writeFile(CaFile, authority().certificate()); }

    static const CertificateAuthority& authority() { return Peers->Authority; }
    static const TlsPeer& peer() { return Peers->Server; }

    // Saves to "file", which must not be there where the exchange fails.
    Outcome save(const std::string& url, std::vector<std::string> options = {}) {
        std::vector<std::string> arguments = {"save", url, "file"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        std::filesystem::remove(Saved.file("file"));
        const Outcome outcome = run(arguments, {.Folder = Saved.path()});
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(Saved.path()), {}), outcome.Status == 0 ? 1 : 0);
        return outcome;
    }

    void expectSaved(const Outcome& outcome) {
        expectGot(outcome, "");
        EXPECT_EQ(readFile(Saved.file("file")), "secret");
    }

    const TemporaryFolder Saved;
    const TemporaryFolder Folder;
    const std::string CaFile = Folder.file("ca.pem");

private:
    struct PeerSet {
        const CertificateAuthority Authority;
        const Credentials Localhost = Authority.issue({.Names = "DNS:localhost"});
        const TlsPeer Server{
            {{.Identity = Localhost},
             {.Identity = Authority.issue({.Names = "DNS:other.test"})},
             {.Identity = Authority.issue({.Names = "DNS:localhost", .ValidUntil = std::chrono::seconds(-1)})},
             {.Identity = Localhost, .Protocols = "TLSv1", .Ciphers = "ALL:@SECLEVEL=0"}}};
    };
    inline static std::unique_ptr<PeerSet> Peers;
};

TEST_F(TlsCommand, SavesWhatItMayTrustAndSaysWhyNotOtherwise) {
    struct Row {
        Site Server;
        std::vector<std::string> Options;
        const char* Key; // of the failure; null: it is saved
        std::string Reason;
        std::string Help = {};
    };
    const char* const withFile = "SSLConnectionFailure";
    const char* const withSystem = "SSLConnectionSystemFailure";
    const std::string missing = Folder.file("missing.pem");
    for (const Row& row :
         {Row{Good, {}, withSystem, "unable to get local issuer certificate"},
          {Good, {"--ca-file", CaFile}, nullptr, ""},
          {Good, {"--ca-file", missing}, withFile, missing},
          {OtherName, {"-k"}, nullptr, ""},
          {OtherName, {"--ca-file", CaFile}, withFile, "no alternative certificate subject name matches"},
          {OtherName, {"--ca-file", CaFile, "--no-verify-name"}, nullptr, ""},
          {OtherName, {"--no-verify-name"}, withSystem, "unable to get local issuer certificate"},
          {Expired,
           {"--ca-file", CaFile},
           withFile,
           "certificate has expired",
           "only the server's owner can renew its certificate"},
          {OldVersion, {"-k"}, "SSLConnectionNoFile", "protocol version"}}) {
        const std::string url = peer().url(row.Server);
        SCOPED_TRACE(url + " " + testing::PrintToString(row.Options));
        const std::size_t served = peer().requestsUpToNow().size();
        const Outcome outcome = save(url, row.Options);
        if (row.Key == nullptr) {
            expectSaved(outcome);
            continue;
        }
        // One line that names the server and what helps.
        expectFailed(outcome, 60,
                     AllOf(StartsWith("netrove: VANTIK:webservices:" + std::string(row.Key) +
                                      ": no secure connection to localhost:" + std::to_string(peer().port(row.Server))),
                           HasSubstr(row.Reason), HasSubstr(row.Help)));
        EXPECT_EQ(outcome.Err.find('\n'), outcome.Err.size() - 1);
        EXPECT_EQ(peer().requestsUpToNow().size(), served) << "something was sent";
    }
}

// Older versions of libcurl hand on a long head in pieces, and the class finds a line without an end in one of them.
TEST_F(TlsCommand, TokenInAHeadThatIsTooLongIsNotShown) {
    const std::string token(70000, 't');
    for (const char* name : {"Authorization", "cookie"}) {
        for (const char* option : {"--no-progress", "--json-errors"}) {
            const Outcome outcome = run(
                {"get", peer().url(Good), "--ca-file", CaFile, option, "-H", std::string(name) + ": Bearer " + token});
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

// As docs/security.md says. That the list counts where somebody asks for it shows that it is in order.
TEST_F(TlsCommand, RevokedCertificateIsAccepted) {
    const Credentials revoked = authority().issue({.Names = "DNS:localhost"});
    const TlsPeer server{{{.Identity = revoked}}};
    writeFile(CaFile, authority().certificate() + authority().revoke(revoked));
    const std::string leaf = Folder.file("leaf.pem");
    writeFile(leaf, revoked.Certificate);
    const Outcome asked = run({"verify", "-crl_check", "-CAfile", CaFile, leaf}, {.Executable = "/usr/bin/openssl"});
    EXPECT_NE(asked.Status, 0);
    EXPECT_THAT(asked.Out + asked.Err, HasSubstr("certificate revoked"));
    expectSaved(save(server.url(0), {"--ca-file", CaFile}));
}

} // namespace
