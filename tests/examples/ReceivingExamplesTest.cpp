// The examples that receive content: into memory, into a file, line by line.
#include "tests/examples/ExampleRun.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {

using namespace testsupport;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kCutOff = "VANTIK:webservices:PartialFileWarning: ";

// The server closes in the middle of the content.
Script cutting(const std::string& part) {
    return {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n" + part), step::close()};
}

TEST(GetToMemory, PrintsTheContent) {
    const std::string body = patternedBytes(100'000);
    const ExampleExchange got = runExample("get_to_memory", answering(response(body)), {}, "/path");
    EXPECT_EQ(got.Status, 0);
    EXPECT_EQ(difference(got.Out, body), "");
    EXPECT_EQ(got.Err, "");
    EXPECT_EQ(startLine(got.Seen.Heads.at(0)), "GET /path HTTP/1.1");
}

TEST(GetToMemory, FailsWithAnErrorPageAndWithContentThatWasCutOff) {
    const Outcome missing = runExample("get_to_memory", answering(response("nothing here", {}, "404 Not Found")));
    EXPECT_EQ(missing.Status, 1);
    EXPECT_EQ(missing.Out, "nothing here");
    EXPECT_EQ(missing.Err, "the server answered 404\n");
    const Outcome cut = runExample("get_to_memory", cutting("part"));
    EXPECT_EQ(cut.Status, 1);
    EXPECT_EQ(cut.Out, "");
    EXPECT_THAT(cut.Err, StartsWith(kCutOff));
}

class SaveWithProgress : public testing::Test {
protected:
    const TemporaryFolder Folder;
    const std::string Target = Folder.file("saved");

    void SetUp() override { writeFile(Target, "old"); }
    // Nothing else is left there, whatever came of it.
    void TearDown() override {
        for (const auto& entry : std::filesystem::directory_iterator(Folder.path())) {
            EXPECT_EQ(entry.path().string(), Target);
        }
    }
    Outcome save(const Script& script) const { return runExample("save_with_progress", script, {Target}); }
};

TEST_F(SaveWithProgress, TheFileHoldsTheContentAndTheLastCountIsItsLength) {
    const std::string body = patternedBytes(300'000);
    const Outcome outcome = save(answering(response(body)));
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(difference(readFile(Target), body), "");
    EXPECT_THAT(outcome.Err, testing::EndsWith("300000 of 300000 bytes\r\n"));
    EXPECT_EQ(save(answering(response(""))).Status, 0);
    EXPECT_EQ(readFile(Target), "");
}

TEST_F(SaveWithProgress, WithoutALengthTheTotalIsUnknown) {
    const Outcome outcome =
        save(answering("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + chunked("content in chunks", 4)));
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(readFile(Target), "content in chunks");
    EXPECT_THAT(outcome.Err, HasSubstr("17 of unknown bytes\r"));
}

TEST_F(SaveWithProgress, AFailureLeavesTheOldFile) {
    const std::pair<Script, testing::Matcher<std::string>> rows[] = {
        {cutting(patternedBytes(100)), HasSubstr(kCutOff)},
        {answering(response("sorry", {}, "503 Service Unavailable")), "the server answered 503\n"},
        {{step::close()}, HasSubstr("VANTIK:webservices:")},
    };
    for (const auto& [script, complaint] : rows) {
        const Outcome outcome = save(script);
        EXPECT_EQ(outcome.Status, 1);
        EXPECT_THAT(outcome.Err, complaint);
        EXPECT_EQ(readFile(Target), "old");
    }
}

TEST_F(SaveWithProgress, AFolderThatIsNotThereIsNamed) {
    const Outcome outcome =
        runExample("save_with_progress", answering(response("content")), {Folder.file("none/saved")});
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_THAT(outcome.Err,
                testing::AllOf(StartsWith("VANTIK:webservices:InvalidFilename: "), HasSubstr("none/saved.part")));
}

constexpr const char* kLines = "{\"level\":\"info\",\"n\":1}\n\n{\"n\":2}\n{\"level\":\"error\",\"n\":3}\n";
constexpr const char* kFound = "{\"level\":\"error\",\"n\":3}\n";

// The rest never comes: who waits for it would not end.
TEST(StreamJsonLines, StopsAtTheLineThatItLooksFor) {
    const ExampleExchange endless =
        runExample("stream_json_lines",
                   {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n"),
                    step::send(kLines), step::awaitPeerEnd()},
                   {"level", "error"}, "/", Pace::SingleBytes);
    // What follows in the same piece is not looked at.
    const ExampleExchange onePiece =
        runExample("stream_json_lines", answering(response(std::string(kLines) + "no JSON\n")), {"level", "error"});
    for (const ExampleExchange& found : {endless, onePiece}) {
        EXPECT_EQ(found.Status, 0);
        EXPECT_EQ(found.Out, kFound);
        EXPECT_EQ(found.Err, "") << "stopping early is not a failure";
        EXPECT_TRUE(found.Seen.PeerEnded);
    }
}

TEST(StreamJsonLines, FindsALastLineWithoutItsEndInLongContent) {
    std::string content;
    while (content.size() < 200'000) {
        content += "{\"level\":\"info\",\"text\":\"" + std::string(997, 'x') + "\"}\n";
    }
    const Outcome outcome =
        runExample("stream_json_lines", answering(response(content + "{\"level\":\"error\"}")), {"level", "error"});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(outcome.Out, "{\"level\":\"error\"}\n");
}

TEST(StreamJsonLines, SaysWhyItFoundNothing) {
    const std::tuple<Script, int, testing::Matcher<std::string>> rows[] = {
        {answering(response(kLines)), 1, ""},
        {answering(response("{\"level\":\"info\"}\nnot JSON\n")), 2, HasSubstr("parse error")}, // the consumer threw
        {cutting(kLines), 2, StartsWith(kCutOff)},
    };
    for (const auto& [script, status, complaint] : rows) {
        const Outcome outcome = runExample("stream_json_lines", script, {"level", "fatal"});
        EXPECT_EQ(outcome.Status, status);
        EXPECT_EQ(outcome.Out, "");
        EXPECT_THAT(outcome.Err, complaint);
    }
}

} // namespace
