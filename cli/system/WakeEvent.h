// Wakes a thread that waits in `poll`.
#pragma once

#include "cli/failures/CliFailure.h"
#include "cli/system/Descriptor.h"

#include <cerrno>
#include <cstdint>
#include <sys/eventfd.h>

namespace netrove::cli {

class WakeEvent {
public:
    WakeEvent() : Event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        if (Event.Number < 0) {
            failSystem(failure::kFailure, "eventfd", errno);
        }
    }

    int descriptor() const { return Event.Number; } // readable from `raise` to `clear`

    void raise() const noexcept {
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = write(Event.Number, &one, sizeof one); // full: readable anyway
    }
    void clear() const noexcept {
        std::uint64_t count = 0;
        [[maybe_unused]] const auto length = read(Event.Number, &count, sizeof count);
    }

private:
    Descriptor Event;
};

} // namespace netrove::cli
