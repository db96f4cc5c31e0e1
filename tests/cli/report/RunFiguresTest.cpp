#include "cli/report/RunFigures.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <string>

namespace {

using namespace netrove::cli;

EndedLine lineOf(std::size_t number, double start, double end, std::uint64_t bytes = 0,
                 const std::string& url = "http://h/x") {
    return {.Number = number, .Url = url, .Start = start, .End = end, .Status = 200, .Bytes = bytes, .Attempts = 1};
}

EndedLine failedLine(std::size_t number, const std::string& url) {
    EndedLine line = lineOf(number, 0, 1, 0, url);
    line.Failed = FailureCause{"refused", " by ", hostOf(url)};
    return line;
}

TEST(LogHistogram, QuantilesAreAtMostAFewPercentOff) {
    LogHistogram histogram;
    for (int i = 1; i <= 10'000; ++i) {
        histogram.add(i / 1000.0);
    }
    for (const double share : {0.5, 0.95, 0.99}) {
        EXPECT_NEAR(histogram.quantile(share), share * 10, share * 10 * 0.045);
    }
    EXPECT_EQ(histogram.count(), 10'000U);
    EXPECT_EQ(histogram.least(), 0.001);
    EXPECT_NEAR(histogram.quantile(1), 10, 0.45);
    EXPECT_NEAR(histogram.sum(), 50'005, 0.01);
    EXPECT_EQ(LogHistogram().quantile(0.5), 0);
}

TEST(LogHistogram, ASumHasTheValuesOfBoth) {
    LogHistogram low;
    LogHistogram high;
    LogHistogram both;
    for (const double value : {0.0, 0.5, 3.0, 3.1}) {
        low.add(value);
        both.add(value);
    }
    for (const double value : {1e-9, 100.0, 1e30}) {
        high.add(value);
        both.add(value);
    }
    high.add(low);
    EXPECT_EQ(high.count(), 7U);
    EXPECT_EQ(high.least(), 0);
    EXPECT_EQ(high.most(), 1e30);
    for (double share = 0; share <= 1; share += 0.05) {
        EXPECT_EQ(high.quantile(share), both.quantile(share)) << share;
    }
    std::uint64_t counted = 0;
    for (const LogHistogram::Bar& bar : high.doublings()) {
        EXPECT_EQ(bar.To, 2 * bar.From);
        counted += bar.Count;
    }
    EXPECT_EQ(counted, 7U);
}

TEST(RunFigures, TimesKeepEverythingHoweverLongTheRun) {
    TimeLine times;
    double bytes = 0;
    std::size_t failed = 0;
    for (std::size_t i = 0; i < 5000; ++i) {
        EndedLine line = lineOf(i, static_cast<double>(i) * 0.7, static_cast<double>(i) * 0.7 + 40, 1000);
        if (i % 10 == 0) {
            line.Failed = FailureCause{};
            ++failed;
        }
        times.add(line);
        bytes += 1000;
    }
    EXPECT_LE(times.spans().size(), TimeLine::kMostSpans);
    EXPECT_GE(times.spans().size(), TimeLine::kMostSpans / 2);
    TimeLine::Span sum;
    for (const TimeLine::Span& span : times.spans()) {
        sum.Done += span.Done;
        sum.Failed += span.Failed;
        sum.Bytes += span.Bytes;
    }
    EXPECT_EQ(sum.Failed, failed);
    EXPECT_EQ(sum.Done, 5000 - failed);
    EXPECT_NEAR(sum.Bytes, bytes, 1);
}

TEST(RunFigures, BytesAreSpreadOverTheTimeOfALine) {
    TimeLine times;
    times.add(lineOf(1, 0, 10, 1000));
    const std::vector<TimeLine::Span> spans = times.spans();
    const double half =
        std::accumulate(spans.begin(), spans.begin() + static_cast<std::ptrdiff_t>(5 / times.spanSeconds()), 0.0,
                        [](double sum, const TimeLine::Span& span) { return sum + span.Bytes; });
    EXPECT_NEAR(half, 500, 1);
}

double sumOf(const std::vector<double>& values) {
    return std::accumulate(values.begin(), values.end(), 0.0);
}

TEST(SpanSeries, SpansAreJoinedWhenTheyAreNextUsed) {
    SpanSeries<int> series;
    for (const int value : {1, 2, 3, 4, 5}) {
        series.at(static_cast<std::size_t>(value) - 1, 0) = value;
    }
    EXPECT_EQ(series.values(4, 1), (std::vector{3, 7, 5, 0}));
    series.at(0, 2) += 100; // as wide as four of the first
    EXPECT_EQ(series.values(2, 2), (std::vector{110, 5}));
    SpanSeries<int> late;
    late.at(1, 0) = 1000;
    series.add(late);
    late.add(series);
    EXPECT_EQ(series.values(2, 2), (std::vector{1110, 5}));
    EXPECT_EQ(late.values(2, 2), (std::vector{2110, 5}));
}

TEST(RunFigures, TransfersAreUnderWayFromTheirLastAttemptAndInEarlierOnes) {
    RunFigures figures;
    EndedLine line = lineOf(1, 0, 10);
    line.LastStart = 8;
    line.Spent = {8, 1.5, 0.5};
    figures.addAttempt(line.Url, 0, 1);
    figures.add(line);
    figures.add(lineOf(2, 0, 4, 0, "http://other/"));
    const auto hosts = figures.hostsInTime(5);
    ASSERT_EQ(hosts.size(), 2U);
    EXPECT_EQ(hosts[0].Name, "h:80");
    EXPECT_NEAR(sumOf(hosts[0].Values), 3, 0.01);
    EXPECT_NEAR(sumOf(hosts[1].Values), 4, 0.01);
    const auto half = static_cast<std::ptrdiff_t>(5 / figures.times().spanSeconds());
    EXPECT_NEAR(sumOf({hosts[0].Values.begin(), hosts[0].Values.begin() + half}), 1, 0.01);
    double busy = 0;
    for (const TimeLine::Span& span : figures.times().spans()) {
        busy += span.Busy;
    }
    EXPECT_NEAR(busy, 7, 0.01);
    EXPECT_EQ(figures.spent(), (Phases{8, 1.5, 0.5}));
}

TEST(RunFigures, FailuresInTimeAreOfTheCommonestCauses) {
    RunFigures figures;
    for (std::size_t i = 0; i < 5000; ++i) {
        EndedLine line = failedLine(i, "http://h" + std::to_string(i) + "/");
        line.End = static_cast<double>(i);
        line.LastStart = line.End - 1;
        line.Failed->Kind = i % 2 == 0 ? "refused" : "cause " + std::to_string(i);
        figures.add(line);
    }
    const auto causes = figures.failuresInTime(2);
    ASSERT_EQ(causes.size(), 3U);
    EXPECT_EQ(causes[0].Name, "refused");
    EXPECT_EQ(sumOf(causes[0].Values), 2500);
    EXPECT_EQ(causes[2].Name, "other");
    EXPECT_EQ(sumOf(causes[0].Values) + sumOf(causes[1].Values) + sumOf(causes[2].Values), 5000);
    for (const NamedSeries& series : causes) {
        EXPECT_EQ(series.Values.size(), figures.times().count());
    }
    EXPECT_EQ(figures.hostsInTime(6).size(), 7U);
}

TEST(RunFigures, TheSlowestHundredAreKept) {
    RunFigures figures;
    for (std::size_t i = 0; i < 1000; ++i) {
        figures.add(lineOf(i, 0, static_cast<double>((i * 7919) % 1000)));
    }
    const auto slowest = figures.slowest();
    ASSERT_EQ(slowest.size(), 100U);
    EXPECT_EQ(slowest.front().End, 999);
    EXPECT_EQ(slowest.back().End, 900);
}

TEST(RunFigures, HostsBeyondTheFirstAreCountedTogether) {
    RunFigures figures;
    for (std::size_t i = 0; i < 5000; ++i) {
        figures.add(lineOf(i, 0, 1, 10, "http://h" + std::to_string(i) + "/x"));
        figures.add(lineOf(i, 0, 1, 10, "http://busy/x"));
    }
    const auto top = figures.topHosts(20);
    ASSERT_EQ(top.size(), 21U);
    EXPECT_EQ(top.front().Name, "busy:80");
    EXPECT_EQ(top.front().lines(), 5000U);
    EXPECT_EQ(top.back().Name, "other");
    EXPECT_EQ(figures.hosts(), 2000U);
    std::size_t all = 0;
    for (const HostFigures& host : top) {
        all += host.lines();
    }
    EXPECT_EQ(all, 10'000U);
    EXPECT_TRUE(figures.failingHosts(5).empty());
    figures.add(failedLine(1, "http://busy/y"));
    ASSERT_EQ(figures.failingHosts(5).size(), 1U);
    EXPECT_EQ(figures.failingHosts(5).front().Failed, 1U);
}

} // namespace
