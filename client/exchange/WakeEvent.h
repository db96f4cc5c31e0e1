// Wakes a thread that sleeps; async-signal-safe.
#pragma once

#include "client/failures/ClientFailure.h"

#include <netrove/descriptor.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdint>
#include <poll.h>
#include <sys/eventfd.h>

namespace netrove {

class WakeEvent {
public:
    WakeEvent() : Event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        if (Event.Number < 0) {
            failSystem("Failure", "eventfd", errno);
        }
    }

    void raise() const noexcept {
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = write(Event.Number, &one, sizeof one); // full: awake anyway
    }
    void clear() const noexcept {
        std::uint64_t count = 0;
        [[maybe_unused]] const auto length = read(Event.Number, &count, sizeof count);
    }
    // True once the time has come; false if `raise` came first.
    bool sleepUntil(std::chrono::steady_clock::time_point end) const {
        for (;;) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
            if (left.count() <= 0) {
                return true;
            }
            pollfd entry{Event.Number, POLLIN, 0};
            const int most = static_cast<int>(std::min<std::int64_t>(left.count(), INT_MAX));
            if (poll(&entry, 1, most) > 0) {
                return false;
            }
        }
    }

private:
    Descriptor Event;
};

} // namespace netrove
