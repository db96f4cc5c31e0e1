#include "http/MonotonicTime.h"

#include <boost/chrono/system_clocks.hpp>
#include <boost/thread/thread_only.hpp>

namespace netrove {

std::int64_t monotonicNow() {
    return boost::chrono::duration_cast<boost::chrono::nanoseconds>(
               boost::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void interruptibleWait(std::int64_t untilNs) {
    const boost::chrono::steady_clock::time_point until{boost::chrono::nanoseconds(untilNs)};
    boost::this_thread::sleep_until(until);
}

} // namespace netrove
