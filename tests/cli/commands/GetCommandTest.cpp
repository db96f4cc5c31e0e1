#include "tests/cli/ProgramFixture.h"
#include "tests/support/server/Gzip.h"

#include <unistd.h>

namespace {

using namespace clitest;

using GetCommand = ProgramFixture;

TEST_F(GetCommand, WritesTheContentToStandardOutputAndNothingElse) {
    const Exchanged page =
        runAgainst(answering(response("hello\n", {"Content-Type: text/plain"})), {"get", "URL/a?q=1"});
    EXPECT_THAT(page, ended(0, "hello\n", ""));
    EXPECT_EQ(page.requestLine(), "GET /a?q=1 HTTP/1.1");
    EXPECT_EQ("http://" + page.field("Host").value_or("") + "/", page.Url);
    EXPECT_THAT(page.field("User-Agent").value_or(""), StartsWith("netrove/"));
    EXPECT_EQ(page.field("Authorization"), std::nullopt);
    EXPECT_EQ(page.Connections, 1u);

    const std::string binary = patternedBytes(1'000'000);
    EXPECT_EQ(difference(runAgainst(answering(response(binary)), {"get", "URL"}).Out, binary), "");
    const std::string chunks = kOk + "Transfer-Encoding: chunked\r\n\r\n" + chunked(binary.substr(0, 50'000), 777);
    EXPECT_EQ(difference(runAgainst(answering(chunks), {"get", "--consumer", "URL"}).Out, binary.substr(0, 50'000)),
              "");
}

struct GetRow {
    const char* Name;
    Words Arguments;
    std::string Answer;
    int Status;
    Text Out;
    Text Err;
};

TEST_F(GetCommand, WritesWhatTheOptionsAskFor) {
    const std::string missing = response("sorry", {}, "404 Not Found");
    const std::string failed = "netrove: NETROVE:cli:StatusError: the server answered 404 Not Found for URL/\n";
    const std::string packed = gzip("hello\n");
    const Text statusError = StartsWith("netrove: VANTIK:webservices:StatusError: ");
    const std::string head = "HTTP/1.1 203 Not Quite\r\nX-A: 1\r\nX-B: \r\nContent-Length: 2\r\n\r\n";
    const GetRow rows[] = {
        {"head", {"-i"}, "HTTP/1.1 203 Not Quite\r\nX-A: 1\r\nX-B:\r\nContent-Length: 2\r\n\r\nok", 0, head + "ok", ""},
        {"error status", {}, missing, 22, "", failed},
        {"--fail", {"--fail"}, missing, 22, "", failed},
        {"--no-fail", {"--no-fail"}, missing, 0, "sorry", ""},
        {"--fail-with-body", {"--fail-with-body"}, missing, 22, "sorry", failed},
        {"older interface, 404", {"--simple"}, missing, 22, "", statusError},
        {"older interface, 304", {"--simple"}, response("", {}, "304 Not Modified"), 22, "", statusError},
        {"older interface, 200", {"--simple"}, response("fine"), 0, "fine", ""},
        {"compressed", {}, response(packed, {"Content-Encoding: gzip"}), 0, "hello\n", ""},
        {"kept compressed", {"--no-decode"}, response(packed, {"Content-Encoding: gzip"}), 0, packed, ""},
        {"full disk",
         {"-o", "/dev/full"},
         response("x"),
         23,
         "",
         "netrove: NETROVE:cli:FileNotWritten: cannot write /dev/full: No space left on device\n"},
    };
    for (const GetRow& row : rows) {
        SCOPED_TRACE(row.Name);
        const Exchanged got = runAgainst(answering(row.Answer), Words{"get", "URL"} + row.Arguments);
        EXPECT_THAT(got, ended(row.Status, row.Out));
        EXPECT_THAT(got.complaint(), row.Err);
    }
}

TEST_F(GetCommand, WritesHeadAndContentIntoAFileButNeverReplacesADevice) {
    writeFile(file("out"), "old");
    const Exchanged got = runAgainst(answering(response("new", {"X-A: 1"})), {"get", "-i", "-o", file("out"), "URL"});
    EXPECT_THAT(got, ended(0, ""));
    EXPECT_EQ(readFile(file("out")), "HTTP/1.1 200 OK\r\nX-A: 1\r\nContent-Length: 3\r\n\r\nnew");

    EXPECT_EQ(runAgainst(answering(response("gone")), {"get", "-o", "/dev/null", "URL"}).Status, 0);
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
}

TEST_F(GetCommand, AddsReplacesAndRemovesFields) {
    const Exchanged got = runAgainst(answering(response("")), {"get", "URL", "-H", "X-One: 1", "-H", "X-One: 2", "-H",
                                                               "User-Agent: me/2", "--field", "Cookie: a=1", "-H",
                                                               "Accept: text/plain", "--remove-field", "Accept"});
    EXPECT_EQ(got.Status, 0) << got.Err;
    const FieldLines lines = fieldLines(got.Seen.Heads.at(0));
    EXPECT_THAT(lines, testing::IsSupersetOf(FieldLines{{"X-One", "1"}, {"X-One", "2"}, {"User-Agent", "me/2"}}));
    EXPECT_THAT(got.field("Cookie").value_or(""), StartsWith("a=1"));
    EXPECT_EQ(got.field("Accept"), std::nullopt);
}

TEST_F(GetCommand, ReadsFieldsFromStandardInputWhereNobodySeesThem) {
    const Exchanged got = runAgainst(answering(response("")), {"get", "URL", "-H", "@-", "-H", "X-One: 1"},
                                     {.Input = "Authorization: Bearer tok\r\n\nX-Key: k\n"});
    EXPECT_THAT(got, ended(0));
    EXPECT_THAT(fieldLines(got.Seen.Heads.at(0)),
                testing::IsSupersetOf(FieldLines{{"Authorization", "Bearer tok"}, {"X-Key", "k"}, {"X-One", "1"}}));
}

TEST_F(GetCommand, HidesATokenFromTheListOfProcesses) {
    const ScriptedServer server({step::expectHead(), step::signal("sent"), step::awaitPeerEnd()});
    const Program program({"get", "-H", "Authorization: Bearer tok", "-H", "Accept: text/html", server.url()});
    server.waitFor("sent");
    EXPECT_THAT(program.commandLine(), AllOf(Not(HasSubstr("tok")), HasSubstr("Accept: text/html")));
}

TEST_F(GetCommand, FailsWhereNobodyReadsItsOutput) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    const Exchanged got =
        runAgainst(answering(response(patternedBytes(100'000))), {"get", "URL"}, {.OutDescriptor = ends[1]});
    close(ends[1]);
    EXPECT_THAT(got, ended(23, _, "netrove: NETROVE:cli:FileNotWritten: cannot write standard output: Broken pipe\n"));
}

} // namespace
