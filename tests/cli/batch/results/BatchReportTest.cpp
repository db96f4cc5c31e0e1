#include "cli/batch/results/BatchReport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>

namespace {

using namespace netrove::cli;
using namespace std::chrono_literals;
using Json = nlohmann::json;

BatchLine parsedLine(const std::string& text) {
    return ManifestLines([](const std::string&) {}).once(1, text);
}

TEST(BatchReport, TheSummaryNamesWhatThereIs) {
    BatchTotals totals{.All = 10, .Done = 10, .Bytes = 2048, .Elapsed = 3s};
    EXPECT_EQ(summaryText(totals), "10 done; 2.0 KiB in 3 s");
    totals = {.All = 10, .Done = 3, .Failed = 2, .Skipped = 4, .Bytes = 5, .Elapsed = 61s};
    EXPECT_EQ(summaryText(totals), "3 done, 2 failed, 4 done before, 1 left; 5 B in 1 min 01 s");
}

TEST(BatchReport, ProgressOfALogIsOneLine) {
    const BatchTotals totals{.All = 8, .Done = 3, .Failed = 1, .Bytes = 4096, .Elapsed = 2s};
    EXPECT_EQ(batchProgressText(totals, 2),
              "[##########..........] 4 of 8, 1 failed, 2 running, 4.0 KiB, 2.0 KiB/s, 2 s");
    EXPECT_EQ(batchProgressText({}, 0), "[####################] 0 of 0, 0 running, 0 B, 0 s");
}

TEST(BatchReport, AFailureIsAllInOneLine) {
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

TEST(BatchReport, SecretsOfALineAreHidden) {
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
TEST(BatchReport, AHeadInAFailureIsMasked) {
    const std::string whole = "a head: set-cookie: topsecret\nX: y";
    const std::string cut = "CRLF not found in headers:\nopsecret";
    BatchOutcome outcome{.Failed = Verdict{{"A", "B", {whole, cut}, whole + " " + cut}, 1}};
    const Json object = Json::parse(resultLine(parsedLine("http://h/a"), outcome, Console()));
    const std::string wholeShown = "a head: set-cookie: ***\nX: y";
    const std::string cutShown = "CRLF not found in headers (8 bytes, not shown)";
    EXPECT_EQ(object["arguments"], Json({wholeShown, cutShown}));
    EXPECT_EQ(object["message"], wholeShown + " " + cutShown);
}

TEST(BatchReport, WithoutAResponseThereIsNoStatus) {
    const Json object = Json::parse(plainLine(parsedLine("{\"url\":\"http://h/a\",\"target\":null}"), "planned", nullptr));
    EXPECT_EQ(object["status"], nullptr);
    EXPECT_EQ(object["target"], nullptr);
    EXPECT_EQ(object["result"], "planned");
}

} // namespace
