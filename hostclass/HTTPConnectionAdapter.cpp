#include "hostclass/HTTPConnectionAdapter.h"

#include "hostcalls/HostObjectCall.h"
#include "hostcalls/NumericNarrowing.h"
#include "hostclass/ValueConversion.h"

#include <utility>

namespace vx = matrix::detail::noninlined::vx_array_api;

HTTPConnectionAdapter::HTTPConnectionAdapter() {
    setResponseCode(0.0);
    connection.Settings.Decode = true;
    connection.Settings.VerifyServerName = true;
}

// The reporter, the consumer and the provider go in this order, before any other field.
HTTPConnectionAdapter::~HTTPConnectionAdapter() {
    connection.Settings.ProgressReporter.reset();
    connection.Settings.Consumer.reset();
    connection.Settings.Provider.reset();
}

void HTTPConnectionAdapter::setResponseCode(double code) {
    connection.ReceivedHead.ResponseCode = narrowToInt32(code);
}

void HTTPConnectionAdapter::adoptHostObject(SharedHostArray RequestSettings::*field, const vxArray_tag* array,
                                            const char* className) {
    checkArrayClass(array, className);
    HostArray copy;
    if (array != nullptr && !vx::vxIsEmpty(array)) {
        copy.reset(vx::vxCreateSharedDataCopy(array));
        vx::vxSetArrayScope(copy.get(), vxPERSISTENT_SCOPE);
    }
    // The old object goes last: the connection no longer names it then, and `array` may have been that very handle.
    const SharedHostArray previous = std::exchange(connection.Settings.*field, SharedHostArray(std::move(copy)));
}

void HTTPConnectionAdapter::emptyResponseBuffer() {
    // A swap gives the memory of a large response back now; an emptied string would keep it until the object goes.
    std::ostringstream().swap(responseBuffer);
    if (connection.Transfer.Target == &responseBuffer) {
        connection.Transfer.Target = nullptr;
    }
}

void HTTPConnectionAdapter::dropReceived() {
    const RunningTransfer& transfer = connection.Transfer;
    if (transfer.Target == &responseBuffer && transfer.PassedOn != 0) {
        std::string bytes = std::move(responseBuffer).str();
        bytes.erase(static_cast<std::size_t>(transfer.TargetStart), transfer.PassedOn);
        emptyResponseBuffer();
        responseBuffer << bytes;
    }
}
