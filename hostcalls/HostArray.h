// Owners of a host array handle, and what both the streaming code and the host class ask of arrays.
#pragma once

#include "host/ArrayApi.h"

#include <cstddef>
#include <memory>

namespace netrove {

using HostArray = std::unique_ptr<vxArray_tag, matrix::vxDestroy_deleter>;
// A shared handle: the last owner releases it. Made from a HostArray.
using SharedHostArray = std::shared_ptr<vxArray_tag>;

// Product of the dimensions; 1 for an array that lists none.
inline std::size_t arrayElementCount(const vxArray_tag* array) {
    using namespace matrix::detail::noninlined::vx_array_api;
    const std::size_t* dimensions = vxGetDimensions(array);
    std::size_t count = 1;
    for (std::size_t i = 0; i < vxGetNumberOfDimensions(array); ++i) {
        count *= dimensions[i];
    }
    return count;
}

} // namespace netrove
