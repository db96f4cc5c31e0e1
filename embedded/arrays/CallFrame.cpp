#include "embedded/arrays/CallFrame.h"

#include "embedded/arrays/Array.h"

#include <atomic>

namespace vantik::detail {

namespace {

thread_local CallFrame* innermost = nullptr;

std::atomic<std::size_t> reclaimedArrays{0};

} // namespace

CallFrame::CallFrame() noexcept : Enclosing(innermost) {
    innermost = this;
}

CallFrame::~CallFrame() {
    // The frame stays the innermost one meanwhile: an array may be the last owner of an object, and what that object
    // makes while it goes has to be released here too.
    while (Newest) {
        vxArray_tag* array = Newest;
        unlink(array); // moves Newest on, which clang-tidy does not see: NOLINT(clang-analyzer-cplusplus.NewDelete)
        delete array;
        reclaimedArrays.fetch_add(1, std::memory_order_relaxed);
    }
    innermost = Enclosing;
}

void CallFrame::handOut(vxArray_tag* result) noexcept {
    if (!result || result->Frame != this) {
        return;
    }
    unlink(result);
    if (Enclosing) {
        Enclosing->link(result);
    }
}

CallFrame* CallFrame::current() noexcept {
    return innermost;
}

std::size_t CallFrame::reclaimed() noexcept {
    return reclaimedArrays.load(std::memory_order_relaxed);
}

void CallFrame::link(vxArray_tag* array) noexcept {
    if (array->Frame || array->Nested) {
        return;
    }
    array->Frame = this;
    array->Older = Newest;
    if (Newest) {
        Newest->Newer = array;
    }
    Newest = array;
}

void CallFrame::unlink(vxArray_tag* array) noexcept {
    if (!array->Frame) {
        return;
    }
    if (array->Newer) {
        array->Newer->Older = array->Older;
    } else {
        array->Frame->Newest = array->Older;
    }
    if (array->Older) {
        array->Older->Newer = array->Newer;
    }
    array->Frame = nullptr;
    array->Newer = nullptr;
    array->Older = nullptr;
}

} // namespace vantik::detail
