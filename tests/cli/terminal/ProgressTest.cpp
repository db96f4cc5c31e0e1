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

TEST(Progress, WhatHasNoRoomIsLeftOutWhole) {
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

TEST(ProgressMeter, AHiddenMeterWritesNothingAndCounts) {
    testing::internal::CaptureStderr();
    {
        ProgressMeter meter("received", false, true);
        meter.expect(100);
        for (std::uint64_t i = 0; i <= 100; ++i) {
            meter.update(i);
        }
        meter.finish();
        EXPECT_EQ(meter.bytes(), 100u);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(ProgressMeter, ManyUpdatesInARowAreNotDrawnOneByOne) {
    testing::internal::CaptureStderr();
    const auto start = std::chrono::steady_clock::now();
    std::size_t intervals = 0;
    {
        ProgressMeter meter("received", true, true);
        for (std::uint64_t i = 1; i <= 20'000; ++i) {
            meter.update(i);
        }
        const auto spent = std::chrono::steady_clock::now() - start;
        intervals = static_cast<std::size_t>(spent / std::chrono::milliseconds(100));
        meter.finish();
    }
    const std::string drawn = testing::internal::GetCapturedStderr();
    const auto lines = static_cast<std::size_t>(std::count(drawn.begin(), drawn.end(), '\r'));
    EXPECT_GE(lines, 1u);
    EXPECT_LE(lines, intervals + 1); // at most ten a second, and the last state
    EXPECT_TRUE(drawn.ends_with("\n"));
    EXPECT_NE(drawn.find("19.5 KiB"), std::string::npos);
}

TEST(ProgressMeter, FinishingTwiceDrawsOnce) {
    testing::internal::CaptureStderr();
    {
        ProgressMeter meter("sent", true, false);
        meter.update(5);
        meter.finish();
        meter.finish();
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr().find("sent: 5 B"), 0u);
}

} // namespace
