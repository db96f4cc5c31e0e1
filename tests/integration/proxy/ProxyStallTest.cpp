// A server of proxy scripts that says nothing: who waits for it can still be stopped, and nobody else is harmed.
#include "tests/integration/proxy/ProxySettingsFixture.h"
#include "tests/support/server/WireText.h"

#include <chrono>
#include <csignal>

namespace {

using namespace integrationtest;

Script silent() {
    return {step::expectHead(), step::signal("reached"), step::awaitPeerEnd()};
}

class StalledProxyScript : public ProxySettings {
protected:
    static std::map<std::string, std::string> environment(const ScriptedServer& source) {
        return {{"http_proxy", "pac+" + source.url("/x.pac")}};
    }
    // Three lines, so that some wait for the one who asks.
    std::string list() {
        writeFile(folder().file("list"), "http://a.test/1\nhttp://b.test/2\nhttp://c.test/3\n");
        return folder().file("list");
    }
};

TEST_F(StalledProxyScript, DoesNotHoldUpCtrlC) {
    for (const Texts& command : {Texts{"proxy", "http://a.test/"}, Texts{"get", "http://a.test/"},
                                 Texts{"save", "http://a.test/", folder().file("target")},
                                 Texts{"batch", list(), "--jobs", "3", "--no-journal"}}) {
        SCOPED_TRACE(command.front());
        ScriptedServer source(silent());
        testsupport::Program program(command, {.Environment = environment(source), .Folder = folder().path()});
        source.waitFor("reached");
        program.signal(SIGINT);
        const Outcome outcome = program.wait();
        EXPECT_EQ(outcome.Status, 130);
        EXPECT_THAT(outcome.Err, testing::HasSubstr("netrove: NETROVE:cli:Interrupted: interrupted\n"));
    }
}

TEST_F(StalledProxyScript, DoesNotHoldUpTheTimeLimit) {
    ScriptedServer source(silent());
    const Outcome outcome =
        run({"get", "-m", "0.2", "http://a.test/"}, {.Environment = environment(source), .Folder = folder().path()});
    EXPECT_EQ(outcome.Status, 28);
    EXPECT_EQ(outcome.Err, "netrove: NETROVE:cli:MaxTime: not complete after 0.2 s, the limit of --max-time\n");
}

TEST_F(StalledProxyScript, FailsEveryTransferOfAListAtItsTimeLimit) {
    ScriptedServer source(silent());
    // Long enough for the question to be on its way.
    const Outcome outcome = run({"batch", list(), "--jobs", "2", "--no-journal", "-m", "2"},
                                {.Environment = environment(source), .Folder = folder().path()});
    EXPECT_EQ(outcome.Status, 28) << outcome.Err;
    source.waitFor("reached");
    EXPECT_EQ(source.connectionCount(), 1U);
}

TEST_F(StalledProxyScript, LetsAProgramStopAndAnswersOnceItIsThere) {
    ScriptedServer& source =
        serve({step::expectHead(), step::run([this] { host().interrupt(); }), step::await("patience"),
               step::send(response("function FindProxyForURL(url, host) { return 'PROXY h:1'; }")), step::close()});
    Settings.set("http_proxy", "pac+" + source.url("/x.pac"));
    EXPECT_THROW(lookUp("http://a.test/"), vantik::Interrupted);
    EXPECT_FALSE(host().interruptPending());
    EXPECT_TRUE(host().wasInterrupted());
    // The server still says nothing, and the next question waits for the first.
    host().interruptAfter(std::chrono::milliseconds(1));
    EXPECT_THROW(lookUp("http://b.test/"), vantik::Interrupted);
    EXPECT_FALSE(host().interruptPending());
    source.raise("patience");
    EXPECT_EQ(lookUp("http://c.test/"), "h 1");
    EXPECT_EQ(source.connectionCount(), 1U);
    expectScopeUsable();
}

TEST_F(StalledProxyScript, PendingStopIsTakenByTheQuestion) {
    Settings.set("http_proxy", "http://h:1");
    host().interrupt();
    EXPECT_THROW(lookUp("http://a.test/"), vantik::Interrupted);
    EXPECT_FALSE(host().interruptPending());
    EXPECT_EQ(lookUp("http://a.test/"), "h 1");
    expectScopeUsable();
}

} // namespace
