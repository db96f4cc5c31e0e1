#include "hostclass/HTTPConnectionAdapter.h"

#include "hostcalls/HostObjectCall.h"
#include "hostcalls/NumericNarrowing.h"
#include "hostclass/ValueConversion.h"

#include <utility>

namespace vx = matrix::detail::noninlined::vx_array_api;

HTTPConnectionAdapter::HTTPConnectionAdapter() {
    setResponseCode(0.0);
    connection.Decode = true;
    adoptHostObject(&HTTPConnectionAdapter::progressReporter, nullptr, ProgressReporterClassName,
                    &HTTPConnection::ProgressReporter);
    adoptHostObject(&HTTPConnectionAdapter::provider, nullptr, ProviderClassName, &HTTPConnection::Provider);
    adoptHostObject(&HTTPConnectionAdapter::consumer, nullptr, ConsumerClassName, &HTTPConnection::Consumer);
    connection.VerifyServerName = true;
}

HTTPConnectionAdapter::~HTTPConnectionAdapter() {
    // The reporter goes first although it was declared first; the consumer, the provider and all other fields follow in
    // reverse order of declaration.
    progressReporter.reset();
}

void HTTPConnectionAdapter::setResponseCode(double code) {
    connection.ResponseCode = narrowToInt32(code);
}

void HTTPConnectionAdapter::setPayload(std::vector<std::uint8_t> payload) {
    if (runningTransfers != 0) {
        replacedPayloads.emplace_back(); // room first: from here on nothing fails
    }
    connection.Payload.swap(payload);
    if (runningTransfers != 0) {
        replacedPayloads.back().swap(payload);
    }
}

void HTTPConnectionAdapter::adoptHostObject(HostArray HTTPConnectionAdapter::*field, const vxArray_tag* array,
                                            const char* className, vxArray_tag* HTTPConnection::*borrowed) {
    checkArrayClass(array, className);
    HostArray copy;
    if (array != nullptr && !vx::vxIsEmpty(array)) {
        copy.reset(vx::vxCreateSharedDataCopy(array));
        vx::vxSetArrayScope(copy.get(), vxPERSISTENT_SCOPE);
    }
    if (runningTransfers != 0) {
        replacedObjects.emplace_back(); // room first: from here on nothing fails
    }
    // The old object goes last: neither the adapter nor the connection names it then, and `array` may have been that
    // very handle.
    HostArray previous = std::exchange(this->*field, std::move(copy));
    connection.*borrowed = (this->*field).get();
    if (runningTransfers != 0) {
        replacedObjects.back() = std::move(previous);
    }
}

void HTTPConnectionAdapter::emptyResponseBuffer() {
    // A swap gives the memory of a large response back now; an emptied string would keep it until the object goes.
    std::ostringstream().swap(responseBuffer);
}

HTTPConnectionAdapter::Transfer::~Transfer() {
    if (--Adapter.runningTransfers == 0) {
        // Moved out first: releasing an object may run host code that comes back here.
        const auto objects = std::exchange(Adapter.replacedObjects, {});
        const auto payloads = std::exchange(Adapter.replacedPayloads, {});
    }
}
