// Makes libcurl ask for request content twice in one go, as its later versions do in the perform that starts a request.
//
// The executable that links this stands in for two functions of libcurl towards the loaded module: it puts a read
// callback of its own in front of the module's, and watches for the end of pauses.
#pragma once

#include <cstddef>

namespace testsupport {

struct DoubledReads {
    std::size_t Seconds = 0; // second reads that were made
    std::size_t Pauses = 0;  // of these, how many were answered with a pause
    std::size_t Ends = 0;    // of these, how many were answered with the end of the content
};

// Counts since the last call.
DoubledReads takeDoubledReads();

} // namespace testsupport
