// Credentials of the options. That a body from memory is sent again after a challenge:
// tests/exchange/request/AuthenticationTest.cpp.
#include "tests/cli/ProgramFixture.h"

namespace {

using namespace clitest;

constexpr const char* kBasic = "Basic bWU6c2VjcmV0"; // me:secret

std::string challenge(const std::string& more = "") {
    return "HTTP/1.1 401 Who\r\nWWW-Authenticate: Basic realm=\"r\"\r\n" + more + "Content-Length: 0\r\n\r\n";
}

Script answeringAfter(const std::string& first) {
    return {step::expectHead(), step::send(first), step::expectHead(), step::send(response("in")),
            step::awaitPeerEnd()};
}

using Login = ProgramFixture;

TEST_F(Login, AnswersAChallenge) {
    const Exchanged basic = runAgainst(answeringAfter(challenge()), {"get", "-u", "me", "URL"},
                                       {.Environment = {{"NETROVE_PASSWORD", "secret"}}});
    EXPECT_EQ(basic.Out, "in") << basic.Err;
    EXPECT_EQ(basic.field("Authorization", 0), std::nullopt);
    EXPECT_EQ(basic.field("Authorization", 1), kBasic);

    const Exchanged digest =
        runAgainst(answeringAfter(challenge("WWW-Authenticate: Digest realm=\"r\", nonce=\"n\", qop=\"auth\"\r\n")),
                   {"get", "-u", "me:secret", "URL"});
    EXPECT_EQ(digest.Out, "in") << digest.Err;
    EXPECT_THAT(digest.field("Authorization", 1).value_or(""), StartsWith("Digest username=\"me\""));
}

TEST_F(Login, DoesNotUseASchemeThatIsNotAllowed) {
    const Exchanged refused =
        runAgainst(answering(challenge()), {"get", "-f", "-u", "me:secret", "--auth", "digest", "URL"});
    EXPECT_EQ(refused.Status, 22);
    EXPECT_EQ(refused.Seen.Heads.size(), 1u);
    EXPECT_EQ(refused.field("Authorization"), std::nullopt);
}

TEST_F(Login, UsesTheCredentialsOfTheUrl) {
    const ScriptedServer server(answering(response("in")));
    EXPECT_EQ(run({"get", "--auth", "basic", "http://me:sec%72et@" + server.authority() + "/"}).Out, "in");
    EXPECT_EQ(fieldValue(server.waitUntilDone().Heads.at(0), "Authorization"), kBasic);
}

TEST_F(Login, SendsAStreamedBodyAgainAfterAChallengeWhereItCanBeReadAgain) {
    writeFile(file("body"), "streamed");
    const Words words = {"send", "-u", "me:secret", "-T"};
    const ScriptedServer server({closingAfterBody(8, challenge("Connection: close\r\n")), takingBody(8)});
    EXPECT_EQ(run(words + Words{file("body"), server.url()}).Out, "done");
    EXPECT_EQ(server.record(0).Bodies, server.record(1).Bodies);
    EXPECT_EQ(fieldValue(server.record(1).Heads.at(0), "Authorization"), kBasic);
    // Standard input cannot, so nothing is sent.
    const ScriptedServer unasked(takingBody(8));
    EXPECT_THAT(run(words + Words{"-", unasked.url()}, {.Input = "streamed"}),
                ended(26, "", StartsWith("netrove: NETROVE:cli:ContentNotRewound: ")));
    EXPECT_EQ(unasked.connectionCount(), 0u);
    // Basic alone needs no challenge.
    const Exchanged sent =
        runAgainst(takingBody(8), {"send", "-u", "me:secret", "--auth", "basic", "-T", file("body"), "URL"});
    EXPECT_EQ(sent.Out, "done");
    EXPECT_EQ(sent.field("Authorization"), kBasic);
    EXPECT_EQ(sent.Seen.Bodies, Words{"streamed"});
}

struct TypedRow {
    const char* Typed;
    int Status;
    std::string Shown;
    std::optional<std::string> Sent; // as credentials
};

TEST_F(Login, AsksForAPasswordOnATerminalWithoutShowingIt) {
    const std::string prompt = "Password for user 'me': ";
    const TypedRow rows[] = {
        {"secret\n", 0, "in", kBasic},
        {"\n", 0, "in", "Basic bWU6"}, // me:
        {"\x03", 130, "netrove: NETROVE:cli:Interrupted: interrupted\r\n", {}},
        {"\x04", 2, "netrove: NETROVE:cli:Usage: no password was given\r\n", {}},
    };
    for (const TypedRow& row : rows) {
        const ScriptedServer server(answering(response("in")));
        Program program({"get", "-u", "me", "--auth", "basic", "--color", "never", server.url()},
                        {.Terminal = true, .TerminalInput = true});
        program.waitForOutput(prompt);
        program.type(row.Typed);
        const Outcome outcome = program.wait();
        EXPECT_THAT(outcome, ended(row.Status, prompt + "\r\n" + row.Shown));
        if (row.Sent) {
            EXPECT_EQ(fieldValue(server.waitUntilDone().Heads.at(0), "Authorization"), row.Sent);
        } else {
            EXPECT_EQ(server.connectionCount(), 0u);
        }
    }
}

TEST_F(Login, WithoutAPasswordAndATerminalIsWrongUsage) {
    EXPECT_THAT(
        run({"get", "-u", "me", "http://127.0.0.1:1/"}),
        ended(2, "", "netrove: NETROVE:cli:Usage: no password for user; set NETROVE_PASSWORD in the environment\n"));
}

} // namespace
