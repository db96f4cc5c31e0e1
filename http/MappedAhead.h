// Large memory that is written from its beginning to its end. The system makes each page of it ready at the first write
// there, which takes longer than the write; here it does so for many at a time, a little ahead of what is written.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <sys/mman.h>
#include <unistd.h>

namespace netrove {

class MappedAhead {
public:
    // Of `room` bytes at `begin`, the first `used` are written. Only saves time: what fails is done by the writes.
    void advance(char* begin, std::size_t used, std::size_t room) noexcept {
        if (room >= kSmallestRoom && Mapped < std::min(used + kStep / 2, room)) {
            const std::size_t from = std::max(Mapped, used);
            const std::size_t length = std::min(kStep, room - from);
            map(begin + from, length);
            Mapped = from + length;
        }
    }

private:
    // More than one perform brings, and little where nothing comes any more.
    static constexpr std::size_t kStep = std::size_t{1} << 20;
    static constexpr std::size_t kSmallestRoom = std::size_t{4} << 20;

    static void map(char* begin, std::size_t length) noexcept {
#ifdef MADV_POPULATE_WRITE
        static const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
        void* first = begin;
        if (std::align(page, page, first, length) != nullptr) {
            static_cast<void>(::madvise(first, length / page * page, MADV_POPULATE_WRITE));
        }
#else
        static_cast<void>(begin);
        static_cast<void>(length);
#endif
    }

    std::size_t Mapped = 0; // from the beginning on
};

} // namespace netrove
