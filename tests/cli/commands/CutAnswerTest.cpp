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
using Statuses = std::vector<testing::Matcher<int>>;
using NamesAndUrls = std::vector<std::pair<std::string, std::string>>;

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

struct TlsAnswer {
    std::string Name;
    std::string Bytes;
    TlsEnd End;
    std::string Protocol = {};
};

class CutAnswer : public ProgramFixture {
protected:
    const TemporaryFolder Elsewhere;
    const ScriptedServer Target{playing(response("there"))};
    const std::vector<CutRow> Rows = cutRows("Location: " + Target.url("/there"));

    void TearDown() override { EXPECT_EQ(Target.connectionCount(), 0u) << "a redirect was followed"; }

    // Each URL twice in one batch: fetched into a file that is there already, and asked with a body. What is cut is
    // nowhere taken for a success.
    void expectFailuresOfABatch(const NamesAndUrls& namesAndUrls, const Statuses& expected,
                                const Words& options = {}) const {
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
            const json result = json::parse(line);
            const std::size_t server = (result["line"].get<std::size_t>() - 1) / 2; // hosts take turns
            const std::string& name = namesAndUrls.at(server).first;
            EXPECT_EQ(result["result"], "failed") << name;
            EXPECT_THAT(result["exit"].get<int>(), expected.at(server)) << name << ": " << line;
            EXPECT_EQ(readFile(file(name)), "old") << name;
        }
        EXPECT_EQ(number, 2 * namesAndUrls.size()) << outcome.Err;
        EXPECT_EQ(names().size(), namesAndUrls.size());
    }
    // The same from servers with TLS, of which each plays one answer.
    void expectFailuresUnderTls(const std::vector<TlsAnswer>& answers, const Statuses& expected) const {
        std::vector<std::unique_ptr<TlsServer>> servers;
        NamesAndUrls urls;
        std::string certificates;
        for (const TlsAnswer& answer : answers) {
            servers.push_back(
                std::make_unique<TlsServer>("IP:127.0.0.1", answer.Bytes, "", answer.End, answer.Protocol));
            certificates += servers.back()->certificate();
            urls.emplace_back(answer.Name, "https://" + servers.back()->authority() + "/");
        }
        writeFile(Elsewhere.file("authorities.pem"), certificates);
        expectFailuresOfABatch(urls, expected, {"--ca-file", Elsewhere.file("authorities.pem")});
    }
};

TEST_F(CutAnswer, LeavesTheOldFileAndMakesNoObject) {
    writeFile(file("old"), "old");
    for (const CutRow& row : Rows) {
        SCOPED_TRACE(row.Name);
        EXPECT_THAT(runAgainst(playing(row.Answer), {"save", "--force", "URL", "old"}, here()), ended(row.Status));
        EXPECT_EQ(readFile(file("old")), "old");
        EXPECT_EQ(names(), Words{"old"});
        const Exchanged shown = runAgainst(playing(row.Answer), {"send", "--format", "json", "URL"});
        EXPECT_THAT(shown, ended(row.Status, ""));
        EXPECT_EQ(json::parse(shown.Err)["exit"], shown.Status);
    }
}

TEST_F(CutAnswer, IsAFailureOfABatchHoweverTheConnectionEnds) {
    for (const bool broken : {false, true}) {
        const Step end = broken ? step::reset() : step::close();
        std::vector<Script> scripts;
        Statuses expected;
        for (const CutRow& row : Rows) {
            scripts.push_back(playing(row.Answer, end));
            // Content that nobody has read makes a reset of any close.
            scripts.push_back({step::expectHead(), step::expectBody(kBody.size()), step::send(row.Answer), end});
            // A connection that breaks may take with it what came before.
            expected.push_back(broken ? testing::Matcher<int>(AnyOf(row.Status, 7)) : row.Status);
        }
        const ScriptedServer server(scripts);
        NamesAndUrls urls;
        for (const CutRow& row : Rows) {
            urls.emplace_back(row.Name, server.url("/" + std::to_string(urls.size())));
        }
        expectFailuresOfABatch(urls, expected);
    }
}

TEST_F(CutAnswer, UnderTlsIsAFailureOfABatch) {
    std::vector<TlsAnswer> answers;
    Statuses expected;
    for (const CutRow& row : Rows) {
        answers.push_back({row.Name, row.Answer, TlsEnd::Torn});
        expected.push_back(AnyOf(row.Status, 7));
    }
    expectFailuresUnderTls(answers, expected);
}

TEST_F(CutAnswer, SaysHowMuchCame) {
    for (const Words& option : {Words{}, {"--consumer"}}) {
        EXPECT_THAT(runAgainst(playing(kOk + "Content-Length: 9\r\n\r\npart"), Words{"get", "URL"} + option),
                    ended(18, "part", StartsWith("netrove: VANTIK:webservices:PartialFileWarning: ")));
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

// A frame of HTTP/2 (RFC 9113, section 4.1).
std::string frame(char type, char flags, char stream, const std::string& payload) {
    const auto length = payload.size();
    const char lengthBytes[] = {static_cast<char>(length >> 16), static_cast<char>(length >> 8),
                                static_cast<char>(length)};
    return std::string(lengthBytes, 3) + type + flags + std::string(3, '\0') + stream + payload;
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
    std::vector<TlsAnswer> answers;
    for (const auto& [name, frames] : rows) {
        answers.push_back({name, kSettings + frames, TlsEnd::Told, "h2"});
        answers.push_back({name + " that is torn", kSettings + frames, TlsEnd::Torn, "h2"});
    }
    expectFailuresUnderTls(answers, Statuses(answers.size(), AnyOf(18, 1)));
}

TEST(WholeAnswer, InFramesIsAnAnswer) {
    const TemporaryFolder folder;
    const TlsServer server("IP:127.0.0.1", kSettings + headFrame("103") + headFrame("200") + frame(0, 1, 1, "whole"),
                           "", TlsEnd::Told, "h2");
    writeFile(folder.file("authority.pem"), server.certificate());
    EXPECT_THAT(run({"get", "https://" + server.authority() + "/", "--ca-file", folder.file("authority.pem")}),
                ended(0, "whole"));
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
    EXPECT_THAT(got, ended(0, head + "page"));
    EXPECT_EQ(got.requestLine(1), "GET /b HTTP/1.1");
}

} // namespace
