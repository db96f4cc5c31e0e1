#include "http/SilenceLimits.h"

#include "http/MonotonicTime.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

using namespace netrove;

namespace {

constexpr double kInfinite = SilenceLimits::kUnlimited;
constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();
constexpr const char16_t* kResponse = u"HTTPOptions.ResponseTimeout";
constexpr const char16_t* kData = u"HTTPOptions.DataTimeout";

struct Row {
    const char* Name;
    double Response;
    double Data;
    bool HeadersComplete;
    const char16_t* Option; // that governs; null: none does
    bool HTTPOptions = true;
};

// More of the finite ones are tried by the properties of HTTPConnectionTimeoutsTest.cpp.
const Row kRows[] = {
    {"ResponseAlone", 3000, kInfinite, false, kResponse},
    {"ResponseAloneInTheOlderInterface", 3000, kInfinite, false, u"weboptions.Timeout", false},
    {"ResponseWithNegativeInfinity", 3000, -kInfinite, false, kResponse},
    {"DataAlone", kInfinite, 2000, false, kData},
    {"DataWithNegativeInfinity", -kInfinite, 2000, false, kData},
    {"DataIsShorter", 30000, 10000, false, kData},
    {"ResponseIsShorter", 1000, 10000, false, kResponse},
    {"TieGoesToResponse", 10000, 10000, false, kResponse},
    {"OnlyDataAfterTheHead", 1000, 10000, true, kData},
    {"NoLimits", kInfinite, kInfinite, false, nullptr},
    {"NoLimitsOfNegativeInfinity", -kInfinite, -kInfinite, true, nullptr},
    // It compares false with everything, so it is never the shorter one; after the head it is the only one.
    {"DataThatIsNotANumber", 3000, kNoNumber, false, kResponse},
    {"ResponseThatIsNotANumber", kNoNumber, 2000, false, kResponse},
    {"DataThatIsNotANumberAlone", kInfinite, kNoNumber, false, nullptr},
    {"DataThatIsNotANumberAfterTheHead", 3000, kNoNumber, true, kData},
};

class SilenceLimitsTest : public ::testing::TestWithParam<Row> {};

TEST_P(SilenceLimitsTest, DeadlineFollowsTheLimitThatGoverns) {
    const Row& row = GetParam();
    SilenceLimits limits;
    limits.setTimeouts({5000.0, row.Response, row.Data});
    limits.ResponseTimeoutMs = 111; // the whole milliseconds are written elsewhere
    limits.DataTimeoutMs = 222;
    limits.Deadline = -1;
    limits.TimeoutReason = -1;
    limits.TimeoutOption = u"before";
    limits.ActiveTimeout = -1.0;
    const std::int64_t before = monotonicNow();
    limits.updateDeadline(row.HeadersComplete, row.HTTPOptions);
    const std::int64_t after = monotonicNow();
    if (row.Option == nullptr) {
        EXPECT_EQ(limits.Deadline, -1);
        EXPECT_EQ(limits.TimeoutReason, -1);
        EXPECT_EQ(limits.TimeoutOption, u"before");
        EXPECT_EQ(limits.ActiveTimeout, -1.0);
        return;
    }
    const bool isData = limits.TimeoutOption == kData;
    const std::int64_t limit = (isData ? 222 : 111) * kNsPerMs;
    EXPECT_EQ(limits.TimeoutOption, row.Option);
    EXPECT_EQ(limits.TimeoutReason, row.HeadersComplete ? 1 : 0);
    EXPECT_GE(limits.Deadline, before + limit);
    EXPECT_LE(limits.Deadline, after + limit);
    const double active = isData ? row.Data : row.Response;
    EXPECT_TRUE(limits.ActiveTimeout == active || (std::isnan(active) && std::isnan(limits.ActiveTimeout)));
}

INSTANTIATE_TEST_SUITE_P(Limits, SilenceLimitsTest, ::testing::ValuesIn(kRows),
                         [](const auto& info) { return info.param.Name; });

TEST(SilenceLimits, MissingTimeoutsHaveNoLimit) {
    SilenceLimits limits;
    using Timeouts = std::vector<double>;
    EXPECT_EQ(limits.getTimeouts(), (Timeouts{5000.0, kInfinite, kInfinite, kInfinite}));
    limits.setTimeouts({1.0, 2.0, 3.0, 4.0, 5.0});
    EXPECT_EQ(limits.getTimeouts(), (Timeouts{1.0, 2.0, 3.0, 4.0}));
    limits.setTimeouts({1.0, 2.0, 3.0});
    EXPECT_EQ(limits.getTimeouts(), (Timeouts{1.0, 2.0, 3.0, kInfinite}));
    limits.setTimeouts({-kInfinite}); // back to no limit
    EXPECT_EQ(limits.getTimeouts(), (Timeouts{-kInfinite, kInfinite, kInfinite, kInfinite}));
}

TEST(SilenceLimits, WithoutALimitThereIsNoDeadline) {
    SilenceLimits limits;
    limits.setTimeouts({5000.0, -kInfinite, -kInfinite});
    limits.Deadline = 17;
    limits.begin(false, true);
    EXPECT_EQ(limits.Deadline, SilenceLimits::kNoDeadline);
    limits.setTimeouts({5000.0, 1000.0, 1000.0});
    limits.updateDeadline(false, true); // it is never moved
    EXPECT_EQ(limits.Deadline, SilenceLimits::kNoDeadline);
}

TEST(SilenceLimits, EndOfTheHeadEndsAResponseLimit) {
    SilenceLimits limits;
    limits.setTimeouts({5000.0, 1000.0, 2000.0});
    limits.begin(false, true);
    EXPECT_NE(limits.Deadline, SilenceLimits::kNoDeadline);
    limits.endHead();
    EXPECT_NE(limits.Deadline, SilenceLimits::kNoDeadline);
    limits.setTimeouts({5000.0, 1000.0, -kInfinite});
    limits.endHead();
    EXPECT_EQ(limits.Deadline, SilenceLimits::kNoDeadline);
}

TEST(SilenceLimits, DeadlineHasPassedOnlyAfterIt) {
    SilenceLimits limits;
    limits.Deadline = 5;
    EXPECT_FALSE(limits.isPassed(5));
    EXPECT_TRUE(limits.isPassed(6));
}

} // namespace
