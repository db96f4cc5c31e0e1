// An owner of a file descriptor.
#pragma once

#include <unistd.h>

namespace netrove::cli {

struct Descriptor {
    int Number; // negative: none
    explicit Descriptor(int number) : Number(number) {}
    ~Descriptor() {
        if (Number >= 0)
            ::close(Number);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
};

} // namespace netrove::cli
