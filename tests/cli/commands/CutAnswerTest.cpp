// Answers that are cut, in every place and in every way: no program takes less than the whole for a success. The exit
// status says so, an old file stays, an upload does not count as stored, no redirect is followed.
#include "tests/exchange/request/TlsServer.h"
#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/Gzip.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace testsupport;
using testing::HasSubstr;
using testing::StartsWith;

using Words = std::vector<std::string>;

const std::string kHead = "HTTP/1.1 200 OK\r\n";
const std::string kHints = "HTTP/1.1 103 Early Hints\r\nLink: </a>\r\n\r\n";
const std::string kMissing = "HTTP/1.1 404 Not Found\r\n";
const std::string kFound = "HTTP/1.1 302 Found\r\n";

struct Row {
    const char* Name;
    std::string Answer;
    int Status; // of the program, where the connection is closed after it
};

void PrintTo(const Row& row, std::ostream* stream) {
    *stream << row.Name;
}

std::string repeated(const std::string& text, int count) {
    std::string result;
    for (int i = 0; i < count; ++i) {
        result += text;
    }
    return result;
}

const Row kRows[] = {
    {"AnInterimHead", kHints, 18},
    {"HalfAnInterimHead", kHints.substr(0, 30), 18},
    {"AnInterimHeadAndGarbage", kHints + "garbage\r\n\r\n", 18},
    {"AnInterimHeadAndHalfAStatusLine", kHints + "HTTP/1.1 2", 18},
    {"ManyInterimHeads", repeated(kHints, 500), 18},
    {"ManyConsents", repeated("HTTP/1.1 100 Continue\r\n\r\n", 500), 1}, // no answer at all
    {"AFloodOfConsents", repeated("HTTP/1.1 100 Continue\r\n\r\n", 20'000), 18},
    {"AFloodOfInterimHeads", repeated(kHints, 20'000), 18},
    {"TheStatusLine", kHead, 18},
    {"HalfAHead", kHead + "Content-Length: 9\r\nX-Mo", 18},
    {"AHeadWithoutItsEnd", kHead + "Content-Length: 9\r\n", 18},
    {"AHead", kHead + "Content-Length: 9\r\n\r\n", 18},
    {"HalfTheContent", kHead + "Content-Length: 9\r\n\r\npart", 18},
    {"HalfAChunk", kHead + "Transfer-Encoding: chunked\r\n\r\n9\r\npart", 18},
    {"ChunksWithoutTheLast", kHead + "Transfer-Encoding: chunked\r\n\r\n4\r\npart\r\n", 18},
    {"HalfTheTrailers", kHead + "Transfer-Encoding: chunked\r\n\r\n4\r\npart\r\n0\r\nX-Sum: 1", 18},
    {"HalfAHeadOfAnError", kMissing + "Content-Le", 18},
    {"HalfTheContentOfAnError", kMissing + "Content-Length: 9\r\n\r\npart", 18},
    {"HalfAHeadAfterAnInterimOne", kHints + kHead + "Content-Le", 18},
};

enum class End { Closed, Reset, Torn };
enum class Commands { Get, Save, Upload, Json, Batch };

using Cut = std::tuple<Row, End, Commands>;

std::string nameOf(const testing::TestParamInfo<Cut>& info) {
    constexpr const char* kEnds[] = {"Closed", "Reset", "Torn"};
    constexpr const char* kCommands[] = {"Get", "Save", "Upload", "Json", "Batch"};
    const auto& [row, end, command] = info.param;
    return row.Name + std::string(kEnds[static_cast<int>(end)]) + kCommands[static_cast<int>(command)];
}

// Plays an answer once to whoever asks.
class CuttingServer {
public:
    CuttingServer(const std::string& answer, End end, const TemporaryFolder& folder) {
        if (end == End::Torn) {
            Tls = std::make_unique<TlsServer>("IP:127.0.0.1", answer, "", TlsEnd::Torn);
            writeFile(folder.file("authority.pem"), Tls->certificate());
            Options = {"--ca-file", folder.file("authority.pem")};
            Url = "https://" + Tls->authority() + "/p";
            return;
        }
        Plain = std::make_unique<ScriptedServer>(
            Script{step::expectHead(), step::send(answer), end == End::Reset ? step::reset() : step::close()});
        Url = Plain->url("/p");
    }

    std::string Url;
    Words Options; // that the program needs for it

private:
    std::unique_ptr<TlsServer> Tls;
    std::unique_ptr<ScriptedServer> Plain;
};

class CutAnswer : public testing::TestWithParam<Cut> {
protected:
    TemporaryFolder Folder;
    TemporaryFolder Elsewhere;

    Words names() const {
        Words result;
        for (const auto& entry : std::filesystem::directory_iterator(Folder.path())) {
            result.push_back(entry.path().filename().string());
        }
        std::sort(result.begin(), result.end());
        return result;
    }
    Words commandFor(Commands command, const std::string& url) const {
        switch (command) {
        case Commands::Get:
            return {"get", url};
        case Commands::Save:
            return {"save", "--force", url, "old"};
        case Commands::Upload:
            return {"send", url, "-X", "PUT", "-d", "content"};
        case Commands::Json:
            return {"send", "--json", "--json-errors", url};
        case Commands::Batch:
            writeFile(Elsewhere.file("list"), url + " old\n");
            return {"batch", Elsewhere.file("list"), "--force", "--no-fail"};
        }
        return {};
    }
};

TEST_P(CutAnswer, IsAFailureAndLeavesNothing) {
    const auto& [row, end, command] = GetParam();
    writeFile(Folder.file("old"), "old");
    const CuttingServer server(row.Answer, end, Elsewhere);
    Words words = commandFor(command, server.Url);
    words.insert(words.end(), server.Options.begin(), server.Options.end());
    const Outcome outcome = run(words, {.Folder = Folder.path()});
    // A connection that breaks may take with it what came before.
    if (end == End::Closed) {
        EXPECT_EQ(outcome.Status, row.Status) << outcome.Err << outcome.Out;
    } else {
        EXPECT_THAT(outcome.Status, testing::AnyOf(row.Status, 7)) << outcome.Err << outcome.Out;
    }
    EXPECT_EQ(readFile(Folder.file("old")), "old");
    EXPECT_EQ(names(), Words{"old"});
    if (command == Commands::Batch) {
        const auto result = nlohmann::json::parse(outcome.Out);
        EXPECT_EQ(result["result"], "failed");
        EXPECT_EQ(result["exit"], outcome.Status);
        EXPECT_THAT(readFile(Elsewhere.file("list.journal")), testing::Not(HasSubstr("\"done\"")));
    } else if (command == Commands::Json) {
        EXPECT_EQ(outcome.Out, "");
        EXPECT_EQ(nlohmann::json::parse(outcome.Err)["exit"], outcome.Status);
    }
}

INSTANTIATE_TEST_SUITE_P(Table, CutAnswer,
                         testing::Combine(testing::ValuesIn(kRows), testing::Values(End::Closed, End::Reset, End::Torn),
                                          testing::Values(Commands::Get, Commands::Save, Commands::Upload,
                                                          Commands::Json, Commands::Batch)),
                         nameOf);

// Where a cut answer says to go is nowhere to go to.
TEST(CutRedirect, IsNotFollowed) {
    for (const End end : {End::Closed, End::Reset, End::Torn}) {
        const TemporaryFolder folder;
        const ScriptedServer target(Script{step::expectHead(), step::send(response("there")), step::close()});
        const std::string location = "Location: " + target.url("/there");
        for (const std::string& answer : {kFound + location, kFound + location + "\r\n",
                                          kFound + location.substr(0, location.size() - 2), kFound}) {
            const CuttingServer server(answer, end, folder);
            Words words = {"save", server.Url, folder.file("file")};
            words.insert(words.end(), server.Options.begin(), server.Options.end());
            const Outcome outcome = run(words);
            EXPECT_THAT(outcome.Status, testing::AnyOf(18, 7)) << outcome.Err;
            EXPECT_FALSE(std::filesystem::exists(folder.file("file")));
        }
        EXPECT_EQ(target.connectionCount(), 0u);
    }
}

TEST(CutHead, OfAnAnswerWithoutContentIsAFailureToo) {
    for (const std::string& answer : {kHints, kHead, kHead + "Content-Length: 9\r\n", kMissing + "X: 1\r\n"}) {
        const ScriptedServer server(Script{step::expectHead(), step::send(answer), step::close()});
        EXPECT_EQ(run({"send", "-X", "HEAD", server.url()}).Status, 18) << answer;
    }
}

// The next attempt is one, and what it brings is kept.
TEST(CutHead, IsTriedAgainByABatch) {
    const TemporaryFolder folder;
    const ScriptedServer server(
        std::vector<Script>{{step::expectHead(), step::send(kHints), step::close()},
                            {step::expectHead(), step::send(kHead + "Content-Le"), step::close()},
                            {step::expectHead(), step::send(response("whole")), step::awaitPeerEnd()}});
    writeFile(folder.file("list"), server.url() + " file\n");
    const Outcome outcome = run({"batch", "list", "--retry", "2", "--retry-wait", "0.01"}, {.Folder = folder.path()});
    EXPECT_EQ(outcome.Status, 0) << outcome.Out << outcome.Err;
    EXPECT_EQ(nlohmann::json::parse(outcome.Out)["attempts"], 3);
    EXPECT_EQ(readFile(folder.file("file")), "whole");
}

// A frame of HTTP/2 (RFC 9113, section 4.1).
std::string frame(char type, char flags, char stream, const std::string& payload) {
    const auto length = payload.size();
    return std::string{static_cast<char>(length >> 16),
                       static_cast<char>(length >> 8),
                       static_cast<char>(length),
                       type,
                       flags,
                       0,
                       0,
                       0,
                       stream} +
           payload;
}
// The field :status, which is number 8 of the static table, with its value as it stands (RFC 7541, section 6.2.2).
std::string statusField(const std::string& status) {
    return std::string("\x08\x03") + status;
}
const std::string kFrames = frame(4, 0, 0, ""); // SETTINGS, as every server begins
constexpr char kEndHeaders = 4;

struct FrameRow {
    const char* Name;
    std::string Frames;
};

const FrameRow kFrameRows[] = {
    {"an interim head", frame(1, kEndHeaders, 1, statusField("103"))},
    {"many interim heads", repeated(frame(1, kEndHeaders, 1, statusField("103")), 100)},
    {"half a head", frame(1, 0, 1, statusField("200"))},
    {"a head", frame(1, kEndHeaders, 1, statusField("200"))},
    {"half the content", frame(1, kEndHeaders, 1, statusField("200")) + frame(0, 0, 1, "part")},
    {"a head of an error", frame(1, kEndHeaders, 1, statusField("404"))},
    {"half the content of an error", frame(1, kEndHeaders, 1, statusField("404")) + frame(0, 0, 1, "part")},
};

TEST(CutFrames, AreAFailureAndLeaveNothing) {
    for (const FrameRow& row : kFrameRows) {
        for (const TlsEnd end : {TlsEnd::Told, TlsEnd::Torn}) {
            const TemporaryFolder folder;
            const TlsServer server("IP:127.0.0.1", kFrames + row.Frames, "", end, "h2");
            writeFile(folder.file("authority.pem"), server.certificate());
            writeFile(folder.file("old"), "old");
            const std::string url = "https://" + server.authority() + "/";
            for (const Words& words : {Words{"save", "--force", url, folder.file("old")},
                                       Words{"send", "-d", "content", url}, Words{"send", "--json", url}}) {
                Words all = words;
                all.insert(all.end(), {"--ca-file", folder.file("authority.pem")});
                const Outcome outcome = run(all);
                EXPECT_THAT(outcome.Status, testing::AnyOf(18, 1)) << row.Name << outcome.Err << outcome.Out;
                EXPECT_EQ(readFile(folder.file("old")), "old");
            }
        }
    }
}

TEST(CutFrames, AsAWholeAreAnAnswer) {
    const TemporaryFolder folder;
    const std::string end = frame(0, 1, 1, "whole");
    const TlsServer server("IP:127.0.0.1",
                           kFrames + frame(1, kEndHeaders, 1, statusField("103")) +
                               frame(1, kEndHeaders, 1, statusField("200")) + end,
                           "", TlsEnd::Told, "h2");
    writeFile(folder.file("authority.pem"), server.certificate());
    const Outcome outcome =
        run({"get", "https://" + server.authority() + "/", "--ca-file", folder.file("authority.pem")});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(outcome.Out, "whole");
}

TEST(InterimHead, AndSilenceIsATimeout) {
    const ScriptedServer server(Script{step::expectHead(), step::send(kHints), step::awaitPeerEnd()});
    const Outcome outcome = run({"get", "--response-timeout", "300", server.url()});
    EXPECT_EQ(outcome.Status, 28) << outcome.Err;
    EXPECT_THAT(outcome.Err, HasSubstr("VANTIK:webservices:Timeout"));
}

TEST(InterimHead, AndAnAnswerIsTheAnswer) {
    const ScriptedServer server(
        Script{step::expectHead(), step::send(kHints), step::send(kHints + response("content")), step::awaitPeerEnd()});
    const Outcome outcome = run({"get", "-i", server.url()});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(outcome.Out, "HTTP/1.1 200 OK\r\nContent-Length: 7\r\n\r\ncontent");
}

TEST(CompressedContent, WithMoreAfterItsEndIsAFailure) {
    const std::string two = gzip("first, ") + gzip("second");
    for (const std::string status : {"200 OK", "404 Not Found"}) {
        const TemporaryFolder folder;
        const ScriptedServer server(
            Script{step::expectHead(), step::send(response(two, {"Content-Encoding: gzip"}, status)), step::close()});
        const Outcome outcome = run({"save", server.url(), folder.file("file")});
        EXPECT_EQ(outcome.Status, 18) << outcome.Err;
        EXPECT_FALSE(std::filesystem::exists(folder.file("file")));
    }
}

TEST(Trailers, InThePacketOfTheAnswerLeaveItsHeadAlone) {
    const std::string end = "4\r\npage\r\n0\r\nX-Sum: 1\r\nX-More: 2\r\n\r\n";
    ScriptedServer server(
        {step::expectHead(), step::send(kFound + "Location: /b\r\nTransfer-Encoding: chunked\r\n\r\n" + end),
         step::expectHead(), step::send(kHead + "X-Mine: 1\r\nTransfer-Encoding: chunked\r\n\r\n" + end),
         step::awaitPeerEnd()});
    const Outcome outcome = run({"get", "-i", server.url("/a")});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(outcome.Out, kHead + "X-Mine: 1\r\nTransfer-Encoding: chunked\r\n\r\npage");
    EXPECT_EQ(startLine(server.waitUntilDone().Heads.at(1)), "GET /b HTTP/1.1");
}

TEST(Trailers, WithoutAnEndAreAFailure) {
    const ScriptedServer server(Script{step::expectHead(),
                                       step::send(kHead + "Transfer-Encoding: chunked\r\n\r\n4\r\npage\r\n0\r\n" +
                                                  repeated("X-Trailer: " + std::string(1000, 'x') + "\r\n", 3000)),
                                       step::awaitPeerEnd()});
    const TemporaryFolder folder;
    const Outcome outcome = run({"save", server.url(), folder.file("file")});
    EXPECT_NE(outcome.Status, 0) << outcome.Err;
    EXPECT_FALSE(std::filesystem::exists(folder.file("file")));
}

// Many answers, each cut somewhere, in one run. What is done is whole, and nothing is done that was cut.
TEST(RandomCuts, GiveNoFileThatIsNotWhole) {
    constexpr std::size_t kCuts = 2000;
    const std::string content = patternedBytes(300);
    const std::vector<std::string> answers = {
        response(content, {"X-Field: value"}),
        kHead + "Transfer-Encoding: chunked\r\n\r\n" + chunked(content, 100),
        kHints + response(content),
        response(gzip(content), {"Content-Encoding: gzip"}),
        response(content, {}, "404 Not Found"),
        kFound + "Location: /elsewhere\r\n" + response(content).substr(kHead.size()),
    };
    std::mt19937 random(11);
    const TemporaryFolder folder;
    std::vector<Script> scripts;
    std::string list;
    for (std::size_t i = 0; i < kCuts; ++i) {
        const std::string& answer = answers[random() % answers.size()];
        const auto length = random() % answer.size();
        scripts.push_back({step::expectHead(), step::send(answer.substr(0, length)),
                           random() % 2 == 0 ? step::close() : step::reset()});
    }
    const ScriptedServer server(scripts);
    for (std::size_t i = 0; i < kCuts; ++i) {
        list += server.url() + " " + std::to_string(i) + "\n";
    }
    writeFile(folder.file("list"), list);
    const Outcome outcome = run({"batch", "list", "-j", "1", "--no-fail", "--no-follow"}, {.Folder = folder.path()});
    EXPECT_NE(outcome.Status, 0);
    EXPECT_EQ(server.connectionCount(), kCuts);
    EXPECT_THAT(outcome.Out, testing::Not(HasSubstr("\"result\":\"done\"")));
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
        EXPECT_THAT(entry.path().filename().string(), StartsWith("list"));
    }
}

} // namespace
