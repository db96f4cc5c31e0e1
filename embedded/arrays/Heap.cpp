#include "host/Heap.h"

#include <cstdlib>

// The C heap, so that a block from `calloc` may end here.
void utFree(void* block) noexcept {
    std::free(block);
}
