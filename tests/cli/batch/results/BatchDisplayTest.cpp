#include "cli/batch/results/BatchDisplay.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using namespace netrove::cli;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

BatchMoment busyMoment() {
    return {.Totals = {.All = 10'000, .Done = 4210, .Failed = 3, .Bytes = 1'300'000'000, .Elapsed = 65s},
            .Running = 2,
            .BytesPerSecond = 36'000'000,
            .LinesPerSecond = 120,
            .Longest = {{"https://example.org/data/a.csv", 4'600'000, 10'485'760, 12s},
                        {"https://example.org/" + std::string(300, 'b'), 1024, std::nullopt, 61s}}};
}

TEST(BatchDisplay, SaysWhatADifferentWidthHasRoomFor) {
    const BatchMoment moment = busyMoment();
    EXPECT_THAT(displayLines(moment, 59, 23),
                ElementsAre("[###############......................]  42%  4213 of 10000",
                            "4210 done, 3 failed, 2 running", "34.3 MiB/s, 49 s left, 1.2 GiB, 120 lines/s, 1 min 05 s",
                            "      12 s     4.4 MiB of 10.0 MiB  example.org/data/a.csv",
                            "1 min 01 s                 1.0 KiB  example.or...bbbbbbbbbb"));
    EXPECT_THAT(displayLines(moment, 199, 23)[3], HasSubstr("  example.org/data/a.csv"));
    EXPECT_THAT(displayLines(moment, 30, 23)[3], "      12 s  example...ta/a.csv");
}

TEST(BatchDisplay, NoLineIsWiderThanTheTerminal) {
    BatchMoment moment = busyMoment();
    moment.Longest[0].Url = "http://h/\xE6\xBC\xA2\xE5\xAD\x97\xE6\xBC\xA2\xE5\xAD\x97\xE6\xBC\xA2\xE5\xAD\x97";
    for (std::size_t width = 0; width < 250; ++width) {
        for (const std::string& line : displayLines(moment, width, 23)) {
            std::size_t columns = 0;
            for (const unsigned char c : line) {
                columns += c < 0x80 ? 1 : c >= 0xC0 ? 2 : 0;
            }
            EXPECT_LE(columns, width) << line;
        }
    }
}

TEST(BatchDisplay, HasAtMostEightLinesAndNoMoreThanTheTerminal) {
    BatchMoment moment = busyMoment();
    moment.Running = 12;
    moment.Longest.assign(8, moment.Longest[0]);
    const std::vector<std::string> lines = displayLines(moment, 79, 23);
    EXPECT_EQ(lines.size(), 8U);
    EXPECT_EQ(lines.back(), "  and 8 more");
    EXPECT_EQ(displayLines(moment, 79, 3).size(), 3U);
    moment.Running = 5;
    moment.Longest.resize(5);
    EXPECT_THAT(displayLines(moment, 79, 23).back(), HasSubstr("data/a.csv"));
}

TEST(BatchDisplay, NothingOfAUrlIsObeyed) {
    BatchMoment moment = busyMoment();
    moment.Longest[0].Url = "http://h/\x1b[2J";
    EXPECT_THAT(displayLines(moment, 99, 23)[3], HasSubstr("  h/\\x1B[2J"));
}

TEST(BatchDisplay, TheTimeLeftIsEstimatedOnceSomethingHasEnded) {
    BatchMoment moment{.Totals = {.All = 10, .Elapsed = 5s}};
    EXPECT_EQ(displayLines(moment, 79, 23)[2], "0 B/s, 0 B, 5 s");
    moment.Totals.Done = 1; // none lately: the pace of the whole run
    EXPECT_EQ(displayLines(moment, 79, 23)[2], "0 B/s, 45 s left, 0 B, 5 s");
    moment.Totals.All = 1'000'000;
    EXPECT_THAT(displayLines(moment, 79, 23)[2], HasSubstr("more than a day left"));
}

TEST(BatchDisplay, SpeedsAreThoseOfTheLastSeconds) {
    RecentSpeed speed;
    EXPECT_EQ(speed.bytesPerSecond(), 0);
    speed.add(0, 0, 0);
    speed.add(10, 1000, 10);
    EXPECT_EQ(speed.bytesPerSecond(), 100);
    EXPECT_EQ(speed.linesPerSecond(), 1);
    speed.add(20, 1000, 110); // the first ten seconds no longer count
    EXPECT_EQ(speed.bytesPerSecond(), 0);
    EXPECT_EQ(speed.linesPerSecond(), 10);
    speed.add(21, 500, 110); // an attempt has begun again
    EXPECT_EQ(speed.bytesPerSecond(), 0);
}

} // namespace
