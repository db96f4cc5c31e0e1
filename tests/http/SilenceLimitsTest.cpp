#include "http/SilenceLimits.h"

#include "http/MonotonicTime.h"

#include <gtest/gtest.h>

#include <string>

using namespace netrove;

namespace {

constexpr double kInfinite = SilenceLimits::kUnlimited;

// Which limit governs before and after the complete head: "R", "D", or "-" for none.
struct Row {
    double Response;
    double Data;
    const char* Before;
    const char* After;
};

std::string governing(const SilenceLimits& limits) {
    if (limits.Deadline == SilenceLimits::kNoDeadline) {
        return "-";
    }
    return limits.TimeoutOption == u"HTTPOptions.DataTimeout" ? "D" : "R";
}

TEST(SilenceLimits, InfiniteOfEitherSignIsNoLimit) {
    for (const double infinite : {kInfinite, -kInfinite}) {
        for (const Row& row :
             {Row{infinite, infinite, "-", "-"}, Row{1000.0, infinite, "R", "-"}, Row{infinite, 1000.0, "D", "D"},
              Row{1000.0, 2000.0, "R", "D"}, Row{2000.0, 1000.0, "D", "D"}, Row{1000.0, 1000.0, "R", "D"}}) {
            SilenceLimits limits;
            limits.setTimeouts({infinite, row.Response, row.Data});
            EXPECT_EQ(limits.getTimeouts(), (std::vector{infinite, row.Response, row.Data, kInfinite}));
            limits.begin(false, true);
            EXPECT_EQ(governing(limits), row.Before) << row.Response << ' ' << row.Data;
            limits.endHead();
            limits.updateDeadline(true, true);
            EXPECT_EQ(governing(limits), row.After) << row.Response << ' ' << row.Data;
        }
    }
}

TEST(SilenceLimits, DeadlineHasPassedOnlyAfterIt) {
    SilenceLimits limits;
    limits.Deadline = 5;
    EXPECT_FALSE(limits.isPassed(5));
    EXPECT_TRUE(limits.isPassed(6));
}

} // namespace
