// The examples that receive content: into memory, into a file, line by line.
#include "tests/examples/ExampleRun.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/UnreachablePorts.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

using namespace testsupport;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kRefused = "VANTIK:webservices:ConnectionRefused: ";
constexpr const char* kCutOff = "VANTIK:webservices:PartialFileWarning: ";

Script answering(const std::string& bytes) {
    return {step::expectHead(), step::send(bytes), step::awaitPeerEnd()};
}

// The server closes in the middle of the content.
Script cutting(const std::string& part) {
    return {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n" + part), step::close()};
}

TEST(GetToMemory, PrintsTheContent) {
    const std::string body = patternedBytes(100'000);
    ScriptedServer server(answering(response(body)));
    const Outcome outcome = runExample("get_to_memory", {server.url("/path")});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(difference(outcome.Out, body), "");
    EXPECT_EQ(outcome.Err, "");
    EXPECT_EQ(startLine(server.waitUntilDone().Heads.at(0)), "GET /path HTTP/1.1");
}

TEST(GetToMemory, StatusOfAnErrorIsOne) {
    ScriptedServer server(answering(response("nothing here", {}, "404 Not Found")));
    const Outcome outcome = runExample("get_to_memory", {server.url()});
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_EQ(outcome.Out, "nothing here");
    EXPECT_EQ(outcome.Err, "the server answered 404\n");
}

TEST(GetToMemory, RefusedConnectionIsNamed) {
    const RefusingPort port;
    const Outcome outcome = runExample("get_to_memory", {port.url()});
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_EQ(outcome.Out, "");
    EXPECT_THAT(outcome.Err, StartsWith(kRefused));
}

TEST(GetToMemory, ContentThatWasCutOffIsNoContent) {
    ScriptedServer server(cutting("part"));
    const Outcome outcome = runExample("get_to_memory", {server.url()});
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_EQ(outcome.Out, "");
    EXPECT_THAT(outcome.Err, StartsWith(kCutOff));
}

class SaveWithProgress : public testing::Test {
protected:
    std::string target() const { return Folder.file("saved"); }
    std::vector<std::string> names() const {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(Folder.path())) {
            found.push_back(entry.path().filename().string());
        }
        return found;
    }
    // What was there before stays as it was, and nothing else is there.
    void expectOldFileOnly() const {
        EXPECT_EQ(names(), std::vector<std::string>{"saved"});
        EXPECT_EQ(readFile(target()), "old");
    }

    TemporaryFolder Folder;
};

TEST_F(SaveWithProgress, TheFileHoldsTheContentAndTheLastCountIsItsLength) {
    writeFile(target(), "old");
    const std::string body = patternedBytes(300'000);
    ScriptedServer server(answering(response(body)));
    const Outcome outcome = runExample("save_with_progress", {server.url(), target()});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(difference(readFile(target()), body), "");
    EXPECT_EQ(names(), std::vector<std::string>{"saved"});
    EXPECT_THAT(outcome.Err, testing::EndsWith("300000 of 300000 bytes\r\n"));
}

TEST_F(SaveWithProgress, WithoutALengthTheTotalIsUnknown) {
    ScriptedServer server(
        answering("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + chunked("content in chunks", 4)));
    const Outcome outcome = runExample("save_with_progress", {server.url(), target()});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(readFile(target()), "content in chunks");
    EXPECT_THAT(outcome.Err, HasSubstr("17 of unknown bytes\r"));
}

TEST_F(SaveWithProgress, EmptyContentIsAnEmptyFile) {
    ScriptedServer server(answering(response("")));
    EXPECT_EQ(runExample("save_with_progress", {server.url(), target()}).Status, 0);
    EXPECT_EQ(readFile(target()), "");
}

TEST_F(SaveWithProgress, ContentThatWasCutOffLeavesTheOldFile) {
    writeFile(target(), "old");
    ScriptedServer server(cutting(patternedBytes(100)));
    const Outcome outcome = runExample("save_with_progress", {server.url(), target()});
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_THAT(outcome.Err, HasSubstr(kCutOff));
    expectOldFileOnly();
}

TEST_F(SaveWithProgress, AnErrorPageIsNotSaved) {
    writeFile(target(), "old");
    ScriptedServer server(answering(response("sorry", {}, "503 Service Unavailable")));
    const Outcome outcome = runExample("save_with_progress", {server.url(), target()});
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_EQ(outcome.Err, "the server answered 503\n");
    expectOldFileOnly();
}

TEST_F(SaveWithProgress, RefusedConnectionLeavesTheOldFile) {
    writeFile(target(), "old");
    const RefusingPort port;
    const Outcome outcome = runExample("save_with_progress", {port.url(), target()});
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_THAT(outcome.Err, StartsWith(kRefused));
    expectOldFileOnly();
}

TEST_F(SaveWithProgress, AFolderThatIsNotThereIsNamed) {
    ScriptedServer server(answering(response("content")));
    const Outcome outcome = runExample("save_with_progress", {server.url(), Folder.file("none/saved")});
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_THAT(outcome.Err, StartsWith("VANTIK:webservices:InvalidFilename: "));
    EXPECT_THAT(outcome.Err, HasSubstr("none/saved.part"));
}

constexpr const char* kLines = "{\"level\":\"info\",\"n\":1}\n\n{\"n\":2}\n{\"level\":\"error\",\"n\":3}\n";
constexpr const char* kFound = "{\"level\":\"error\",\"n\":3}\n";

// The rest never comes: who waits for it would not end.
TEST(StreamJsonLines, StopsAtTheLineThatItLooksFor) {
    ScriptedServer server({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n"),
                           step::send(kLines), step::awaitPeerEnd()},
                          Pace::SingleBytes);
    const Outcome outcome = runExample("stream_json_lines", {server.url(), "level", "error"});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(outcome.Out, kFound);
    EXPECT_EQ(outcome.Err, "") << "stopping early is no failure";
    EXPECT_TRUE(server.waitUntilDone().PeerEnded);
}

TEST(StreamJsonLines, LinesBehindTheOneFoundInTheSamePieceAreNotLookedAt) {
    ScriptedServer server(answering(response(std::string(kLines) + "no JSON\n")));
    const Outcome outcome = runExample("stream_json_lines", {server.url(), "level", "error"});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(outcome.Out, kFound);
}

TEST(StreamJsonLines, NothingFoundIsOne) {
    ScriptedServer server(answering(response(kLines)));
    const Outcome outcome = runExample("stream_json_lines", {server.url(), "level", "fatal"});
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_EQ(outcome.Out + outcome.Err, "");
}

TEST(StreamJsonLines, LongContentAndALastLineWithoutItsEnd) {
    std::string content;
    while (content.size() < 200'000) {
        content += "{\"level\":\"info\",\"text\":\"" + std::string(997, 'x') + "\"}\n";
    }
    ScriptedServer server(answering(response(content + "{\"level\":\"error\"}")));
    const Outcome outcome = runExample("stream_json_lines", {server.url(), "level", "error"});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(outcome.Out, "{\"level\":\"error\"}\n");
}

TEST(StreamJsonLines, ALineThatIsNoJsonFails) {
    ScriptedServer server(answering(response("{\"level\":\"info\"}\nnot JSON\n")));
    const Outcome outcome = runExample("stream_json_lines", {server.url(), "level", "error"});
    EXPECT_EQ(outcome.Status, 2);
    EXPECT_THAT(outcome.Err, HasSubstr("parse error")) << "what the consumer threw";
}

TEST(StreamJsonLines, ContentThatWasCutOffFails) {
    ScriptedServer server(cutting(kLines));
    const Outcome outcome = runExample("stream_json_lines", {server.url(), "level", "fatal"});
    EXPECT_EQ(outcome.Status, 2);
    EXPECT_THAT(outcome.Err, StartsWith(kCutOff));
}

TEST(StreamJsonLines, RefusedConnectionIsNamed) {
    const RefusingPort port;
    const Outcome outcome = runExample("stream_json_lines", {port.url(), "level", "error"});
    EXPECT_EQ(outcome.Status, 2);
    EXPECT_THAT(outcome.Err, StartsWith(kRefused));
}

} // namespace
