#include "cli/batch/results/ResultLine.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <string>
#include <utility>

namespace {

using namespace netrove::cli;
using namespace std::chrono_literals;
using Json = nlohmann::json;

BatchLine parsedLine(const std::string& text) {
    return ManifestLines([](const std::string&) {}).once(1, text);
}

TEST(ResultLine, IsAlwaysWrittenTheSame) {
    BatchLine line = parsedLine("http://h/a b");
    line.Number = 12;
    const BatchOutcome outcome{.Failed = {}, .Status = 200, .Bytes = 1024, .Attempts = 1, .Time = 1.25s};
    EXPECT_EQ(resultLine(line, outcome, Console()),
              "{\"id\":\"" + line.digest() +
                  "\",\"line\":12,\"url\":\"http://h/a\",\"target\":\"b\",\"status\":200,\"bytes\":1024,"
                  "\"seconds\":1.25,\"attempts\":1,\"result\":\"done\"}");
}

TEST(ResultLine, SecondsAreShownToTheMillisecond) {
    for (const auto& [time, text] : {std::pair(0.0, "0.0"),
                                     {0.0004, "0.0"},
                                     {0.0015, "0.002"},
                                     {0.07, "0.07"},
                                     {59.9996, "60.0"},
                                     {12345.678, "12345.678"}}) {
        const BatchOutcome outcome{.Failed = {}, .Time = std::chrono::duration<double>(time)};
        const std::string line = resultLine(parsedLine("http://h/a"), outcome, Console());
        EXPECT_NE(line.find(std::string("\"seconds\":") + text + ","), line.npos) << line;
    }
}

TEST(ResultLine, NamesAreASCIIWhateverIsInThem) {
    for (const std::string& name : {std::string("a\"b\\c"), std::string("B\xC3\xBCro"), std::string("x\x7Fy")}) {
        BatchLine line = parsedLine("http://h/a");
        line.Target = name;
        const std::string text = resultLine(line, {}, Console());
        EXPECT_TRUE(std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; })) << text;
        EXPECT_EQ(Json::parse(text)["target"], name);
    }
}

TEST(ResultLine, AFailureIsAllInOneLine) {
    const Console console;
    BatchOutcome outcome{
        .Failed = Verdict{{"NETROVE:cli", "StatusError", {std::int64_t{503}, "B\xC3\xBCsy\n"}, "it said 503"}, 22},
        .Status = 503,
        .Attempts = 4,
        .Time = 1.23456s};
    const std::string text = resultLine(parsedLine("http://h/a b"), outcome, console);
    EXPECT_EQ(text.find_first_of("\n\xC3"), text.npos) << text;
    const Json object = Json::parse(text);
    EXPECT_EQ(object["result"], "failed");
    EXPECT_EQ(object["status"], 503);
    EXPECT_EQ(object["attempts"], 4);
    EXPECT_EQ(object["seconds"], 1.235);
    EXPECT_EQ(object["identifier"], "NETROVE:cli:StatusError");
    EXPECT_EQ(object["message"], "it said 503");
    EXPECT_EQ(object["arguments"], Json({503, "B\xC3\xBCsy\n"}));
    EXPECT_EQ(object["exit"], 22);
}

TEST(ResultLine, SecretsOfALineAreHidden) {
    const Console console;
    BatchOutcome outcome{.Failed =
                             Verdict{{"A", "B", {"wonderland"}, "the server repeats wonderland, Bearer topsecret"}, 1}};
    const BatchLine line =
        parsedLine("{\"url\":\"http://alice:wonderland@h/a\",\"fields\":[\"Authorization: Bearer topsecret\"]}");
    const std::string text = resultLine(line, outcome, console);
    EXPECT_EQ(text.find("wonderland"), text.npos) << text;
    EXPECT_EQ(text.find("topsecret"), text.npos) << text;
    EXPECT_EQ(Json::parse(text)["url"], "http://h/a");
}

// Holds secrets that the console does not know, such as those of a redirect's cookies, and pieces of those it knows.
TEST(ResultLine, AHeadInAFailureIsMasked) {
    const std::string whole = "a head: set-cookie: topsecret\nX: y";
    const std::string cut = "CRLF not found in headers:\nopsecret";
    BatchOutcome outcome{.Failed = Verdict{{"A", "B", {whole, cut}, whole + " " + cut}, 1}};
    const Json object = Json::parse(resultLine(parsedLine("http://h/a"), outcome, Console()));
    const std::string wholeShown = "a head: set-cookie: ***\nX: y";
    const std::string cutShown = "CRLF not found in headers (8 bytes, not shown)";
    EXPECT_EQ(object["arguments"], Json({wholeShown, cutShown}));
    EXPECT_EQ(object["message"], wholeShown + " " + cutShown);
}

TEST(ResultLine, WithoutAResponseThereIsNoStatus) {
    const Json object =
        Json::parse(plainLine(parsedLine("{\"url\":\"http://h/a\",\"target\":null}"), "planned", nullptr));
    EXPECT_EQ(object["status"], nullptr);
    EXPECT_EQ(object["target"], nullptr);
    EXPECT_EQ(object["result"], "planned");
}

} // namespace
