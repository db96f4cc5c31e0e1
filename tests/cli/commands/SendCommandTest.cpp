// `send`: bodies from the command line, from memory and streamed.
#include "tests/cli/ProgramFixture.h"

namespace {

using namespace clitest;
using Fields = std::vector<std::pair<std::string, std::optional<std::string>>>; // nothing: it is not there

class SendCommand : public ProgramFixture {
protected:
    Exchanged send(const Script& script, const Words& words, const Surroundings& around = {}) const {
        return runAgainst(script, Words{"send"} + words, around);
    }
    std::string fileWith(const std::string& content) const {
        writeFile(file("body"), content);
        return file("body");
    }
};

struct SendRow {
    const char* Name;
    Words Arguments;
    std::string Body;
    std::string RequestLine;
    Fields Sent;
};

TEST_F(SendCommand, SendsABodyFromMemory) {
    const std::string large = patternedBytes(200'000);
    const SendRow rows[] = {
        {"a form",
         {"URL/form", "-d", "a=1", "-d", "b=2"},
         "a=1&b=2",
         "POST /form",
         {{"Content-Length", "7"},
          {"Content-Type", "application/x-www-form-urlencoded"},
          {"Transfer-Encoding", std::nullopt},
          {"Expect", std::nullopt}}},
        {"the user's method and type",
         {"-X", "PATCH", "URL", "-d", "{}", "-H", "Content-Type: application/json"},
         "{}",
         "PATCH /",
         {{"Content-Type", "application/json"}}},
        {"a file", {"URL", "--body-file", fileWith(large)}, large, "POST /", {{"Content-Type", std::nullopt}}},
        {"an empty body", {"URL", "-d", ""}, "", "POST /", {{"Content-Length", "0"}}},
        {"none", {"-X", "DELETE", "URL/thing"}, "", "DELETE /thing", {}},
        // "Grüße" in ISO 8859-1 has five bytes.
        {"encoded by the older interface",
         {"--simple", "URL", "-d", "Gr\u00FC\u00DFe", "-H", "Content-Type: text/plain; charset=windows-1252"},
         "Gr\xFC\xDF"
         "e",
         "POST /",
         {{"Content-Length", "5"}}},
    };
    for (const SendRow& row : rows) {
        SCOPED_TRACE(row.Name);
        const Exchanged sent = send(takingBody(row.Body.size()), row.Arguments);
        EXPECT_THAT(sent, ended(0, "done"));
        EXPECT_EQ(sent.requestLine(), row.RequestLine + " HTTP/1.1");
        EXPECT_EQ(difference(sent.Seen.Bodies.at(0), row.Body), "");
        for (const auto& [name, value] : row.Sent) {
            EXPECT_EQ(sent.field(name), value) << name;
        }
    }
}

TEST_F(SendCommand, ShowsTheHeadOfAnAnswerToHead) {
    const std::string head = kOk + "Content-Length: 500\r\n\r\n";
    const Exchanged sent = send(answering(head), {"-i", "-X", "HEAD", "URL"});
    EXPECT_THAT(sent, ended(0, head));
    EXPECT_EQ(sent.requestLine(), "HEAD / HTTP/1.1");
}

TEST_F(SendCommand, StreamsAFileWithItsLength) {
    const std::string content = patternedBytes(1'000'000);
    for (const std::string size : {"16k", "1000", "300k"}) {
        const Exchanged sent =
            send(takingBody(content.size()), {"URL", "-T", fileWith(content), "--buffer-size", size});
        EXPECT_EQ(sent.Status, 0) << sent.Err;
        EXPECT_EQ(sent.requestLine(), "PUT / HTTP/1.1");
        EXPECT_EQ(sent.field("Content-Length"), "1000000");
        EXPECT_EQ(sent.field("Transfer-Encoding"), std::nullopt);
        EXPECT_EQ(difference(sent.Seen.Bodies.at(0), content), "");
    }
    EXPECT_EQ(send(takingBody(0), {"URL", "-T", fileWith("")}).field("Content-Length"), "0");
}

TEST_F(SendCommand, StreamsInChunksWhereTheLengthIsUnknown) {
    const std::string content = patternedBytes(250'000);
    const Script chunks = {step::expectHead(), step::expectChunkedBody(), step::send(response("done")),
                           step::awaitPeerEnd()};
    const Exchanged fromFile = send(chunks, {"URL", "-T", fileWith(content), "--chunked"});
    const Exchanged fromInput = send(chunks, {"-X", "POST", "URL", "-T", "-"}, {.Input = content});
    EXPECT_EQ(fromFile.requestLine(), "PUT / HTTP/1.1");
    EXPECT_EQ(fromInput.requestLine(), "POST / HTTP/1.1");
    for (const Exchanged& sent : {fromFile, fromInput}) {
        EXPECT_EQ(sent.Status, 0) << sent.Err;
        EXPECT_EQ(sent.field("Content-Length"), std::nullopt);
        EXPECT_EQ(sent.field("Transfer-Encoding"), "chunked");
        EXPECT_EQ(difference(sent.Seen.Bodies.at(0), content), "");
    }
}

// What the parts are: ContentOfTest.cpp.
TEST_F(SendCommand, StreamsAForm) {
    const std::string content = patternedBytes(100'000);
    const Script chunks = {step::expectHead(), step::expectChunkedBody(), step::send(response("done")),
                           step::awaitPeerEnd()};
    const Exchanged sent = send(chunks, {"URL", "-F", "a=1", "-F", "b=@-;filename=c"}, {.Input = content});
    EXPECT_THAT(sent, ended(0, "done"));
    EXPECT_EQ(sent.requestLine(), "POST / HTTP/1.1");
    const std::string type = sent.field("Content-Type").value_or("");
    const std::string prefix = "multipart/form-data; boundary=";
    ASSERT_THAT(type, StartsWith(prefix));
    const std::string line = "--" + type.substr(prefix.size());
    EXPECT_EQ(
        difference(sent.Seen.Bodies.at(0), line + "\r\nContent-Disposition: form-data; name=\"a\"\r\n\r\n1\r\n" + line +
                                               "\r\nContent-Disposition: form-data; name=\"b\"; filename=\"c\"\r\n"
                                               "Content-Type: application/octet-stream\r\n\r\n" +
                                               content + "\r\n" + line + "--\r\n"),
        "");
}

TEST_F(SendCommand, PassesStandardInputOnBeforeItEnds) {
    ScriptedServer server({step::expectHead(), step::expectBody(std::string("5\r\nfirst\r\n").size()),
                           step::signal("first"), step::expectBody(std::string("6\r\nsecond\r\n0\r\n\r\n").size()),
                           step::send(response("done")), step::awaitPeerEnd()});
    Program program({"send", server.url(), "-T", "-"});
    program.type("first");
    server.waitFor("first");
    program.type("second");
    program.closeInput();
    EXPECT_THAT(program.wait(), ended(0, "done"));
}

TEST_F(SendCommand, ReadsAFileAgainAfterARedirectButNeverStandardInput) {
    const std::string content = patternedBytes(40'000);
    const ScriptedServer target(takingBody(content.size()));
    const auto redirect = [](const std::string& location) {
        return "HTTP/1.1 307 Go\r\nLocation: " + location + "\r\nContent-Length: 0\r\n\r\n";
    };
    const Exchanged sent =
        send(takingBody(content.size(), redirect(target.url("/b"))), {"-L", "URL", "-T", fileWith(content)});
    EXPECT_EQ(sent.Status, 0) << sent.Err;
    const Record record = target.waitUntilDone();
    EXPECT_EQ(startLine(record.Heads.at(0)), "PUT /b HTTP/1.1");
    EXPECT_EQ(difference(record.Bodies.at(0), content), "");

    EXPECT_THAT(
        send({step::expectHead(), step::expectChunkedBody(), step::send(redirect("/b")), step::awaitPeerEnd()},
             {"-L", "URL", "-T", "-"}, {.Input = "some content"}),
        ended(26, _,
              StartsWith("netrove: NETROVE:cli:ContentNotRewound: standard input cannot be read a second time")));
}

TEST_F(SendCommand, NamesABodyThatIsNotThere) {
    for (const Words& option : {Words{"--body-file", "/no/such/file"},
                                {"-T", "/no/such/file"},
                                {"-F", "a=@/no/such/file"},
                                {"-F", "a=</no/such/file"}}) {
        EXPECT_THAT(
            run(Words{"send", "http://127.0.0.1:1/"} + option),
            ended(26, "", "netrove: NETROVE:cli:FileNotRead: cannot read /no/such/file: No such file or directory\n"));
    }
}

} // namespace
