// Which certificates and versions of TLS are accepted of a server under which settings, and what is said of those that
// are not.
#include "tests/integration/support/IntegrationFixture.h"
#include "tests/integration/tls/TlsPeer.h"

#include <gmock/gmock.h>

namespace {

using namespace integrationtest;
using std::chrono::hours;
using testing::HasSubstr;

const std::string kLocalhost = "DNS:localhost";

// What a test is given: the server's identity, and the certificate that a client who knows it trusts.
struct Identity {
    Credentials Server;
    std::string Trusted;
};

Identity issued(const CertificateRequest& request) {
    const CertificateAuthority authority;
    return {authority.issue(request), authority.certificate()};
}

Identity good() {
    return issued({.Names = kLocalhost});
}

Identity chained(bool complete) {
    const CertificateAuthority root("root authority");
    const CertificateAuthority intermediate("intermediate authority", &root);
    Credentials leaf = intermediate.issue({.Names = kLocalhost});
    leaf.Certificate += complete ? intermediate.certificate() : "";
    return {leaf, root.certificate()};
}

Identity ownSignature(bool trusted) {
    const Credentials server = selfSigned({.Names = kLocalhost});
    return {server, trusted ? server.Certificate : CertificateAuthority().certificate()};
}

Identity unknownIssuer() {
    return {CertificateAuthority("nobody").issue({.Names = kLocalhost}), CertificateAuthority().certificate()};
}

// Null: accepted. Otherwise a part of the reason.
using Verdict = const char*;
constexpr Verdict kAccepted = nullptr;
constexpr Verdict kOtherName = "no alternative certificate subject name matches";
constexpr Verdict kNoIssuer = "unable to get local issuer certificate";
constexpr Verdict kOwnIssuer = "self-signed certificate";
constexpr Verdict kExpired = "certificate has expired";
constexpr Verdict kTooEarly = "certificate is not yet valid";
// The class itself would take TLS 1.1; the security level of OpenSSL 3 does not.
constexpr Verdict kTls10 = "alert protocol version";
constexpr Verdict kTls11 = "legacy sigalg disallowed or unsupported";

struct Row {
    const char* Name;
    const char* Host; // in the URL
    Identity (*Make)();
    Verdict OfName;   // where the name is looked at and nothing else
    Verdict OfSystem; // verified against the system's authorities, or against a file of another authority
    Verdict OfFile;   // verified against the right file; the name is looked at too
    Verdict OfFileWithoutName;
    Verdict OfNothing = kAccepted; // where nothing is looked at
    const char* Version = nullptr; // the only one that the server speaks
};

// clang-format off
const Row kRows[] = {
    {"Good", "localhost", good, kAccepted, kNoIssuer, kAccepted, kAccepted},
    {"Expired", "localhost", [] { return issued({.Names = kLocalhost, .ValidFrom = hours(-48), .ValidUntil = hours(-24)}); }, kAccepted, kNoIssuer, kExpired, kExpired},
    {"NotYetValid", "localhost", [] { return issued({.Names = kLocalhost, .ValidFrom = hours(24), .ValidUntil = hours(48)}); }, kAccepted, kNoIssuer, kTooEarly, kTooEarly},
    {"OtherName", "localhost", [] { return issued({.Names = "DNS:other.test"}); }, kOtherName, kNoIssuer, kOtherName, kAccepted},
    {"WildcardOfAnotherDomain", "localhost", [] { return issued({.Names = "DNS:*.test"}); }, kOtherName, kNoIssuer, kOtherName, kAccepted},
    {"CommonNameOnly", "localhost", [] { return issued({.CommonName = "localhost"}); }, kAccepted, kNoIssuer, kAccepted, kAccepted},
    {"SelfSignedAndTrusted", "localhost", [] { return ownSignature(true); }, kAccepted, kOwnIssuer, kAccepted, kAccepted},
    {"SelfSigned", "localhost", [] { return ownSignature(false); }, kAccepted, kOwnIssuer, kOwnIssuer, kOwnIssuer},
    {"UnknownIssuer", "localhost", unknownIssuer, kAccepted, kNoIssuer, kNoIssuer, kNoIssuer},
    {"AddressInTheCertificate", "127.0.0.1", [] { return issued({.Names = "IP:127.0.0.1"}); }, kAccepted, kNoIssuer, kAccepted, kAccepted},
    {"AddressNotInTheCertificate", "127.0.0.1", good, kOtherName, kNoIssuer, kOtherName, kAccepted},
    {"AddressWrittenAsAName", "127.0.0.1", [] { return issued({.Names = "DNS:127.0.0.1"}); }, kOtherName, kNoIssuer, kOtherName, kAccepted},
    {"CompleteChain", "localhost", [] { return chained(true); }, kAccepted, kNoIssuer, kAccepted, kAccepted},
    {"Tls10", "localhost", good, kTls10, kTls10, kTls10, kTls10, kTls10, "TLSv1"},
    {"Tls11", "localhost", good, kTls11, kNoIssuer, kTls11, kTls11, kTls11, "TLSv1.1"},
    {"Tls12", "localhost", good, kAccepted, kNoIssuer, kAccepted, kAccepted, kAccepted, "TLSv1.2"},
    {"Tls13", "localhost", good, kAccepted, kNoIssuer, kAccepted, kAccepted, kAccepted, "TLSv1.3"},
    {"IntermediateMissing", "localhost", [] { return chained(false); }, kAccepted, kNoIssuer, kNoIssuer, kNoIssuer},
};
// clang-format on

class Certificates : public IntegrationFixture, public testing::WithParamInterface<Row> {
protected:
    // One cell of the table. `failure`: the identifier's key where it is not accepted.
    void expect(const std::string& file, bool verifyName, Verdict verdict, const char* key) {
        SCOPED_TRACE("certificate file \"" + file + "\", name " + (verifyName ? "verified" : "not verified"));
        const std::string url = Peer.url(0, "/p", GetParam().Host);
        const Object connection = makeAdapter();
        connection.set("URL", url);
        connection.set("CertificateFilename", file);
        connection.set("VerifyServerName", verifyName);
        connection.call("openConnection");
        if (verdict == kAccepted) {
            EXPECT_EQ(receiveBytes(connection), "secret");
            EXPECT_EQ(status(connection), 200);
            Served.push_back(std::to_string(Peer.port(0)) + " GET /p HTTP/1.1");
        } else {
            const vantik::Message message = failureOf([&] { receiveBytes(connection); });
            EXPECT_EQ(message.identifier(), std::string("VANTIK:webservices:") + key);
            ASSERT_EQ(message.Arguments.size(), std::string(key) == "SSLConnectionFailure" ? 3U : 2U);
            EXPECT_EQ(std::get<std::string>(message.Arguments[0]), url);
            EXPECT_THAT(std::get<std::string>(message.Arguments[1]), HasSubstr(verdict));
            if (message.Arguments.size() == 3) {
                EXPECT_EQ(std::get<std::string>(message.Arguments[2]), file);
            }
        }
        expectScopeUsable(connection);
    }

    std::string fileWith(const std::string& name, const std::string& content) {
        writeFile(folder().file(name), content);
        return folder().file(name);
    }

    // OpenSSL's own security level would keep the server from offering its older versions at all.
    TlsSite site() const {
        return GetParam().Version == nullptr
                   ? TlsSite{.Identity = Own.Server}
                   : TlsSite{.Identity = Own.Server, .Protocols = GetParam().Version, .Ciphers = "ALL:@SECLEVEL=0"};
    }

    const Identity Own = GetParam().Make();
    const TlsPeer Peer{{site()}};
    std::vector<std::string> Served; // what the server has to have been asked for
};

TEST_P(Certificates, AreJudgedByTheSettings) {
    const Row& row = GetParam();
    const std::string right = fileWith("right.pem", Own.Trusted);
    const std::string another = fileWith("another.pem", CertificateAuthority("another").certificate());
    const std::string missing = folder().file("missing.pem");
    const std::string noPem = fileWith("no.pem", "no certificate at all\n");
    for (const bool verifyName : {true, false}) {
        expect("", verifyName, verifyName ? row.OfName : row.OfNothing, "SSLConnectionNoFile");
        expect("default", verifyName, row.OfSystem, "SSLConnectionSystemFailure");
        expect(right, verifyName, verifyName ? row.OfFile : row.OfFileWithoutName, "SSLConnectionFailure");
        expect(another, verifyName, row.OfSystem, "SSLConnectionFailure");
        // A file that cannot be used never means that nothing is verified.
        expect(missing, verifyName, missing.c_str(), "SSLConnectionFailure");
        expect(noPem, verifyName, noPem.c_str(), "SSLConnectionFailure");
    }
    EXPECT_EQ(Peer.requestsUpToNow(), Served) << "nothing is sent to a server that is not accepted";
}

INSTANTIATE_TEST_SUITE_P(Table, Certificates, testing::ValuesIn(kRows),
                         [](const auto& info) { return info.param.Name; });

} // namespace
