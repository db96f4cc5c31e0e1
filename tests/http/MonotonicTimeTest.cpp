#include "http/MonotonicTime.h"

#include <boost/thread/thread.hpp>
#include <gtest/gtest.h>

#include <limits>

using namespace netrove;

namespace {

TEST(MonotonicTime, PauseLastsUntilItsMomentAndIsNoneWhereThatHasPassed) {
    const std::int64_t start = monotonicNow();
    EXPECT_NE(start, NOT_A_TIME);
    interruptibleWait(start - 1);
    interruptibleWait(0);
    const std::int64_t until = monotonicNow() + 2'000'000;
    EXPECT_GE(until, start);
    interruptibleWait(until);
    EXPECT_GE(monotonicNow(), until);
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
