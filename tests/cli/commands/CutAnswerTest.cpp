// Answers that are cut, in every place and in every way: no program takes less than the whole for a success. The exit
// status says so, an old file stays, an upload does not count as stored, no redirect is followed.
#include "tests/cli/ProgramFixture.h"
#include "tests/exchange/request/TlsServer.h"
#include "tests/support/server/Gzip.h"

#include <nlohmann/json.hpp>

#include <memory>
#include <sstream>

namespace {

using namespace clitest;
using nlohmann::json;
using testing::AnyOf;

const std::string kChunked = kOk + "Transfer-Encoding: chunked\r\n\r\n";
const std::string kHints = "HTTP/1.1 103 Early Hints\r\nLink: </a>\r\n\r\n";
const std::string kConsent = "HTTP/1.1 100 Continue\r\n\r\n";
const std::string kMissing = "HTTP/1.1 404 Not Found\r\n";
const std::string kFound = "HTTP/1.1 302 Found\r\n";

std::string repeated(const std::string& text, int count) {
    std::string result;
    for (int i = 0; i < count; ++i) {
        result += text;
    }
    return result;
}

struct CutRow {
    std::string Name; // a file's too
    std::string Answer;
    testing::Matcher<int> Status = 18; // of the program, where the connection is closed after it
};

// `location`: the field of a redirect. Where a cut answer says to go is nowhere to go to.
std::vector<CutRow> cutRows(const std::string& location) {
    return {
        {"an interim head", kHints},
        {"half an interim head", kHints.substr(0, 30)},
        {"an interim head and garbage", kHints + "garbage\r\n\r\n"},
        {"an interim head and half a status line", kHints + "HTTP/1.1 2"},
        {"many interim heads", repeated(kHints, 500)},
        {"many consents", repeated(kConsent, 500), 1}, // no answer at all
        {"a flood of consents", repeated(kConsent, 20'000)},
        {"a flood of interim heads", repeated(kHints, 20'000)},
        {"the status line", kOk},
        {"half a head", kOk + "Content-Length: 9\r\nX-Mo"},
        {"a head without its end", kOk + "Content-Length: 9\r\n"},
        {"a head", kOk + "Content-Length: 9\r\n\r\n"},
        {"half the content", kOk + "Content-Length: 9\r\n\r\npart"},
        {"half a chunk", kChunked + "9\r\npart"},
        {"a broken chunk", kChunked + "5\r\nhello\r\nzz\r\n", testing::Ne(0)},
        {"chunks without the last", kChunked + "4\r\npart\r\n"},
        {"half the trailers", kChunked + "4\r\npart\r\n0\r\nX-Sum: 1"},
        {"half a head of an error", kMissing + "Content-Le"},
        {"half the content of an error", kMissing + "Content-Length: 9\r\n\r\npart"},
        {"half a head after an interim one", kHints + kOk + "Content-Le"},
        {"half a head of a redirect", kFound + location},
        {"a head of a redirect without its end", kFound + location + "\r\n"},
        {"half a location", kFound + location.substr(0, location.size() - 2)},
        {"the status line of a redirect", kFound},
    };
}

Script playing(const std::string& answer, const Step& end = step::close()) {
    return {step::expectHead(), step::send(answer), end};
}

const std::string kBody = "content"; // of the requests that have one

class CutAnswer : public ProgramFixture {
protected:
    const TemporaryFolder Elsewhere;
    const ScriptedServer Target{playing(response("there"))};
    const std::vector<CutRow> Rows = cutRows("Location: " + Target.url("/there"));

    void TearDown() override { EXPECT_EQ(Target.connectionCount(), 0u) << "a redirect was followed"; }

    // Each URL twice in one batch: fetched into a file that is there already, and asked with a body. What is cut is
    // nowhere taken for a success.
    void expectFailuresOfABatch(const std::vector<std::pair<std::string, std::string>>& namesAndUrls,
                                const std::vector<testing::Matcher<int>>& expected, const Words& options = {}) const {
        std::string list;
        for (const auto& [name, url] : namesAndUrls) {
            writeFile(file(name), "old");
            list += url + " " + name + "\n" + json{{"url", url}, {"body", kBody}, {"target", nullptr}}.dump() + "\n";
        }
        writeFile(Elsewhere.file("list"), list);
        const Outcome outcome =
            run(Words{"batch", Elsewhere.file("list"), "--force", "--no-fail", "-j", "1"} + options, here());
        EXPECT_NE(outcome.Status, 0);
        EXPECT_THAT(readFile(Elsewhere.file("list.journal")), Not(HasSubstr("\"done\"")));
        std::istringstream lines(outcome.Out);
        std::size_t number = 0;
        for (std::string line; std::getline(lines, line); ++number) {
            const std::string& name = namesAndUrls.at(number / 2).first;
            EXPECT_EQ(json::parse(line)["result"], "failed") << name;
            EXPECT_THAT(json::parse(line)["exit"].get<int>(), expected.at(number / 2)) << name << ": " << line;
            EXPECT_EQ(readFile(file(name)), "old") << name;
        }
        EXPECT_EQ(number, 2 * namesAndUrls.size()) << outcome.Err;
        EXPECT_EQ(names().size(), namesAndUrls.size());
    }
};

TEST_F(CutAnswer, LeavesTheOldFile) {
    writeFile(file("old"), "old");
    for (const CutRow& row : Rows) {
        const Exchanged saved = runAgainst(playing(row.Answer), {"save", "--force", "URL", "old"}, here());
        EXPECT_THAT(saved.Status, row.Status) << row.Name << ": " << saved.Err;
        EXPECT_EQ(readFile(file("old")), "old") << row.Name;
        EXPECT_EQ(names(), Words{"old"}) << row.Name;
    }
}

TEST_F(CutAnswer, MakesNoObject) {
    for (const CutRow& row : Rows) {
        const Exchanged told = runAgainst(playing(row.Answer), {"send", "--json", "URL"});
        EXPECT_THAT(told.Status, row.Status) << row.Name;
        EXPECT_EQ(told.Out, "") << row.Name;
        EXPECT_EQ(json::parse(told.Err)["exit"], told.Status) << row.Name;
    }
}

TEST_F(CutAnswer, IsAFailureOfABatchHoweverTheConnectionEnds) {
    for (const Step& end : {step::close(), step::reset()}) {
        std::vector<Script> scripts;
        std::vector<testing::Matcher<int>> expected;
        for (const CutRow& row : Rows) {
            scripts.push_back(playing(row.Answer, end));
            // Content that nobody has read makes a reset of any close.
            scripts.push_back({step::expectHead(), step::expectBody(kBody.size()), step::send(row.Answer), end});
            // A connection that breaks may take with it what came before.
            expected.push_back(end.What == Step::Kind::Close ? row.Status
                                                             : testing::Matcher<int>(AnyOf(row.Status, 7)));
        }
        const ScriptedServer server(scripts);
        std::vector<std::pair<std::string, std::string>> urls;
        for (const CutRow& row : Rows) {
            urls.emplace_back(row.Name, server.url("/" + std::to_string(urls.size())));
        }
        expectFailuresOfABatch(urls, expected);
    }
}

// Servers with TLS that all play one answer each, and what the program needs to trust them.
struct TlsServers {
    std::vector<std::unique_ptr<TlsServer>> Servers;
    std::string Certificates;
    std::vector<std::pair<std::string, std::string>> Urls{};

    void add(const std::string& name, const std::string& answer, TlsEnd end, const std::string& protocol = {}) {
        Servers.push_back(std::make_unique<TlsServer>("IP:127.0.0.1", answer, "", end, protocol));
        Certificates += Servers.back()->certificate();
        Urls.emplace_back(name, "https://" + Servers.back()->authority() + "/");
    }
};

TEST_F(CutAnswer, UnderTlsIsAFailureOfABatch) {
    TlsServers servers;
    std::vector<testing::Matcher<int>> expected;
    for (const CutRow& row : Rows) {
        servers.add(row.Name, row.Answer, TlsEnd::Torn);
        expected.push_back(AnyOf(row.Status, 7));
    }
    writeFile(Elsewhere.file("authorities.pem"), servers.Certificates);
    expectFailuresOfABatch(servers.Urls, expected, {"--ca-file", Elsewhere.file("authorities.pem")});
}

TEST_F(CutAnswer, SaysHowMuchCame) {
    for (const Words& option : {Words{}, {"--consumer"}}) {
        const Exchanged got = runAgainst(playing(kOk + "Content-Length: 9\r\n\r\npart"), Words{"get", "URL"} + option);
        EXPECT_EQ(got.Status, 18);
        EXPECT_EQ(got.Out, "part");
        EXPECT_THAT(got.Err, StartsWith("netrove: VANTIK:webservices:PartialFileWarning: "));
    }
    const Exchanged saved =
        runAgainst(playing("HTTP/1.1 500 Oh\r\nContent-Length: 100\r\n\r\nonly this"), {"save", "URL", "file"}, here());
    EXPECT_EQ(saved.Status, 18);
    EXPECT_THAT(lastLine(saved.Err), testing::AllOf(StartsWith("netrove: VANTIK:webservices:PartialFileWarning: "),
                                                    HasSubstr("9 of 100 bytes")));
    EXPECT_EQ(names(), Words{});
}

TEST_F(CutAnswer, WithoutContentIsAFailureToo) {
    for (const std::string& answer : {kHints, kOk, kOk + "Content-Length: 9\r\n", kMissing + "X: 1\r\n"}) {
        EXPECT_EQ(runAgainst(playing(answer), {"send", "-X", "HEAD", "URL"}).Status, 18) << answer;
    }
}

// The next attempt is one, and what it brings is kept.
TEST_F(CutAnswer, IsTriedAgainByABatch) {
    const ScriptedServer server(
        std::vector<Script>{playing(kHints), playing(kOk + "Content-Le"), answering(response("whole"))});
    writeFile(file("list"), server.url() + " file\n");
    const Outcome outcome = run({"batch", "list", "--retry", "2", "--retry-wait", "0.01"}, here());
    EXPECT_EQ(outcome.Status, 0) << outcome.Out << outcome.Err;
    EXPECT_EQ(json::parse(outcome.Out)["attempts"], 3);
    EXPECT_EQ(readFile(file("file")), "whole");
}

// A frame of HTTP/2 (RFC 9113, section 4.1).
std::string frame(char type, char flags, char stream, const std::string& payload) {
    const auto length = payload.size();
    const char head[] = {static_cast<char>(length >> 16),
                         static_cast<char>(length >> 8),
                         static_cast<char>(length),
                         type,
                         flags,
                         0,
                         0,
                         0,
                         stream};
    return std::string(head, sizeof head) + payload;
}
// A head with the field :status, which is number 8 of the static table, with its value as it stands (RFC 7541, section
// 6.2.2).
std::string headFrame(const std::string& status, bool whole = true) {
    return frame(1, whole ? 4 : 0, 1, std::string("\x08\x03") + status);
}
const std::string kSettings = frame(4, 0, 0, ""); // as every server begins

TEST_F(CutAnswer, InFramesIsAFailureOfABatch) {
    const std::pair<std::string, std::string> rows[] = {
        {"an interim head", headFrame("103")},
        {"many interim heads", repeated(headFrame("103"), 100)},
        {"half a head", headFrame("200", false)},
        {"a head", headFrame("200")},
        {"half the content", headFrame("200") + frame(0, 0, 1, "part")},
        {"a head of an error", headFrame("404")},
        {"half the content of an error", headFrame("404") + frame(0, 0, 1, "part")},
    };
    TlsServers servers;
    for (const auto& [name, frames] : rows) {
        servers.add(name, kSettings + frames, TlsEnd::Told, "h2");
        servers.add(name + " that is torn", kSettings + frames, TlsEnd::Torn, "h2");
    }
    writeFile(Elsewhere.file("authorities.pem"), servers.Certificates);
    expectFailuresOfABatch(servers.Urls, std::vector<testing::Matcher<int>>(servers.Urls.size(), AnyOf(18, 1)),
                           {"--ca-file", Elsewhere.file("authorities.pem")});
}

TEST(WholeAnswer, InFramesIsAnAnswer) {
    const TemporaryFolder folder;
    const TlsServer server("IP:127.0.0.1", kSettings + headFrame("103") + headFrame("200") + frame(0, 1, 1, "whole"),
                           "", TlsEnd::Told, "h2");
    writeFile(folder.file("authority.pem"), server.certificate());
    const Outcome outcome =
        run({"get", "https://" + server.authority() + "/", "--ca-file", folder.file("authority.pem")});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(outcome.Out, "whole");
}

TEST(WholeAnswer, AfterInterimHeadsIsTheAnswerAndSilenceATimeout) {
    const Exchanged got = runAgainst(
        Script{step::expectHead(), step::send(kHints), step::send(kHints + response("content")), step::awaitPeerEnd()},
        {"get", "-i", "URL"});
    EXPECT_EQ(got.Status, 0) << got.Err;
    EXPECT_EQ(got.Out, kOk + "Content-Length: 7\r\n\r\ncontent");
    const Exchanged silent = runAgainst(answering(kHints), {"get", "--response-timeout", "300", "URL"});
    EXPECT_EQ(silent.Status, 28);
    EXPECT_THAT(silent.Err, HasSubstr("VANTIK:webservices:Timeout"));
}

TEST(WholeAnswer, WithMoreAfterTheEndOfItsCompressionIsAFailure) {
    const TemporaryFolder folder;
    for (const std::string status : {"200 OK", "404 Not Found"}) {
        const Exchanged saved =
            runAgainst(playing(response(gzip("first, ") + gzip("second"), {"Content-Encoding: gzip"}, status)),
                       {"save", "URL", folder.file("file")});
        EXPECT_EQ(saved.Status, 18) << saved.Err;
        EXPECT_EQ(namesIn(folder.path()), Words{});
    }
}

TEST(Trailers, InThePacketOfTheAnswerLeaveItsHeadAlone) {
    const std::string end = "4\r\npage\r\n0\r\nX-Sum: 1\r\nX-More: 2\r\n\r\n";
    const std::string head = kOk + "X-Mine: 1\r\nTransfer-Encoding: chunked\r\n\r\n";
    const Exchanged got = runAgainst(
        Script{step::expectHead(), step::send(kFound + "Location: /b\r\nTransfer-Encoding: chunked\r\n\r\n" + end),
               step::expectHead(), step::send(head + end), step::awaitPeerEnd()},
        {"get", "-i", "URL/a"});
    EXPECT_EQ(got.Status, 0) << got.Err;
    EXPECT_EQ(got.Out, head + "page");
    EXPECT_EQ(got.requestLine(1), "GET /b HTTP/1.1");
}

TEST(Trailers, WithoutAnEndAreAFailure) {
    const TemporaryFolder folder;
    const std::string trailer = "X-Trailer: " + std::string(1000, 'x') + "\r\n";
    const Exchanged saved = runAgainst(answering(kChunked + "4\r\npage\r\n0\r\n" + repeated(trailer, 3000)),
                                       {"save", "URL", folder.file("file")});
    EXPECT_NE(saved.Status, 0);
    EXPECT_EQ(namesIn(folder.path()), Words{});
}

} // namespace
