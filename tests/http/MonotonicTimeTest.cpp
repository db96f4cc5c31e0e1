#include "http/MonotonicTime.h"

#include <boost/thread/thread.hpp>
#include <gtest/gtest.h>

#include <limits>

using namespace netrove;

namespace {

TEST(MonotonicTime, NeverGoesBack) {
    const std::int64_t first = monotonicNow();
    EXPECT_NE(first, NOT_A_TIME);
    EXPECT_GE(monotonicNow(), first);
}

TEST(MonotonicTime, PauseLastsUntilItsMoment) {
    const std::int64_t until = monotonicNow() + 2'000'000;
    interruptibleWait(until);
    EXPECT_GE(monotonicNow(), until);
}

TEST(MonotonicTime, MomentThatHasPassedMeansNoPause) {
    const std::int64_t before = monotonicNow();
    interruptibleWait(before - 1);
    interruptibleWait(0);
    EXPECT_GE(monotonicNow(), before);
}

// The pause would take an hour.
TEST(MonotonicTime, InterruptedThreadLeavesThePause) {
    bool interrupted = false;
    boost::thread waiting([&] {
        try {
            interruptibleWait(monotonicNow() + 3'600'000'000'000);
        } catch (const boost::thread_interrupted&) {
            interrupted = true;
        }
    });
    waiting.interrupt();
    waiting.join();
    EXPECT_TRUE(interrupted);
}

} // namespace
