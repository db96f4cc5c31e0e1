#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace testsupport;

Script answer(const std::string& text) {
    return {step::expectHead(), step::send(text), step::awaitPeerEnd()};
}

TEST(GetCommand, TheContentComesOnStandardOutputAndNothingElse) {
    ScriptedServer server(answer(response("hello\n", {"Content-Type: text/plain"})));
    const Outcome outcome = run({"get", server.url("/page?q=1")});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(outcome.Out, "hello\n");
    EXPECT_EQ(outcome.Err, "");
    const Record record = server.waitUntilDone();
    EXPECT_EQ(startLine(record.Heads.at(0)), "GET /page?q=1 HTTP/1.1");
    EXPECT_EQ(fieldValue(record.Heads[0], "Host"), server.authority());
    EXPECT_EQ(fieldValue(record.Heads[0], "User-Agent").value_or("").find("netrove/"), 0u);
    EXPECT_EQ(fieldValue(record.Heads[0], "Authorization"), std::nullopt);
}

TEST(GetCommand, BinaryContentGoesUnchangedIntoAPipe) {
    const std::string content = patternedBytes(1'000'000);
    ScriptedServer server(answer(response(content)));
    const Outcome outcome = run({"get", server.url()});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(difference(outcome.Out, content), "");
}

TEST(GetCommand, ChunkedContentIsPutTogether) {
    const std::string content = patternedBytes(50'000);
    ScriptedServer server(answer("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + chunked(content, 777)),
                          Pace::Whole);
    const Outcome outcome = run({"get", "--consumer", server.url()});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(difference(outcome.Out, content), "");
}

TEST(GetCommand, FieldsComeFromStandardInputWhereNobodySeesThem) {
    ScriptedServer server(answer(response("")));
    Surroundings around;
    around.Input = "Authorization: Bearer tok\r\n\nX-Key: k\n";
    const Outcome outcome = run({"get", server.url(), "-H", "@-", "-H", "X-One: 1"}, around);
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    const std::string head = server.waitUntilDone().Heads.at(0);
    EXPECT_EQ(fieldValue(head, "Authorization"), "Bearer tok");
    EXPECT_EQ(fieldValue(head, "X-Key"), "k");
    EXPECT_EQ(fieldValue(head, "X-One"), "1");
}

TEST(GetCommand, StandardInputServesOneThing) {
    for (const std::vector<std::string>& more :
         {std::vector<std::string>{"-T", "-"}, {"--body-file", "-"}, {"-d", "@-"}}) {
        Surroundings around;
        around.Input = "A: 1\n";
        std::vector<std::string> arguments = {"send", "http://127.0.0.1:1/", "-H", "@-"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const Outcome outcome = run(arguments, around);
        EXPECT_EQ(outcome.Status, 2);
        EXPECT_NE(outcome.Err.find("standard input can be read for one thing only"), std::string::npos) << outcome.Err;
    }
}

TEST(GetCommand, ATokenIsNotInTheListOfProcesses) {
    ScriptedServer server({step::expectHead(), step::signal("sent"), step::awaitPeerEnd()});
    const Program program({"get", "-H", "Authorization: Bearer tok", "-H", "Accept: text/html", server.url()});
    server.waitFor("sent");
    const std::string words = program.commandLine();
    EXPECT_EQ(words.find("tok"), std::string::npos) << words;
    EXPECT_NE(words.find("Accept: text/html"), std::string::npos) << words;
}

TEST(GetCommand, FieldsAreAddedReplacedAndRemoved) {
    ScriptedServer server(answer(response("")));
    const Outcome outcome = run({"get", server.url(), "-H", "X-One: 1", "-H", "X-One: 2", "-H", "User-Agent: me/2",
                                 "--field", "Cookie: a=1", "-H", "Accept: text/plain", "--remove-field", "Accept"});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    const std::string head = server.waitUntilDone().Heads.at(0);
    std::vector<std::string> ones;
    for (const auto& [name, value] : fieldLines(head)) {
        if (name == "X-One") {
            ones.push_back(value);
        }
    }
    EXPECT_EQ(ones, (std::vector<std::string>{"1", "2"}));
    EXPECT_EQ(fieldValue(head, "User-Agent"), "me/2");
    EXPECT_EQ(fieldValue(head, "Cookie").value_or("").find("a=1"), 0u);
    EXPECT_EQ(fieldValue(head, "Accept"), std::nullopt);
}

TEST(GetCommand, TheHeadIsIncludedWhereAsked) {
    ScriptedServer server(answer("HTTP/1.1 203 Not Quite\r\nX-A: 1\r\nX-B:\r\nContent-Length: 2\r\n\r\nok"));
    const Outcome outcome = run({"get", "-i", server.url()});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(outcome.Out, "HTTP/1.1 203 Not Quite\r\nX-A: 1\r\nX-B: \r\nContent-Length: 2\r\n\r\nok");
}

TEST(GetCommand, ContentGoesIntoAFileWhereAsked) {
    const TemporaryFolder folder;
    writeFile(folder.file("out"), "old");
    ScriptedServer server(answer(response("new", {"X-A: 1"})));
    const Outcome outcome = run({"get", "-i", "-o", folder.file("out"), server.url()});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(outcome.Out, "");
    EXPECT_EQ(readFile(folder.file("out")), "HTTP/1.1 200 OK\r\nX-A: 1\r\nContent-Length: 3\r\n\r\nnew");
}

TEST(GetCommand, ADeviceIsWrittenToAndNotReplaced) {
    ScriptedServer server(answer(response("gone")));
    const Outcome outcome = run({"get", "-o", "/dev/null", server.url()});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(access("/dev/null", W_OK), 0);
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
}

TEST(GetCommand, AStatusIsNoFailureUnlessAsked) {
    for (const bool fail : {false, true}) {
        ScriptedServer server(answer(response("sorry", {}, "404 Not Found")));
        std::vector<std::string> arguments = {"get", server.url("/missing")};
        if (fail) {
            arguments.push_back("--fail");
        }
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.Status, fail ? 22 : 0) << outcome.Err;
        EXPECT_EQ(outcome.Out, fail ? "" : "sorry");
        if (fail) {
            EXPECT_EQ(outcome.Err, "netrove: NETROVE:cli:StatusError: the server answered 404 Not Found for " +
                                       server.url("/missing") + "\n");
        }
    }
}

TEST(GetCommand, TheOlderInterfaceFailsOutsideTwoHundred) {
    for (const std::string status : {"404 Not Found", "304 Not Modified"}) {
        ScriptedServer server(answer("HTTP/1.1 " + status + "\r\nContent-Length: 0\r\n\r\n"));
        const Outcome outcome = run({"get", "--simple", server.url()});
        EXPECT_EQ(outcome.Status, 22) << outcome.Err;
        EXPECT_EQ(outcome.Err.find("netrove: VANTIK:webservices:StatusError: "), 0u) << outcome.Err;
    }
    ScriptedServer server(answer(response("fine")));
    EXPECT_EQ(run({"get", "--simple", server.url()}).Out, "fine");
}

TEST(GetCommand, CompressedContentIsDecodedUnlessAskedNotTo) {
    // "hello\n" as gzip
    const std::string packed("\x1f\x8b\x08\x00\x00\x00\x00\x00\x00\x03\xcb\x48\xcd\xc9\xc9\xe7\x02\x00\x20\x30\x3a\x36"
                             "\x06\x00\x00\x00",
                             26);
    for (const bool decode : {true, false}) {
        ScriptedServer server(answer(response(packed, {"Content-Encoding: gzip"})));
        std::vector<std::string> arguments = {"get", server.url()};
        if (!decode) {
            arguments.push_back("--no-decode");
        }
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.Status, 0) << outcome.Err;
        EXPECT_EQ(outcome.Out, decode ? "hello\n" : packed);
    }
}

TEST(GetCommand, ContentThatCannotBeDecodedIsItsOwnFailure) {
    ScriptedServer server(answer(response("this is no gzip at all", {"Content-Encoding: gzip"})));
    const Outcome outcome = run({"get", server.url()});
    EXPECT_EQ(outcome.Status, 61) << outcome.Err;
    EXPECT_EQ(outcome.Err.find("netrove: VANTIK:webservices:DecodingError: "), 0u) << outcome.Err;
}

TEST(GetCommand, AClosedPipeIsAWriteFailure) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    ScriptedServer server(answer(response(patternedBytes(100'000))));
    Surroundings around;
    around.OutDescriptor = ends[1];
    const Outcome outcome = run({"get", server.url()}, around);
    close(ends[1]);
    EXPECT_EQ(outcome.Status, 23) << outcome.Err;
    EXPECT_EQ(outcome.Err, "netrove: NETROVE:cli:FileNotWritten: standard output: Broken pipe\n");
}

TEST(GetCommand, AFullDiskIsAWriteFailure) {
    ScriptedServer server(answer(response("x")));
    const Outcome outcome = run({"get", "-o", "/dev/full", server.url()});
    EXPECT_EQ(outcome.Status, 23) << outcome.Err;
    EXPECT_EQ(outcome.Err, "netrove: NETROVE:cli:FileNotWritten: /dev/full: No space left on device\n");
}

TEST(GetCommand, TheTraceGoesToStandardErrorAndSaysThatItShowsCredentials) {
    ScriptedServer server(answer(response("body")));
    const Outcome outcome = run({"get", "-v", "-H", "Authorization: Bearer token99", server.url()});
    EXPECT_EQ(outcome.Status, 0);
    EXPECT_EQ(outcome.Out, "body");
    EXPECT_EQ(outcome.Err.find("netrove: note: the trace shows credentials"), 0u) << outcome.Err;
    EXPECT_NE(outcome.Err.find("Authorization: Bearer token99"), std::string::npos);
    EXPECT_NE(outcome.Err.find("IN  HDR: HTTP/1.1 200 OK"), std::string::npos);
    EXPECT_NE(outcome.Err.find("DESTROYING HTTPCONNECTION"), std::string::npos);
}

TEST(GetCommand, AnotherConnectionIsNeverMadeForOneRequest) {
    ScriptedServer server(answer(response("x")));
    run({"get", server.url()});
    EXPECT_EQ(server.connectionCount(), 1u);
}

} // namespace
