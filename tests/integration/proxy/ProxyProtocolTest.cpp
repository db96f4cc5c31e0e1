// Proxies that are spoken to otherwise than in plain HTTP: what the wire sees of each, whoever named them.
#include "tests/integration/proxy/ProxySettingsFixture.h"
#include "tests/support/server/WireText.h"

namespace {

using namespace integrationtest;
using namespace std::string_literals;
using testing::HasSubstr;

const std::string kGranted = "\5\0\0\1\0\0\0\0\0\0"s; // of a SOCKS5 connect
const std::string kTlsHandshake = "\x16\3"s;          // how the first record of a TLS client begins

// A SOCKS5 server that plays the origin too. It may answer ahead of what it is asked, which has to come in this order:
// the ways to log in that the client knows, its login, the connect, the request.
Script socksExchange(const std::string& login) {
    return {step::expectBody(2), step::send(login + kGranted), step::expectHead(), step::send(response("by socks")),
            step::awaitPeerEnd()};
}
const std::string kNoLogin = "\5\0"s;
const std::string kPasswordLogin = "\5\2\1\0"s; // wanted, and accepted

class ProxyProtocols : public ProxySettings {
protected:
    // The same proxy by the environment, in the program and at the command line, and by the option.
    void getInEveryWay(const std::string& proxy, const std::string& url, const std::string& content) {
        Settings.set("http_proxy", proxy);
        const Object connection = openByLookUp(url);
        EXPECT_EQ(receiveBytes(connection), content);
        expectScopeUsable(connection);
        expectGot(runUnder(proxy, {"get", url}), content);
        expectGot(run({"get", "-x", proxy, url}), content);
    }
};

TEST_F(ProxyProtocols, TlsIsSpokenBeforeAnyPassword) {
    const Script hangsUp = {step::expectBody(3), step::close()};
    ScriptedServer& proxy = serve(std::vector<Script>(3, hangsUp));
    const std::string setting = "https://u:secret@" + proxy.authority();
    Settings.set("http_proxy", setting);
    const Object connection = openByLookUp("http://example.test/");
    EXPECT_THROW(receiveBytes(connection), vantik::Failure);
    expectScopeUsable(connection);
    EXPECT_NE(runUnder(setting, {"get", "http://example.test/"}).Status, 0);
    EXPECT_NE(run({"get", "-x", setting, "http://example.test/"}).Status, 0);
    ASSERT_EQ(proxy.connectionCount(), 3U);
    for (std::size_t way = 0; way < 3; ++way) {
        const Record record = proxy.waitUntilDone(way);
        EXPECT_THAT(record.Received, testing::StartsWith(kTlsHandshake)) << way;
        EXPECT_THAT(record.Received, testing::Not(HasSubstr("dTpzZWNyZXQ="))) << way; // u:secret
    }
}

TEST_F(ProxyProtocols, Socks5IsAskedForTheServerAsItsSettingSays) {
    struct Row {
        const char* Setting; // without host and port
        const char* Url;
        const std::string& Login;
        std::string Asked; // from the login on, as far as it matters
    };
    for (const Row& row :
         {Row{"socks5h://", "http://origin.test/x", kNoLogin, "\5\1\0\3\13origin.test\0\120GET /x HTTP/1.1\r\n"s},
          {"socks5://", "http://127.0.0.1/x", kNoLogin, "\5\1\0\1\177\0\0\1\0\120GET /x HTTP/1.1\r\n"s},
          {"socks5://me:p%40w@", "http://127.0.0.1/x", kPasswordLogin, "\1\2me\3p@w\5\1\0\1"s}}) {
        SCOPED_TRACE(row.Setting);
        ScriptedServer& proxy = serve(std::vector<Script>(3, socksExchange(row.Login)));
        getInEveryWay(row.Setting + proxy.authority(), row.Url, "by socks");
        for (std::size_t way = 0; way < 3; ++way) {
            const Record record = proxy.record(way);
            EXPECT_EQ(record.Bodies.at(0).front(), '\5');
            EXPECT_THAT(record.Heads.at(0), HasSubstr(row.Asked)) << way;
        }
    }
}

// A setting may leave the version open, as scripts do.
TEST_F(ProxyProtocols, Socks4IsAskedForTheAddressOfTheServer) {
    const Script exchange = {step::expectBody(9), step::send("\0\x5a\0\0\0\0\0\0"s), step::expectHead(),
                             step::send(response("by socks")), step::awaitPeerEnd()};
    for (const char* setting : {"socks4://", "socks://"}) {
        ScriptedServer& proxy = serve({exchange});
        Settings.set("http_proxy", setting + proxy.authority());
        const Object connection = openByLookUp("http://127.0.0.1/x");
        EXPECT_EQ(receiveBytes(connection), "by socks");
        EXPECT_EQ(proxy.record().Bodies.at(0), "\4\1\0\120\177\0\0\1\0"s);
        EXPECT_EQ(startLine(proxy.record().Heads.at(0)), "GET /x HTTP/1.1");
        expectScopeUsable(connection);
    }
}

TEST_F(ProxyProtocols, SocksProxyOfAScriptIsUsed) {
    ScriptedServer& proxy = serve({socksExchange(kNoLogin)});
    writeFile(folder().file("proxy.pac"),
              "function FindProxyForURL(url, host) { return 'SOCKS5 " + proxy.authority() + "'; }");
    Settings.set("http_proxy", "pac+file://" + folder().file("proxy.pac"));
    const Object connection = openByLookUp("http://127.0.0.1/x");
    EXPECT_EQ(receiveBytes(connection), "by socks");
    EXPECT_THAT(proxy.record().Heads.at(0), HasSubstr("\5\1\0\1\177\0\0\1"s));
    expectScopeUsable(connection);
}

} // namespace
