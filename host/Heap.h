// The host's heap (libut). Blocks from `calloc` and blocks freed by `utFree` belong to one heap, so an object that the
// library allocates with `calloc` can be released by the class system.
#pragma once

#include "host/HostApi.h"

// Frees a block of host-compatible heap. Null is allowed.
extern "C" VANTIK_HOST_API void utFree(void* block) noexcept;
