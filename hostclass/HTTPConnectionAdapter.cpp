#include "hostclass/HTTPConnectionAdapter.h"

#include "hostcalls/HostObjectCall.h"
#include "hostcalls/NumericNarrowing.h"
#include "hostclass/ValueConversion.h"

#include <utility>

using namespace netrove;
namespace vx = matrix::detail::noninlined::vx_array_api;

HTTPConnectionAdapter::HTTPConnectionAdapter() {
    setResponseCode(0.0);
    Connection.Settings.Decode = true;
    Connection.Settings.VerifyServerName = true;
}

// The reporter, the consumer and the provider go in this order, before any other field.
HTTPConnectionAdapter::~HTTPConnectionAdapter() {
    Connection.Settings.ProgressReporter.reset();
    Connection.Settings.Consumer.reset();
    Connection.Settings.Provider.reset();
}

void HTTPConnectionAdapter::setResponseCode(double code) {
    Connection.ReceivedHead.ResponseCode = narrowToInt32(code);
}

void HTTPConnectionAdapter::adoptHostObject(SharedHostArray RequestSettings::*field, const vxArray_tag* array,
                                            const char* className) {
    checkArrayClass(array, className);
    HostArray copy;
    if (array != nullptr && !vx::vxIsEmpty(array)) {
        copy.reset(vx::vxCreateSharedDataCopy(array));
        vx::vxSetArrayScope(copy.get(), vxPERSISTENT_SCOPE);
    }
    // The old object goes last: the connection no longer refers to it then, and `array` may have been that very handle.
    const SharedHostArray previous = std::exchange(Connection.Settings.*field, SharedHostArray(std::move(copy)));
}

HostArray HTTPConnectionAdapter::takeResponse() {
    HostArray content = ResponseBuffer.release();
    emptyResponseBuffer();
    return content;
}

void HTTPConnectionAdapter::emptyResponseBuffer() {
    ResponseBuffer.clear();
    if (Connection.Transfer.Target == &ResponseBuffer) {
        Connection.Transfer.Target = nullptr;
    }
}

void HTTPConnectionAdapter::dropReceived() {
    RunningTransfer& transfer = Connection.Transfer;
    if (transfer.Target == &ResponseBuffer && transfer.PassedOn != 0) {
        ResponseBuffer.erase(static_cast<std::size_t>(transfer.TargetStart), transfer.PassedOn);
        transfer.Target = nullptr;
    }
}
