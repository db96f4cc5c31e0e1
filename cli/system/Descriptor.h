// An owner of a file descriptor, and how its calls are made.
#pragma once

#include <cerrno>
#include <unistd.h>

namespace netrove::cli {

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

// Makes a system call, again where a signal has cut it off, and gives its result. Not for close, which is never to be
// repeated: the descriptor is gone, whatever the result.
template <class Call>
auto retried(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

// Brings content to the disk. 0, or an error number; also 0 where the file system knows no such operation.
inline int syncContent(int descriptor) {
    return retried([=] { return fdatasync(descriptor); }) == 0 || errno == EINVAL ? 0 : errno;
}

} // namespace netrove::cli
