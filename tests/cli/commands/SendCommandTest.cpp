#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace testsupport;

Script takeBody(std::size_t length, const std::string& text = "done") {
    return {step::expectHead(), step::expectBody(length), step::send(response(text)), step::awaitPeerEnd()};
}

TEST(SendCommand, ABodyFromTheCommandLineIsPosted) {
    ScriptedServer server(takeBody(7));
    const Outcome outcome = run({"send", server.url("/form"), "-d", "a=1", "-d", "b=2"});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(outcome.Out, "done");
    const Record record = server.waitUntilDone();
    EXPECT_EQ(startLine(record.Heads.at(0)), "POST /form HTTP/1.1");
    EXPECT_EQ(fieldValue(record.Heads[0], "Content-Length"), "7");
    EXPECT_EQ(fieldValue(record.Heads[0], "Content-Type"), "application/x-www-form-urlencoded");
    EXPECT_EQ(fieldValue(record.Heads[0], "Transfer-Encoding"), std::nullopt);
    EXPECT_EQ(fieldValue(record.Heads[0], "Expect"), std::nullopt);
    EXPECT_EQ(record.Bodies.at(0), "a=1&b=2");
}

TEST(SendCommand, MethodAndContentTypeAreTheUsers) {
    ScriptedServer server(takeBody(2));
    const Outcome outcome =
        run({"send", "-X", "PATCH", server.url(), "-d", "{}", "-H", "Content-Type: application/json"});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    const Record record = server.waitUntilDone();
    EXPECT_EQ(startLine(record.Heads.at(0)), "PATCH / HTTP/1.1");
    EXPECT_EQ(fieldValue(record.Heads[0], "Content-Type"), "application/json");
}

TEST(SendCommand, AFileIsSentFromMemory) {
    const TemporaryFolder folder;
    const std::string content = patternedBytes(200'000);
    writeFile(folder.file("body"), content);
    ScriptedServer server(takeBody(content.size()));
    const Outcome outcome = run({"send", server.url(), "--body-file", folder.file("body")});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    const Record record = server.waitUntilDone();
    EXPECT_EQ(startLine(record.Heads.at(0)), "POST / HTTP/1.1");
    EXPECT_EQ(fieldValue(record.Heads[0], "Content-Type"), std::nullopt);
    EXPECT_EQ(difference(record.Bodies.at(0), content), "");
}

TEST(SendCommand, AnEmptyBodyIsABody) {
    ScriptedServer server({step::expectHead(), step::send(response("ok")), step::awaitPeerEnd()});
    EXPECT_EQ(run({"send", server.url(), "-d", ""}).Status, 0);
    const Record record = server.waitUntilDone();
    EXPECT_EQ(startLine(record.Heads.at(0)), "POST / HTTP/1.1");
    EXPECT_EQ(fieldValue(record.Heads[0], "Content-Length"), "0");
}

TEST(SendCommand, HeadHasNoContent) {
    ScriptedServer server(
        {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 500\r\n\r\n"), step::awaitPeerEnd()});
    const Outcome outcome = run({"send", "-i", "-X", "HEAD", server.url()});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(outcome.Out, "HTTP/1.1 200 OK\r\nContent-Length: 500\r\n\r\n");
    EXPECT_EQ(startLine(server.waitUntilDone().Heads.at(0)), "HEAD / HTTP/1.1");
}

TEST(SendCommand, AnotherMethodNeedsNoBody) {
    ScriptedServer server({step::expectHead(), step::send(response("bye")), step::awaitPeerEnd()});
    EXPECT_EQ(run({"send", "-X", "DELETE", server.url("/thing")}).Out, "bye");
    EXPECT_EQ(startLine(server.waitUntilDone().Heads.at(0)), "DELETE /thing HTTP/1.1");
}

TEST(SendCommand, TheOlderInterfaceEncodesTheBody) {
    // "Grüße" in ISO 8859-1 has five bytes.
    ScriptedServer server(takeBody(5));
    const Outcome outcome = run({"send", "--simple", server.url(), "-d",
                                 "Gr\xC3\xBC\xC3\x9F"
                                 "e",
                                 "-H", "Content-Type: text/plain; charset=windows-1252"});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    const Record record = server.waitUntilDone();
    EXPECT_EQ(fieldValue(record.Heads.at(0), "Content-Length"), "5");
    EXPECT_EQ(record.Bodies.at(0), "Gr\xFC\xDF"
                                   "e");
}

TEST(SendCommand, ABodyFileThatIsNotThereIsNamed) {
    const Outcome outcome = run({"send", "http://127.0.0.1:1/", "--body-file", "/no/such/file"});
    EXPECT_EQ(outcome.Status, 26);
    EXPECT_EQ(outcome.Err, "netrove: NETROVE:cli:FileNotRead: /no/such/file: No such file or directory\n");
}

TEST(SendCommand, AnEarlyAnswerEndsTheRequest) {
    ScriptedServer server({step::expectHead(),
                           step::send(response("too large", {"Connection: close"}, "413 Too Large")),
                           step::awaitPeerEnd()});
    const TemporaryFolder folder;
    writeFile(folder.file("body"), patternedBytes(5'000'000));
    const Outcome outcome = run({"send", server.url(), "-T", folder.file("body")});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(outcome.Out, "too large");
}

} // namespace
