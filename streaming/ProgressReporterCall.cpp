#include "streaming/ProgressReporterCall.h"

#include "errors/InternalError.h"
#include "host/Interrupt.h"
#include "hostcalls/HostObjectCall.h"

namespace netrove {

using namespace matrix::detail::noninlined::vx_array_api;

ProgressReporterCall::ProgressReporterCall(SharedHostArray reporter)
    : Reporter(std::move(reporter)), Counter(makeUInt64Scalar()) {
    if (Reporter == nullptr) {
        return;
    }
    const char* name = vxGetClassName(Reporter.get());
    ReporterClass = name == nullptr || *name == '\0' ? nullptr : vcos::internal::makeInterned(name);
    UpdateArgs[0] = Reporter.get();
    UpdateArgs[1] = Counter.get();
}

void ProgressReporterCall::update(std::uint64_t bytes) {
    if (Reporter == nullptr) {
        return;
    }
    uint64Of(Counter.get()) = bytes; // if the reporter has kept the last count, this writes to a copy of our own
    const HostArray goOn = callHostMethod(kReporterUpdate, ReporterClass, UpdateArgs);
    const bool isScalar = goOn != nullptr && arrayElementCount(goOn.get()) == 1;
    // The class is not checked: the first byte counts, and it may hold any bits, so it is not read as a bool.
    const void* first = isScalar ? vxGetLogicals(goOn.get()) : nullptr;
    if (first == nullptr) {
        throwInternalError("Expected ProgressReporter.update to return scalar.");
    }
    if (*static_cast<const unsigned char*>(first) == 0) {
        throw Zentorak::System::InterruptException(true);
    }
}

} // namespace netrove
