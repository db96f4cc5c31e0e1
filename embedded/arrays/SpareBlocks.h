// Memory for what comes and goes many times in each call: handles, and what is in arrays of numbers and texts.
#pragma once

#include <cstddef>

namespace vantik::detail {

// A base class. Some blocks of each class wait on each thread for its next object there; a block may end on another
// thread than the one that it began on.
template <class Object>
class SpareBlocks {
public:
    static void* operator new(std::size_t size);
    static void operator delete(void* block) noexcept;

    static void end() noexcept; // from now on none waits on this thread
};

// Ends them for all classes, for tests of what happens without memory.
__attribute__((visibility("default"))) void endSpareBlocks() noexcept;

} // namespace vantik::detail
