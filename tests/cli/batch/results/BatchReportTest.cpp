#include "cli/batch/results/BatchReport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <optional>
#include <string>
#include <unistd.h>

namespace {

using namespace netrove::cli;
using namespace std::chrono_literals;

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

// Results are printed by the thread that has them, and each leaves the output as it found it.
TEST(BatchReport, EachThreadThatPrintsLeavesTheOutputToOthers) {
    Settings settings;
    settings.Batch.DryRun = true;
    const Console console;
    BatchReport report(settings, console, 2, "");
    BatchLine line;
    line.Number = 1;
    const auto inThread = [](auto print) { std::async(std::launch::async, print).get(); };
    testing::internal::CaptureStdout();
    report.planned(line);
    inThread([] { BodySink(STDOUT_FILENO, "standard output", false, std::nullopt).write("another\n"); });
    inThread([&] { report.planned(line); });
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                testing::MatchesRegex(".*\"line\":1,.*\nanother\n.*\"line\":1,.*\n"));
}

} // namespace
