// Requests through the proxy Squid: forwarded, through a tunnel, with a login, refused.
#include "tests/integration/proxy/Squid.h"

#include "tests/integration/apache/ApacheFixture.h"
#include "tests/integration/tls/TlsPeer.h"
#include "tests/support/server/UnreachablePorts.h"

#include <map>

namespace {

using namespace integrationtest;
using testing::HasSubstr;

constexpr const char* kSecret = "sent under TLS";

// The origins are known to the proxy alone by their names.
class ThroughSquid : public ApacheFixture {
protected:
    static void SetUpTestSuite() {
        ApacheFixture::SetUpTestSuite();
        Peers = std::make_unique<PeerSet>();
    }
    static void TearDownTestSuite() {
        Peers.reset();
        ApacheFixture::TearDownTestSuite();
    }

    // Started before the first exchange of a test: it would inherit libcurl's connections and hold them open.
    static const Squid& squid(SquidLogin login) {
        std::unique_ptr<Squid>& proxy = Peers->Proxies[login];
        if (!proxy) {
            proxy = std::make_unique<Squid>(login);
        }
        return *proxy;
    }
    static std::string plainUrl(const std::string& path = "/open/page") { return server().url(path, "origin.test"); }
    // Under TLS, with a certificate for "origin.test".
    static std::string secureUrl() { return Peers->SecureOrigin.url(0, "/", "origin.test"); }
    std::string trustFile() {
        writeFile(folder().file("trust.pem"), Peers->Authority.certificate());
        return folder().file("trust.pem");
    }

    Object openThrough(SquidLogin login, const std::string& url, bool optionsMode = true) {
        Object connection = makeAdapter(optionsMode);
        connection.set("CertificateFilename", trustFile());
        connection.set("VerifyServerName", true);
        connection.set("URL", url);
        // Part of the way to the server: a proxy that starts its helper for logins, and a page that libcurl reads byte
        // by byte.
        connection.set("TimeoutInMilliseconds", Array::doubles({60000}));
        openAgain(connection, login);
        return connection;
    }
    static void openAgain(const Object& connection, SquidLogin login) {
        connection.call(
            "openProxyConnection",
            {Array::structure({{"Host", "127.0.0.1"}, {"Port", static_cast<double>(squid(login).port())}})});
    }
    static void logInAtProxy(const Object& connection, const Schemes& allowed,
                             const std::string& password = kKnownPassword) {
        connection.set("ProxyUsername", kKnownUser);
        connection.set("ProxyPassword", password);
        allow(connection, allowed, true);
    }
    static std::string contentOf(bool secure) { return secure ? kSecret : server().page(); }

private:
    struct PeerSet {
        CertificateAuthority Authority;
        std::map<SquidLogin, std::unique_ptr<Squid>> Proxies;
        TlsPeer SecureOrigin{{{.Identity = Authority.issue({.Names = "DNS:origin.test"}), .Content = kSecret}}};
    };
    inline static std::unique_ptr<PeerSet> Peers;
};

TEST_F(ThroughSquid, PageIsForwarded) {
    for (const bool optionsMode : {true, false}) {
        const Object connection = openThrough(SquidLogin::None, plainUrl(), optionsMode);
        expectPage(connection);
        EXPECT_EQ(field(connection, "X-Cache"), "MISS from proxy.test");
        expectScopeUsable(connection);
    }
}

TEST_F(ThroughSquid, TunnelIsOpenedForASecurePage) {
    const Object connection = openThrough(SquidLogin::None, secureUrl());
    expectContent(connection, kSecret);
    EXPECT_EQ(field(connection, "X-Cache"), "") << "what the proxy said is not part of the response";
    expectScopeUsable(connection);
}

// What the origin asks for is passed on.
TEST_F(ThroughSquid, OriginsOwnLoginWorks) {
    const Object connection = openThrough(SquidLogin::None, plainUrl("/digest/page"));
    logIn(connection, {.Allowed = Schemes{"Digest"}});
    expectPage(connection);
    expectScopeUsable(connection);
}

struct LoginRow {
    const char* Name;
    SquidLogin Asked;
    Schemes Allowed;
};

const LoginRow kLoginRows[] = {
    {"Basic", SquidLogin::Basic, {"Basic"}},
    {"Digest", SquidLogin::Digest, {"Digest"}},
    {"EitherAtBoth", SquidLogin::Both, {"Basic", "Digest"}},
};

class SquidLetsThrough : public ThroughSquid, public testing::WithParamInterface<LoginRow> {};

TEST_P(SquidLetsThrough, PlainAndSecurePages) {
    for (const bool secure : {false, true}) {
        const Object connection = openThrough(GetParam().Asked, secure ? secureUrl() : plainUrl());
        SCOPED_TRACE(secure ? "tunnel" : "plain");
        logInAtProxy(connection, GetParam().Allowed);
        expectContent(connection, contentOf(secure));
        expectScopeUsable(connection);
    }
}

TEST_P(SquidLetsThrough, ContentOnItsWay) {
    const std::string content = generated(300'000);
    for (const bool provider : {false, true}) {
        const Object connection = openThrough(GetParam().Asked, plainUrl("/open/echo"));
        logInAtProxy(connection, GetParam().Allowed);
        connection.set("RequestMethod", "PUT");
        setContent(connection, content, provider);
        expectContent(connection, content);
        expectScopeUsable(connection);
    }
}

struct RefusalRow {
    const char* Name;
    SquidLogin Asked;
    Schemes Allowed;
    std::string Password;
    std::string Challenge;
};

const RefusalRow kRefusalRows[] = {
    {"NoSchemeAtBasic", SquidLogin::Basic, {}, kKnownPassword, "Basic realm=\"test\""},
    {"WrongPasswordAtBasic", SquidLogin::Basic, {"Basic"}, "wrong", "Basic realm=\"test\""},
    {"WrongPasswordAtDigest", SquidLogin::Digest, {"Digest"}, "wrong", "Digest realm=\"test\""},
    {"BasicWhereDigestIsAsked", SquidLogin::Digest, {"Basic"}, kKnownPassword, "Digest realm=\"test\""},
    {"DigestWhereBasicIsAsked", SquidLogin::Basic, {"Digest"}, kKnownPassword, "Basic realm=\"test\""},
};

class SquidAsksForALogin : public ThroughSquid, public testing::WithParamInterface<RefusalRow> {};

// The answer is a response. That to a request for a tunnel comes without its page, which libcurl drops.
TEST_P(SquidAsksForALogin, AndTheAnswerIsAResponse) {
    const RefusalRow& row = GetParam();
    for (const bool secure : {false, true}) {
        SCOPED_TRACE(secure ? "tunnel" : "plain");
        const Object connection = openThrough(row.Asked, secure ? secureUrl() : plainUrl());
        logInAtProxy(connection, row.Allowed, row.Password);
        const std::string page = receiveBytes(connection);
        EXPECT_EQ(page.find("ERR_CACHE_ACCESS_DENIED") != std::string::npos, !secure);
        EXPECT_EQ(status(connection), 407);
        EXPECT_THAT(field(connection, "Proxy-Authenticate"), HasSubstr(row.Challenge));
        connection.call("closeConnection");

        // The right login counts at once, for the same object.
        openAgain(connection, row.Asked);
        logInAtProxy(connection, {row.Asked == SquidLogin::Basic ? "Basic" : "Digest"});
        expectContent(connection, contentOf(secure));
        expectScopeUsable(connection);
    }
}

struct ErrorRow {
    const char* Name;
    std::string Url; // with "down" for the port of a server that is not there
    int Status;
    std::string Page; // Squid's name for it
};

// Squid hears nothing about the unknown names, which is not the same to it as a "no".
const ErrorRow kErrorRows[] = {
    {"RefusedDestination", "http://refused.test:80/", 403, "ERR_ACCESS_DENIED"},
    {"RefusedTunnel", "https://refused.test:443/", 403, "ERR_ACCESS_DENIED"},
    {"ServerThatIsDown", "http://origin.test:down/", 503, "ERR_CONNECT_FAIL"},
    {"SecureServerThatIsDown", "https://origin.test:down/", 503, "ERR_CONNECT_FAIL"},
    {"UnknownServer", "http://no-such-host.invalid/", 502, "ERR_READ_ERROR"},
    {"UnknownSecureServer", "https://no-such-host.invalid/", 500, "ERR_CANNOT_FORWARD"},
};

class SquidFails : public ThroughSquid, public testing::WithParamInterface<ErrorRow> {};

TEST_P(SquidFails, IsAResponseOrTheStatusForTheOlderInterfaceAndTheProgram) {
    const ErrorRow& row = GetParam();
    const RefusingPort down;
    std::string url = row.Url;
    if (const auto word = url.find("down"); word != url.npos) {
        url.replace(word, 4, std::to_string(down.port()));
    }
    const Object connection = openThrough(SquidLogin::None, url);
    const std::string page = receiveBytes(connection);
    EXPECT_EQ(page.find(row.Page) != std::string::npos, !url.starts_with("https"));
    EXPECT_EQ(status(connection), row.Status);
    EXPECT_THAT(field(connection, "X-Squid-Error"), HasSubstr(row.Page));
    connection.call("closeConnection");

    const Object next = openThrough(SquidLogin::None, plainUrl());
    expectPage(next);
    expectScopeUsable(next);

    const std::string code = std::to_string(row.Status);
    const Object older = openThrough(SquidLogin::None, url, false);
    EXPECT_THAT(describe(failureOf([&] { receiveBytes(older); })),
                testing::StartsWith("VANTIK:webservices:StatusError(" + code + ", "));
    expectScopeUsable(older);
    expectFailed(run({"get", "--fail", "-x", squid(SquidLogin::None).authority(), url}), 22, HasSubstr(code));
}

const auto kNameOf = [](const auto& info) { return std::string(info.param.Name); };
INSTANTIATE_TEST_SUITE_P(, SquidLetsThrough, testing::ValuesIn(kLoginRows), kNameOf);
INSTANTIATE_TEST_SUITE_P(, SquidAsksForALogin, testing::ValuesIn(kRefusalRows), kNameOf);
INSTANTIATE_TEST_SUITE_P(, SquidFails, testing::ValuesIn(kErrorRows), kNameOf);

TEST_F(ThroughSquid, CommandLineLogsInAndShowsNoSecret) {
    for (const bool secure : {false, true}) {
        const auto get = [&](const std::string& password) {
            return run({"get", "-o", "-", "--fail", "--ca-file", trustFile(), "-x",
                        squid(SquidLogin::Digest).authority(), "--proxy-user", kKnownUser + (":" + password),
                        secure ? secureUrl() : plainUrl()});
        };
        expectGot(get(kKnownPassword), contentOf(secure));
        expectFailed(get("hush-hush"), 22, testing::AllOf(HasSubstr("407"), testing::Not(HasSubstr("hush-hush"))));
    }
}

} // namespace
