// What -v and --debug show of a run.
#include "tests/cli/ProgramFixture.h"
#include "tests/exchange/request/TlsServer.h"

#include <sstream>

namespace {

using namespace clitest;
using testing::ContainsRegex;
using testing::Each;
using testing::IsSupersetOf;
using testing::MatchesRegex;

Words linesOf(const std::string& text) {
    Words lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

class Trace : public ProgramFixture {};

TEST_F(Trace, ShowsHeadsLineByLineWithoutCredentials) {
    const Exchanged got = runAgainst(answering(response("body", {"Set-Cookie: id=topsecret", "X-Evil: a\x1b[31mb"})),
                                     {"get", "-v", "-x", "none", "-H", "Authorization: Bearer token99", "URL"});
    EXPECT_EQ(got.Out, "body");
    const std::string authority = got.Url.substr(7, got.Url.size() - 8);
    const std::string agent = "> User-Agent: " + got.field("User-Agent").value_or("");
    EXPECT_THAT(linesOf(got.Err),
                testing::ElementsAre("* direct connection (as asked)", StartsWith("* Trying 127.0.0.1:"),
                                     StartsWith("* Connected to 127.0.0.1 "), "> GET / HTTP/1.1",
                                     "> Host: " + authority, "> Authorization: ***", agent, ">", "< HTTP/1.1 200 OK",
                                     "< Set-Cookie: ***", "< X-Evil: a\\x1B[31mb", "< Content-Length: 4", "<",
                                     "* 4 bytes of content came"));
}

TEST_F(Trace, SaysWhichProxyAppliesAndWhy) {
    struct Row {
        std::map<std::string, std::string> Environment;
        std::string Note;
    };
    const std::string refused = "HTTP_PROXY is not used, since the caller of a CGI program can set it";
    for (const Row& row : {Row{{}, "direct connection (no setting names a proxy)"},
                           Row{{{"http_proxy", "127.0.0.1:1"}, {"no_proxy", "*"}}, "direct connection (no_proxy)"},
                           Row{{{"HTTP_PROXY", "127.0.0.1:1"}}, "direct connection (" + refused + ")"}}) {
        EXPECT_THAT(runAgainst(answering(response("x")), {"get", "-v", "URL"}, {.Environment = row.Environment}),
                    ended(0, "x", StartsWith("* " + row.Note + "\n")));
    }
    const ScriptedServer proxy(answering(response("x")));
    EXPECT_THAT(
        run({"get", "-v", "http://h.test/"}, {.Environment = {{"all_proxy", "me:s3cr3t@" + proxy.authority()}}}),
        ended(0, "x",
              AllOf(StartsWith("* through the proxy " + proxy.authority() + " (all_proxy)\n"),
                    Not(HasSubstr("s3cr3t")))));
}

TEST_F(Trace, SaysThatARedirectIsFollowedOnTheSameConnection) {
    const Script twice = {step::expectHead(), step::send(response("", {"Location: /there"}, "302 Found")),
                          step::expectHead(), step::send(response("x")), step::awaitPeerEnd()};
    const Exchanged got = runAgainst(twice, {"get", "-v", "-x", "none", "URL"});
    EXPECT_THAT(got.complaint(), ContainsRegex("\n\\* follows the redirect to URL/there\n(\\*.*\n)*"
                                               "\\* Re-?using existing .*\n(\\*.*\n)*> GET /there HTTP/1.1\n"));
}

TEST_F(Trace, SaysWhoTheServerIs) {
    const TlsServer server("IP:127.0.0.1", response("x"));
    writeFile(file("ca.pem"), server.certificate());
    const Outcome got = run({"get", "-v", "--ca-file", "ca.pem", "https://" + server.authority() + "/"}, here());
    EXPECT_THAT(got, ended(0, "x"));
    EXPECT_THAT(linesOf(got.Err),
                IsSupersetOf({MatchesRegex("\\* SSL connection using TLSv1\\.3 / .*"), MatchesRegex("\\* subject: .*"),
                              MatchesRegex("\\* expire date: .* GMT"), MatchesRegex("\\* issuer: .*")}));
}

TEST_F(Trace, HasTimesWhereAskedAndEverythingWhereAskedTwice) {
    const Script cookie = answering(response("x", {"Set-Cookie: id=topsecret"}));
    const auto timed = Each(MatchesRegex("[0-9][0-9]:[0-9][0-9]:[0-9][0-9]\\.[0-9][0-9][0-9] [*<>].*"));
    EXPECT_THAT(linesOf(runAgainst(cookie, {"get", "-v", "--trace-time", "URL"}).Err), timed);
    const std::string more = runAgainst(cookie, {"get", "-v", "-v", "URL"}).Err;
    EXPECT_THAT(linesOf(more), timed);
    EXPECT_THAT(more, AllOf(HasSubstr(" left intact\n"), Not(HasSubstr("topsecret"))));
}

TEST_F(Trace, OfTheClassIsThereForWhoAsksForIt) {
    const Exchanged got = runAgainst(answering(response("body")),
                                     {"get", "--debug", "1", "-v", "-H", "Authorization: Bearer token99", "URL"});
    EXPECT_THAT(got, ended(0, "body",
                           AllOf(StartsWith("netrove: note: the trace shows credentials"),
                                 HasSubstr("Authorization: Bearer token99"), HasSubstr("IN  HDR: HTTP/1.1 200 OK"),
                                 HasSubstr("DESTROYING HTTPCONNECTION"), Not(HasSubstr("\n> ")))));
}

} // namespace
