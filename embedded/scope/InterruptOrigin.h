// Who asked for the stop that an interrupt exception reports. Attached to the exception, since the contract does not
// have it: only the embedding API needs to know.
#pragma once

#include "host/Interrupt.h"

#include <boost/exception/get_error_info.hpp>
#include <boost/exception/info.hpp>

namespace vantik::detail {

using RequestedByProgram = boost::error_info<struct RequestedByProgramTag, bool>;

inline bool requestedByProgram(const Zentorak::System::InterruptException& interrupt) {
    const bool* const byProgram = boost::get_error_info<RequestedByProgram>(interrupt);
    return byProgram != nullptr && *byProgram;
}

} // namespace vantik::detail
