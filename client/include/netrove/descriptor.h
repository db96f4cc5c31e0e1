/// @file
/// Owners of file descriptors, and helpers for calls on them.
#pragma once

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdint>
#include <poll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace netrove {

struct Descriptor {
    int Number; // negative: none
    explicit Descriptor(int number) : Number(number) {}
    ~Descriptor() {
        if (Number >= 0) {
            ::close(Number);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
};

// Makes a system call, again if a signal has interrupted it, and returns its result. Not for close, which must never be
// repeated: the descriptor is gone, whatever the result.
template <class Call>
auto retried(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

// Flushes content to the disk. Returns 0 or an error number; 0 too if the file system has no such operation.
inline int syncContent(int descriptor) {
    return retried([=] { return fdatasync(descriptor); }) == 0 || errno == EINVAL ? 0 : errno;
}

// Wakes a thread that sleeps. `raise` and `clear` may be called in a signal handler.
class WakeEvent {
public:
    WakeEvent() : Event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        if (Event.Number < 0) {
            throw std::system_error(errno, std::generic_category(), "eventfd");
        }
    }

    int descriptor() const { return Event.Number; } // readable from `raise` to `clear`

    void raise() const noexcept {
        const int savedErrno = errno; // a signal handler leaves it alone
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = write(Event.Number, &one, sizeof one); // full: awake anyway
        errno = savedErrno;
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
