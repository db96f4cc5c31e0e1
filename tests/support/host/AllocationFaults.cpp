#include "tests/support/host/AllocationFaults.h"

#include "embedded/arrays/SpareBlocks.h"

#include <curl/curl.h>

#include <cstdlib>
#include <cstring>
#include <new>

namespace testsupport {
namespace {

struct Faults {
    bool Counting = false;
    bool Failed = false;
    Allocator Of = Allocator::New;
    std::size_t Left = 0;
};

Faults& faults() noexcept {
    static thread_local Faults value;
    return value;
}

bool failsNow(Allocator allocator) noexcept {
    Faults& now = faults();
    if (!now.Counting || now.Of != allocator || AllocationsSpared::depth() != 0) {
        return false;
    }
    const bool fails = --now.Left == 0;
    now.Counting = !fails;
    now.Failed = fails;
    return fails;
}

void* allocate(std::size_t size) {
    return failsNow(Allocator::Libcurl) ? nullptr : std::malloc(size);
}

void* allocateCleared(std::size_t count, std::size_t size) {
    return failsNow(Allocator::Libcurl) ? nullptr : std::calloc(count, size);
}

void* reallocate(void* block, std::size_t size) {
    return failsNow(Allocator::Libcurl) ? nullptr : std::realloc(block, size);
}

char* duplicate(const char* text) {
    return failsNow(Allocator::Libcurl) ? nullptr : ::strdup(text);
}

} // namespace

void failAllocation(Allocator allocator, std::size_t nth) noexcept {
    vantik::detail::endSpareBlocks();
    faults() = {true, false, allocator, nth};
}

bool endAllocationFaults() noexcept {
    faults().Counting = false;
    return faults().Failed;
}

} // namespace testsupport

// Found by the host, which starts libcurl, before libcurl's own.
extern "C" __attribute__((visibility("default"))) CURLcode curl_global_init(long flags) {
    using namespace testsupport;
    return curl_global_init_mem(flags, &allocate, &std::free, &reallocate, &duplicate, &allocateCleared);
}

// All forms, since AddressSanitizer's own would not call these. Never inlined: the compiler would take `free` for the
// counterpart of another operator new.
__attribute__((noinline)) void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return testsupport::failsNow(testsupport::Allocator::New) ? nullptr : std::malloc(size == 0 ? 1 : size);
}
__attribute__((noinline)) void* operator new(std::size_t size) {
    if (void* block = operator new(size, std::nothrow)) {
        return block;
    }
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return operator new(size, std::nothrow);
}

__attribute__((noinline)) void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    operator delete(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
    operator delete(block);
}
void operator delete[](void* block) noexcept {
    operator delete(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    operator delete(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
    operator delete(block);
}
