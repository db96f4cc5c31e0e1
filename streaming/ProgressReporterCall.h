// The call by which each pump reports the byte count to a progress reporter, which may stop the transfer.
#pragma once

#include "host/ClassSystem.h"
#include "hostcalls/HostArray.h"

#include <cstdint>

namespace netrove {

// Lives on a pump's stack. Without a reporter it does nothing; the counter is made all the same, so that the pumps need
// no test.
class ProgressReporterCall {
public:
    explicit ProgressReporterCall(SharedHostArray reporter);

    // Raises Zentorak::System::InterruptException if the reporter says stop, and InternalError if it has no `update` or
    // returns anything but a scalar.
    void update(std::uint64_t bytes);

private:
    SharedHostArray Reporter;                        // null: none
    HostArray Counter;                               // the one uint64 scalar, written in place for every call
    vcos::InternedName ReporterClass = nullptr;      // the object's own class, read once
    vxArray_tag* UpdateArgs[2] = {nullptr, nullptr}; // the reporter, the counter
};

} // namespace netrove
