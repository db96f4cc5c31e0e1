// The monotonic clock, and a pause on it.
#pragma once

#include <cstdint>
#include <limits>

namespace netrove {

// Means that there is no start time.
inline constexpr std::int64_t NOT_A_TIME = std::numeric_limits<std::int64_t>::min();

// Nanoseconds of a steady clock.
std::int64_t monotonicNow();

inline constexpr std::int64_t kNsPerMs = 1'000'000;

// How long the loops pause after repeated empty waits.
inline constexpr std::int64_t kEmptyWaitPauseNs = 100'000'000;

// Sleeps until a moment of the monotonic clock. Interrupting the boost::thread that it runs on cuts it short (with
// boost::thread_interrupted). `boost::this_thread::interruptible_wait`, which waits on a handle as well, exists on
// Windows only.
void interruptibleWait(std::int64_t untilNs);

} // namespace netrove
