#include "cli/terminal/Progress.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string>

namespace {

using namespace netrove::cli;
using Seconds = std::chrono::duration<double>;

std::string text(std::uint64_t bytes, std::optional<std::uint64_t> total, double seconds, std::size_t width = 100) {
    return progressText("received", {bytes, total, Seconds(seconds)}, width);
}

TEST(Progress, SizesHaveAtMostFourDigits) {
    const std::pair<std::uint64_t, const char*> rows[] = {
        {0, "0 B"},           {1023, "1023 B"},        {1024, "1.0 KiB"},        {1536, "1.5 KiB"},
        {1048575, "1.0 MiB"}, {3ull << 30, "3.0 GiB"}, {UINT64_MAX, "16.0 EiB"},
    };
    for (const auto& [bytes, expected] : rows) {
        EXPECT_EQ(sizeText(bytes), expected);
    }
}

TEST(Progress, TimesAreShort) {
    const std::pair<double, const char*> rows[] = {
        {0, "0 s"}, {59.9, "59 s"}, {200, "3 min 20 s"}, {3600 * 5 + 125, "5 h 02 min"}, {-1, "0 s"}};
    for (const auto& [seconds, expected] : rows) {
        EXPECT_EQ(durationText(Seconds(seconds)), expected);
    }
}

TEST(Progress, AKnownTotalHasAShareAndATimeLeft) {
    EXPECT_EQ(text(512, 1024, 2), "received: [############............]  50%  512 B of 1.0 KiB, 256 B/s, 2 s left");
    EXPECT_EQ(text(1024, 1024, 2), "received: [########################] 100%  1.0 KiB of 1.0 KiB, 512 B/s, 2 s");
    EXPECT_EQ(text(0, 1024, 0), "received: [........................]   0%  0 B of 1.0 KiB, 0 s");
    EXPECT_NE(text(9'999'999, 10'000'000, 1).find(" 99%"), std::string::npos) << "all but complete";
    EXPECT_EQ(text(10, 10'000'000'000, 10).find("left"), std::string::npos) << "hopeless";
}

TEST(Progress, AnUnknownTotalHasNeither) {
    EXPECT_EQ(text(2048, std::nullopt, 4), "received: 2.0 KiB, 512 B/s, 4 s");
    EXPECT_EQ(text(0, 0, 1), "received: 0 B, 1 s");
    EXPECT_EQ(text(2048, 1024, 4), "received: 2.0 KiB, 512 B/s, 4 s") << "more than the total is not complete";
}

TEST(Progress, WhatDoesNotFitIsLeftOutWhole) {
    const std::string most = "  41%  37.0 GiB of 90.0 GiB, 10.2 MiB/s, 1 h 28 min left";
    const std::pair<std::size_t, std::string> rows[] = {
        {99, "received: [#########...............]" + most},
        {79, "received: [####......]" + most},
        {78, "received: [####......]" + most},
        {77, "received:" + most},
        {60, "received:  41%  37.0 GiB of 90.0 GiB, 1 h 28 min left"},
        {40, "received:  41%  37.0 GiB of 90.0 GiB"},
        {20, "37.0 GiB"},
        {7, ""},
        {0, ""},
    };
    for (const auto& [width, expected] : rows) {
        EXPECT_EQ(text(37ull << 30, 90ull << 30, 3700, width), expected) << width;
    }
}

// What a meter writes of so many updates until it is finished, twice.
std::string drawn(bool shown, bool terminal, std::uint64_t updates) {
    testing::internal::CaptureStderr();
    {
        ProgressMeter meter("received", shown, terminal);
        for (std::uint64_t i = 1; i <= updates; ++i) {
            meter.update(i);
        }
        meter.finish();
        meter.finish();
        EXPECT_EQ(meter.bytes(), updates);
    }
    return testing::internal::GetCapturedStderr();
}

TEST(ProgressMeter, AHiddenMeterOnlyCounts) {
    EXPECT_EQ(drawn(false, true, 100), "");
}

TEST(ProgressMeter, ManyUpdatesInARowAreNotDrawnOneByOne) {
    const auto start = std::chrono::steady_clock::now();
    const std::string text = drawn(true, true, 20'000);
    const auto intervals = (std::chrono::steady_clock::now() - start) / std::chrono::milliseconds(100);
    const auto lines = std::ranges::count(text, '\r');
    EXPECT_GE(lines, 1);
    EXPECT_LE(lines, intervals + 1); // at most ten a second, and the last state
    EXPECT_TRUE(text.ends_with("\n"));
    EXPECT_NE(text.find("19.5 KiB"), std::string::npos);
}

TEST(ProgressMeter, OffATerminalTheLastStateIsALineOfItsOwn) {
    const std::string text = drawn(true, false, 0);
    EXPECT_TRUE(text.starts_with("received: 0 B")) << text;
    EXPECT_EQ(text.find('\n'), text.size() - 1) << "drawn twice: " << text;
}

} // namespace
