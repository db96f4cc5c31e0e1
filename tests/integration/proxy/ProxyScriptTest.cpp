// Scripts that decide which proxy applies.
#include "tests/integration/proxy/ProxySettingsFixture.h"
#include "tests/support/server/UnreachablePorts.h"
#include "tests/support/server/WireText.h"

// For the run under a sanitizer: libproxy itself loses the address of a script that it could not get.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:libproxy.so";
}

namespace {

using namespace integrationtest;

std::string scriptFor(const ScriptedServer& proxy) {
    return "function FindProxyForURL(url, host) {\n"
           "  if (host == 'direct.test') return 'DIRECT';\n"
           "  if (url.substring(0, 6) == 'https:') return 'PROXY secure.test:8443';\n"
           "  if (dnsDomainIs(host, '.two.test')) return 'PROXY first.test:1; PROXY second.test:2; DIRECT';\n"
           "  if (host == 'socks.test') return 'SOCKS socks.test:1080; PROXY other.test:3128';\n"
           "  if (host == 'socks5.test') return 'SOCKS5 socks.test:1080';\n"
           "  if (host == 'tls.test') return 'HTTPS tls.test:8443; PROXY other.test:3128';\n"
           "  if (host == 'nonsense.test') return 'nonsense';\n"
           "  if (host == 'throws.test') throw 'on purpose';\n"
           "  return 'PROXY " +
           proxy.authority() +
           "';\n"
           "}\n";
}

class ProxyScripts : public ProxySettings {
protected:
    void expectAnswersOf(const ScriptedServer& proxy) {
        EXPECT_EQ(lookUp("http://direct.test/"), kDirect);
        EXPECT_EQ(lookUp("https://any.test/"), "secure.test 8443");
        EXPECT_EQ(lookUp("http://a.two.test/"), "first.test 1");
        EXPECT_EQ(lookUp("http://socks.test/x"), "socks://socks.test 1080");
        EXPECT_EQ(lookUp("http://socks5.test/x"), "socks5://socks.test 1080");
        EXPECT_EQ(lookUp("http://tls.test/x"), "other.test 3128") << "libproxy leaves HTTPS out";
        EXPECT_EQ(lookUp("http://any.test/x?y"), "127.0.0.1 " + std::to_string(proxy.port()));
        // What a script does wrong counts as no proxy.
        EXPECT_EQ(lookUp("http://nonsense.test/"), kDirect);
        EXPECT_EQ(lookUp("http://throws.test/"), kDirect);
    }
};

TEST_F(ProxyScripts, FromAFileDecideByTheServer) {
    ScriptedServer& proxy =
        serve(std::vector<Script>(2, {step::expectHead(), step::send(response("by script")), step::awaitPeerEnd()}));
    writeFile(folder().file("proxy.pac"), scriptFor(proxy));
    const std::string setting = "pac+file://" + folder().file("proxy.pac");
    Settings.set("http_proxy", setting);
    expectAnswersOf(proxy);
    const Object connection = openByLookUp("http://origin.test/x");
    EXPECT_EQ(receiveBytes(connection), "by script");
    EXPECT_EQ(startLine(proxy.record().Heads.at(0)), "GET http://origin.test/x HTTP/1.1");
    expectGot(runUnder(setting, {"get", "-x", "auto", "http://origin.test/y"}), "by script");
    expectScopeUsable(connection);
}

// It is fetched once and kept for as long as the setting stays.
TEST_F(ProxyScripts, FromAServerDecideByTheServer) {
    ScriptedServer& proxy = serve({step::expectHead(), step::send(response("by script"))});
    const std::string script = scriptFor(proxy);
    ScriptedServer& source =
        serve({step::expectHead(), step::send(response(script, {"Content-Type: application/x-ns-proxy-autoconfig"})),
               step::close()});
    Settings.set("http_proxy", "pac+" + source.url("/proxy.pac"));
    expectAnswersOf(proxy);
    EXPECT_EQ(source.connectionCount(), 1U);
    const Object connection = openByLookUp("http://origin.test/x");
    EXPECT_EQ(receiveBytes(connection), "by script");
    expectScopeUsable(connection);
}

TEST_F(ProxyScripts, ThatCannotBeFetchedMeanADirectConnection) {
    const RefusingPort refusing;
    for (const std::string& setting :
         {std::string("pac+file:///nonexistent/proxy.pac"), "pac+" + refusing.url("/proxy.pac")}) {
        SCOPED_TRACE(setting);
        Settings.set("http_proxy", setting);
        EXPECT_EQ(lookUp("http://a.corp/"), kDirect);
    }
    expectScopeUsable();
}

} // namespace
