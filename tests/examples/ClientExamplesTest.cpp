// The examples on netrove::Client: what they do, what they print where it goes wrong, and how short they are.
#include "tests/docs/Page.h"
#include "tests/examples/ExampleRun.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/UnreachablePorts.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace {

using namespace testsupport;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kUnknownHost = "http://no-such-host.invalid/";
const std::string kMissing = response("nothing here", {}, "404 Not Found");

// The server closes in the middle of the content, as often as it is asked.
const Script kCut = {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\npart"),
                     step::close()};

std::string hostOf(const std::string& url) {
    return url.substr(url.find("//") + 2, url.rfind('/') - url.find("//") - 2);
}

class ClientExamples : public testing::Test {
protected:
    const TemporaryFolder Folder;
    const RefusingPort Dead;

    // Runs each of the four that take a URL, and expects one line that says this.
    void expectEachSays(const std::string& url, const testing::Matcher<std::string>& text) const {
        writeFile(Folder.file("picture"), "[picture]");
        const std::map<std::string, Words> examples = {{"download", {url, Folder.file("saved")}},
                                                       {"upload", {url}},
                                                       {"form", {url, "A title", Folder.file("picture")}},
                                                       {"login", {url, "me", "secret"}}};
        for (const auto& [example, arguments] : examples) {
            const Outcome outcome = runExample(example, arguments);
            EXPECT_EQ(outcome.Status, 1) << example;
            EXPECT_EQ(outcome.Out, "") << example;
            EXPECT_THAT(outcome.Err, text) << example;
            EXPECT_EQ(std::ranges::count(outcome.Err, '\n'), 1) << outcome.Err;
        }
        EXPECT_FALSE(std::filesystem::exists(Folder.file("saved")));
    }
};

} // namespace

TEST_F(ClientExamples, DownloadSavesAFileAndCounts) {
    const std::string body = patternedBytes(300'000);
    const Outcome outcome = runExample("download", answering(response(body)), {Folder.file("saved")});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(difference(readFile(Folder.file("saved")), body), "");
    EXPECT_THAT(outcome.Err,
                testing::EndsWith("300000 of 300000 bytes\r" + Folder.file("saved") + ": 300000 bytes saved\n"));
}

// The first part is more than the client lets wait, so it has been saved when the end is seen.
TEST_F(ClientExamples, DownloadGoesOnWhereAnEarlierOneBrokeOff) {
    const std::string body = patternedBytes(1'000'000);
    constexpr std::size_t kFirst = 900'000;
    ScriptedServer server(
        {{step::expectHead(),
          step::send("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\nETag: \"one\"\r\n\r\n" + body.substr(0, kFirst)),
          step::close()},
         {step::expectHead(), step::send(kMissing), step::awaitPeerEnd()},
         {step::expectHead(),
          step::send("HTTP/1.1 206 Partial Content\r\nContent-Length: 100000\r\nContent-Range: bytes "
                     "900000-999999/1000000\r\nETag: \"one\"\r\n\r\n" +
                     body.substr(kFirst)),
          step::awaitPeerEnd()}});
    const Words arguments = {server.url(), Folder.file("saved")};
    EXPECT_EQ(runExample("download", arguments).Status, 1);
    EXPECT_FALSE(std::filesystem::exists(Folder.file("saved")));
    const Outcome second = runExample("download", arguments);
    EXPECT_EQ(second.Status, 0) << second.Err;
    EXPECT_EQ(fieldValue(server.waitUntilDone(2).Heads.at(0), "Range"), "bytes=900000-");
    EXPECT_EQ(difference(readFile(Folder.file("saved")), body), "");
    EXPECT_THAT(second.Err, testing::EndsWith(": 1000000 bytes saved\n"));
}

TEST_F(ClientExamples, DownloadSaysHowMuchIsMissing) {
    ScriptedServer server({kCut, kCut, kCut});
    const Outcome outcome = runExample("download", Words{server.url(), Folder.file("saved")});
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_THAT(outcome.Err, AllOf(HasSubstr("incomplete"), HasSubstr("4 of 1000 bytes")));
    EXPECT_FALSE(std::filesystem::exists(Folder.file("saved")));
}

TEST_F(ClientExamples, DownloadNamesAFolderThatIsNotThere) {
    const Outcome outcome = runExample("download", Words{Dead.url(), Folder.file("none/saved")});
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_THAT(outcome.Err, AllOf(HasSubstr(Folder.file("none/saved")), HasSubstr("No such file or directory")));
}

TEST_F(ClientExamples, UploadSendsTheWholeTableAgainAfterARedirect) {
    std::string table;
    for (std::int64_t line = 0; line < 100'000; ++line) {
        table += std::to_string(line) + "," + std::to_string(line * line) + "\n";
    }
    const auto taking = [](const std::string& answer) {
        return Script{step::expectHead(), step::expectChunkedBody(), step::send(answer), step::awaitPeerEnd()};
    };
    const ScriptedServer there(taking(response("taken\n")));
    const ScriptedServer here(taking(response("", {"Location: " + there.url("/there")}, "307 Temporary Redirect")));
    const Outcome outcome = runExample("upload", Words{here.url("/here")});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(outcome.Out, "taken\n");
    EXPECT_EQ(startLine(there.waitUntilDone().Heads.at(0)), "PUT /there HTTP/1.1");
    EXPECT_EQ(fieldValue(there.waitUntilDone().Heads.at(0), "Content-Type"), "text/csv");
    EXPECT_EQ(difference(there.waitUntilDone().Bodies.at(0), table), "");
}

TEST_F(ClientExamples, FormSendsATitleAndAFile) {
    writeFile(Folder.file("picture.png"), "[picture]");
    const Words content = {"\u00C9t\u00E9 \u00E0 Paris", Folder.file("picture.png")};
    // A first run, which comes to nothing, for the length that the server is to read.
    const ExampleExchange closed = runExample("form", {step::expectHead(), step::close()}, content);
    EXPECT_EQ(closed.Status, 1);
    const std::size_t length = std::stoul(fieldValue(closed.Seen.Heads.at(0), "Content-Length").value_or("none"));

    const ExampleExchange sent = runExample(
        "form", {step::expectHead(), step::expectBody(length), step::send(response("thanks\n")), step::awaitPeerEnd()},
        content, "/form");
    EXPECT_EQ(sent.Status, 0) << sent.Err;
    EXPECT_EQ(sent.Out, "thanks\n");
    EXPECT_EQ(startLine(sent.Seen.Heads.at(0)), "POST /form HTTP/1.1");
    EXPECT_THAT(fieldValue(sent.Seen.Heads.at(0), "Content-Type").value_or(""), StartsWith("multipart/form-data"));
    EXPECT_THAT(sent.Seen.Bodies.at(0),
                AllOf(HasSubstr("name=\"title\"\r\n\r\n" + content[0] + "\r\n"),
                      HasSubstr("name=\"photo\"; filename=\"picture.png\"\r\n"), HasSubstr("\r\n\r\n[picture]\r\n")));
}

TEST_F(ClientExamples, FormNamesAFileThatIsNotThere) {
    const Outcome outcome = runExample("form", Words{Dead.url(), "A title", Folder.file("none")});
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_THAT(outcome.Err, AllOf(HasSubstr(Folder.file("none")), HasSubstr("No such file or directory")));
}

TEST_F(ClientExamples, LoginTellsARefusedOneFromOtherFailures) {
    const std::string asking = response("", {"WWW-Authenticate: Basic realm=\"test\""}, "401 Unauthorized");
    const ExampleExchange accepted = runExample("login",
                                                {step::expectHead(), step::send(asking), step::expectHead(),
                                                 step::send(response("welcome\n")), step::awaitPeerEnd()},
                                                {"me", "pw"});
    EXPECT_EQ(accepted.Status, 0) << accepted.Err;
    EXPECT_EQ(accepted.Out, "welcome\n");
    EXPECT_EQ(fieldValue(accepted.Seen.Heads.at(1), "Authorization"), "Basic bWU6cHc=");

    const ExampleExchange refused = runExample(
        "login", {step::expectHead(), step::send(asking), step::expectHead(), step::send(asking), step::awaitPeerEnd()},
        {"me", "pw"});
    EXPECT_EQ(refused.Status, 1);
    EXPECT_THAT(refused.Err, AllOf(StartsWith("user name or password is wrong: "), HasSubstr("401")));

    const ExampleExchange missing = runExample("login", answering(kMissing), {"me", "pw"});
    EXPECT_EQ(missing.Status, 1);
    EXPECT_THAT(missing.Err, AllOf(StartsWith("the server answered 404 Not Found"), HasSubstr("/")));
}

TEST_F(ClientExamples, EachNamesWhoCouldNotBeReached) {
    expectEachSays(Dead.url(), AllOf(StartsWith("no connection to "), HasSubstr(hostOf(Dead.url()))));
    expectEachSays(kUnknownHost, "no such host: no-such-host.invalid\n");
    expectEachSays("example.org", HasSubstr("no protocol"));
}

TEST_F(ClientExamples, ManyTellsFailuresApart) {
    constexpr int kGood = 94;
    const auto answeringOnce = [](const std::string& bytes) { // so that no connection is used twice
        return Script{step::expectHead(), step::send(bytes), step::close()};
    };
    const ScriptedServer good(std::vector<Script>(kGood, answeringOnce(response("12345", {"Connection: close"}))));
    const ScriptedServer missing(
        std::vector<Script>(2, answeringOnce(response("", {"Connection: close"}, "404 Not Found"))));
    const ScriptedServer cut({kCut, kCut, kCut});
    std::string urls;
    for (int index = 0; index < kGood; ++index) {
        urls += good.url("/" + std::to_string(index)) + "\n";
    }
    for (const std::string& url : {missing.url("/a"), missing.url("/b"), cut.url(), Dead.url(),
                                   std::string(kUnknownHost), std::string("example.org")}) {
        urls += url + "\n";
    }
    const Outcome outcome = runExample("many", Words{}, {.Input = urls});
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_EQ(outcome.Err, "connect: 1\ncontent: 1\ngot: 94\nname: 1\nstatus: 2\nurl: 1\n");
    EXPECT_EQ(std::ranges::count(outcome.Out, '\n'), 100) << outcome.Out;
    EXPECT_THAT(outcome.Out, HasSubstr(good.url("/0") + ": 5 bytes\n"));
    EXPECT_THAT(outcome.Out, HasSubstr(missing.url("/a") + ": the server answered 404 Not Found"));
    EXPECT_THAT(outcome.Out, HasSubstr(std::string(kUnknownHost) + ": no such host"));
}

TEST_F(ClientExamples, WrongUsageIsShown) {
    for (const char* example : {"download", "upload", "form", "login"}) {
        const Outcome outcome = runExample(example, Words{});
        EXPECT_EQ(outcome.Status, 2);
        EXPECT_THAT(outcome.Err, StartsWith(std::string("usage: ") + example + " URL"));
    }
}

TEST_F(ClientExamples, EachTakesTwelveLinesAtMostAndNoHeaderOfAnotherLibrary) {
    const auto examples = docstest::sourcesIn("examples", ".cpp");
    EXPECT_EQ(examples.size(), 5u);
    for (const std::string& example : examples) {
        const std::string text = docstest::source(example);
        const std::string body = docstest::matches(text, R"(\nint main\([^)]*\) \{\n((?:[ \n].*\n|\n)*)\}\n)").at(0);
        EXPECT_LE(std::ranges::count(body, '\n'), 12) << example;
        for (const std::string& header : docstest::matches(text, "#include <([^>]+)>")) {
            EXPECT_TRUE(header.starts_with("netrove/") || header.find_first_of("./") == header.npos) << example;
        }
    }
}
