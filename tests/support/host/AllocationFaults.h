// Makes one allocation of the thread fail, counted from a moment on. Works in executables that link
// AllocationFaults.cpp, which replaces operator new and supplies libcurl with memory.
#pragma once

#include <cstddef>

namespace testsupport {

enum class Allocator {
    New,    // of C++: std::bad_alloc
    Libcurl // of libcurl for itself: a null pointer
};

// The n-th allocation from now fails, once.
void failAllocation(Allocator allocator, std::size_t nth) noexcept;
// Ends that. True where one has failed.
bool endAllocationFaults() noexcept;

// What a test itself allocates in the middle of what it tests counts for nothing and does not fail.
class AllocationsSpared {
public:
    AllocationsSpared() noexcept { ++depth(); }
    ~AllocationsSpared() { --depth(); }
    AllocationsSpared(const AllocationsSpared&) = delete;
    AllocationsSpared& operator=(const AllocationsSpared&) = delete;

    static int& depth() noexcept {
        static thread_local int value = 0;
        return value;
    }
};

} // namespace testsupport
