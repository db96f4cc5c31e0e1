#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace testsupport;

Script takeBody(std::size_t length) {
    return {step::expectHead(), step::expectBody(length), step::send(response("done")), step::awaitPeerEnd()};
}

Script takeChunks() {
    return {step::expectHead(), step::expectChunkedBody(), step::send(response("done")), step::awaitPeerEnd()};
}

TEST(StreamCommand, AFileIsStreamedWithItsLength) {
    const TemporaryFolder folder;
    const std::string content = patternedBytes(1'000'000);
    writeFile(folder.file("body"), content);
    for (const std::string size : {"16k", "1000", "300k"}) {
        ScriptedServer server(takeBody(content.size()));
        const Outcome outcome = run({"send", server.url(), "-T", folder.file("body"), "--buffer-size", size});
        EXPECT_EQ(outcome.Status, 0) << outcome.Err;
        EXPECT_EQ(outcome.Out, "done");
        const Record record = server.waitUntilDone();
        EXPECT_EQ(startLine(record.Heads.at(0)), "PUT / HTTP/1.1");
        EXPECT_EQ(fieldValue(record.Heads[0], "Content-Length"), "1000000");
        EXPECT_EQ(fieldValue(record.Heads[0], "Transfer-Encoding"), std::nullopt);
        EXPECT_EQ(difference(record.Bodies.at(0), content), "");
    }
}

TEST(StreamCommand, WithoutALengthAFileIsSentInChunks) {
    const TemporaryFolder folder;
    const std::string content = patternedBytes(100'000);
    writeFile(folder.file("body"), content);
    ScriptedServer server(takeChunks());
    const Outcome outcome = run({"send", server.url(), "-T", folder.file("body"), "--chunked"});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    const Record record = server.waitUntilDone();
    EXPECT_EQ(fieldValue(record.Heads.at(0), "Content-Length"), std::nullopt);
    EXPECT_EQ(fieldValue(record.Heads[0], "Transfer-Encoding"), "chunked");
    EXPECT_EQ(difference(record.Bodies.at(0), content), "");
}

TEST(StreamCommand, StandardInputIsStreamedInChunks) {
    const std::string content = patternedBytes(250'000);
    ScriptedServer server(takeChunks());
    Surroundings around;
    around.Input = content;
    const Outcome outcome = run({"send", "-X", "POST", server.url(), "-T", "-"}, around);
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    const Record record = server.waitUntilDone();
    EXPECT_EQ(startLine(record.Heads.at(0)), "POST / HTTP/1.1");
    EXPECT_EQ(difference(record.Bodies.at(0), content), "");
}

TEST(StreamCommand, StandardInputReachesTheServerBeforeItEnds) {
    ScriptedServer server({step::expectHead(), step::expectBody(std::string("5\r\nfirst\r\n").size()),
                           step::signal("first"), step::expectBody(std::string("6\r\nsecond\r\n0\r\n\r\n").size()),
                           step::send(response("done")), step::awaitPeerEnd()});
    Program program({"send", server.url(), "-T", "-"});
    program.type("first");
    server.waitFor("first");
    program.type("second");
    program.closeInput();
    const Outcome outcome = program.wait();
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(outcome.Out, "done");
}

TEST(StreamCommand, AnEmptyFileIsAnEmptyBody) {
    const TemporaryFolder folder;
    writeFile(folder.file("body"), "");
    ScriptedServer server({step::expectHead(), step::send(response("ok")), step::awaitPeerEnd()});
    const Outcome outcome = run({"send", server.url(), "-T", folder.file("body")});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(fieldValue(server.waitUntilDone().Heads.at(0), "Content-Length"), "0");
}

TEST(StreamCommand, ARedirectedFileIsReadAgain) {
    const TemporaryFolder folder;
    const std::string content = patternedBytes(40'000);
    writeFile(folder.file("body"), content);
    ScriptedServer target(takeBody(content.size()));
    ScriptedServer server(
        {step::expectHead(), step::expectBody(content.size()),
         step::send("HTTP/1.1 307 Go\r\nLocation: " + target.url("/b") + "\r\nContent-Length: 0\r\n\r\n"),
         step::awaitPeerEnd()});
    const Outcome outcome = run({"send", "-L", server.url(), "-T", folder.file("body")});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    const Record record = target.waitUntilDone();
    EXPECT_EQ(startLine(record.Heads.at(0)), "PUT /b HTTP/1.1");
    EXPECT_EQ(difference(record.Bodies.at(0), content), "");
}

TEST(StreamCommand, RedirectedStandardInputFailsClearly) {
    ScriptedServer server({step::expectHead(), step::expectChunkedBody(),
                           step::send("HTTP/1.1 307 Go\r\nLocation: /b\r\nContent-Length: 0\r\n\r\n"),
                           step::awaitPeerEnd()});
    Surroundings around;
    around.Input = "some content";
    const Outcome outcome = run({"send", "-L", server.url(), "-T", "-"}, around);
    EXPECT_EQ(outcome.Status, 26) << outcome.Err;
    EXPECT_EQ(outcome.Err.find("netrove: NETROVE:cli:ContentNotRewound: standard input cannot be read a second time"),
              0u)
        << outcome.Err;
}

TEST(StreamCommand, AFileThatIsNotThereIsNamed) {
    const Outcome outcome = run({"send", "http://127.0.0.1:1/", "-T", "/no/such/file"});
    EXPECT_EQ(outcome.Status, 26);
    EXPECT_EQ(outcome.Err, "netrove: NETROVE:cli:FileNotRead: /no/such/file: No such file or directory\n");
}

} // namespace
