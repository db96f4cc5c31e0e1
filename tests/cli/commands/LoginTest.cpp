#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace testsupport;

constexpr const char* kBasic = "Basic bWU6c2VjcmV0"; // me:secret

std::string challenge(const std::string& scheme) {
    return "HTTP/1.1 401 Who\r\nWWW-Authenticate: " + scheme + "\r\nContent-Length: 0\r\n\r\n";
}

Script answerTwice(const std::string& first) {
    return {step::expectHead(), step::send(first), step::expectHead(), step::send(response("in")),
            step::awaitPeerEnd()};
}

TEST(Login, BasicIsSentOnceTheServerHasAsked) {
    ScriptedServer server(answerTwice(challenge("Basic realm=\"r\"")));
    Surroundings around;
    around.Environment["NETROVE_PASSWORD"] = "secret";
    const Outcome outcome = run({"get", "-u", "me", server.url()}, around);
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(outcome.Out, "in");
    const Record record = server.waitUntilDone();
    EXPECT_EQ(fieldValue(record.Heads.at(0), "Authorization"), std::nullopt);
    EXPECT_EQ(fieldValue(record.Heads.at(1), "Authorization"), kBasic);
}

TEST(Login, DigestIsPreferredWhereBothAreOffered) {
    ScriptedServer server(
        answerTwice("HTTP/1.1 401 Who\r\nWWW-Authenticate: Basic realm=\"r\"\r\n"
                    "WWW-Authenticate: Digest realm=\"r\", nonce=\"n\", qop=\"auth\"\r\nContent-Length: 0\r\n\r\n"));
    const Outcome outcome = run({"get", "-u", "me:secret", server.url()});
    EXPECT_EQ(outcome.Out, "in") << outcome.Err;
    const std::string sent = fieldValue(server.waitUntilDone().Heads.at(1), "Authorization").value_or("");
    EXPECT_EQ(sent.find("Digest username=\"me\""), 0u) << sent;
}

TEST(Login, ASchemeThatIsNotAllowedIsNotUsed) {
    ScriptedServer server({step::expectHead(), step::send(challenge("Basic realm=\"r\"")), step::awaitPeerEnd()});
    const Outcome outcome = run({"get", "-f", "-u", "me:secret", "--auth", "digest", server.url()});
    EXPECT_EQ(outcome.Status, 22) << outcome.Err;
    const Record record = server.waitUntilDone();
    EXPECT_EQ(record.Heads.size(), 1u);
    EXPECT_EQ(fieldValue(record.Heads.at(0), "Authorization"), std::nullopt);
}

TEST(Login, CredentialsOfTheUrlAreUsed) {
    ScriptedServer server({step::expectHead(), step::send(response("in")), step::awaitPeerEnd()});
    std::string url = server.url();
    url.insert(7, "me:sec%72et@");
    EXPECT_EQ(run({"get", "--auth", "basic", url}).Out, "in");
    EXPECT_EQ(fieldValue(server.waitUntilDone().Heads.at(0), "Authorization"), kBasic);
}

TEST(Login, ABodyFromMemoryIsSentAgainAfterTheChallenge) {
    // libcurl may not have seen the end of the content yet when the answer comes, and then it keeps no connection; so
    // that nothing depends on that, the server closes.
    const std::string last = "HTTP/1.1 401 Who\r\nWWW-Authenticate: Basic realm=\"r\"\r\nConnection: close\r\n"
                             "Content-Length: 0\r\n\r\n";
    ScriptedServer server(std::vector<Script>{
        {step::expectHead(), step::expectBody(3), step::send(last), step::close()},
        {step::expectHead(), step::expectBody(3), step::send(response("in")), step::awaitPeerEnd()}});
    const Outcome outcome = run({"send", "-u", "me:secret", "-d", "a=1", server.url()});
    EXPECT_EQ(outcome.Out, "in") << outcome.Err;
    const Record record = server.waitUntilDone(1);
    EXPECT_EQ(fieldValue(record.Heads.at(0), "Authorization"), kBasic);
    EXPECT_EQ(record.Bodies, (std::vector<std::string>{"a=1"}));
}

TEST(Login, AStreamedBodyIsNeverSentWrongAfterAChallenge) {
    const TemporaryFolder folder;
    writeFile(folder.file("body"), "streamed");
    ScriptedServer server(
        {step::expectHead(), step::expectBody(8), step::send(challenge("Basic realm=\"r\"")), step::awaitPeerEnd()});
    const Outcome outcome = run({"send", "-u", "me:secret", "-T", folder.file("body"), server.url()});
    EXPECT_EQ(outcome.Status, 26) << outcome.Err;
    EXPECT_EQ(outcome.Err.find("netrove: NETROVE:cli:ContentNotRewound: "), 0u) << outcome.Err;
    EXPECT_EQ(server.record().Heads.size(), 1u);
}

TEST(Login, AStreamedBodyWithBasicAloneNeedsNoChallenge) {
    const TemporaryFolder folder;
    writeFile(folder.file("body"), "streamed");
    ScriptedServer server({step::expectHead(), step::expectBody(8), step::send(response("in")), step::awaitPeerEnd()});
    EXPECT_EQ(run({"send", "-u", "me:secret", "--auth", "basic", "-T", folder.file("body"), server.url()}).Out, "in");
    const Record record = server.waitUntilDone();
    EXPECT_EQ(fieldValue(record.Heads.at(0), "Authorization"), kBasic);
    EXPECT_EQ(record.Bodies.at(0), "streamed");
}

Surroundings atTerminal() {
    Surroundings around;
    around.Terminal = true;
    around.TerminalInput = true;
    return around;
}

TEST(Login, APasswordIsAskedForAndNotShown) {
    ScriptedServer server({step::expectHead(), step::send(response("in")), step::awaitPeerEnd()});
    Program program({"get", "-u", "me", "--auth", "basic", server.url()}, atTerminal());
    program.waitForOutput("Password for user 'me': ");
    program.type("secret\n");
    const Outcome outcome = program.wait();
    EXPECT_EQ(outcome.Status, 0) << outcome.Out;
    EXPECT_EQ(outcome.Out, "Password for user 'me': \r\nin");
    EXPECT_EQ(fieldValue(server.waitUntilDone().Heads.at(0), "Authorization"), kBasic);
}

TEST(Login, CtrlCInsteadOfAPasswordIsAnInterrupt) {
    Program program({"get", "-u", "me", "--color", "never", "http://127.0.0.1:1/"}, atTerminal());
    program.waitForOutput("Password for user 'me': ");
    program.type("\x03");
    const Outcome outcome = program.wait();
    EXPECT_EQ(outcome.Status, 130) << outcome.Out;
    EXPECT_EQ(lastLine(outcome.Out), "netrove: NETROVE:cli:Interrupted: interrupted\r");
}

TEST(Login, CtrlDInsteadOfAPasswordSendsNothing) {
    Program program({"get", "-u", "me", "--color", "never", "http://127.0.0.1:1/"}, atTerminal());
    program.waitForOutput("Password for user 'me': ");
    program.type("\x04");
    const Outcome outcome = program.wait();
    EXPECT_EQ(outcome.Status, 2) << outcome.Out;
    EXPECT_EQ(lastLine(outcome.Out), "netrove: NETROVE:cli:Usage: no password was given\r");
}

TEST(Login, AnEmptyLineIsAnEmptyPassword) {
    ScriptedServer server({step::expectHead(), step::send(response("in")), step::awaitPeerEnd()});
    Program program({"get", "-u", "me", "--auth", "basic", server.url()}, atTerminal());
    program.waitForOutput("Password for user 'me': ");
    program.type("\n");
    EXPECT_EQ(program.wait().Status, 0);
    EXPECT_EQ(fieldValue(server.waitUntilDone().Heads.at(0), "Authorization"), "Basic bWU6"); // me:
}

TEST(Login, WithoutAPasswordAndWithoutATerminalItIsWrongUsage) {
    const Outcome outcome = run({"get", "-u", "me", "http://127.0.0.1:1/"});
    EXPECT_EQ(outcome.Status, 2);
    EXPECT_EQ(outcome.Err,
              "netrove: NETROVE:cli:Usage: no password for user; set NETROVE_PASSWORD in the environment\n");
}

} // namespace
