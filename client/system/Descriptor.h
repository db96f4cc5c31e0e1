// An owner of a file descriptor, and a helper for calls on it.
#pragma once

#include <cerrno>
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

} // namespace netrove
