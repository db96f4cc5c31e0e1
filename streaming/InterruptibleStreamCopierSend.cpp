#include "errors/HTTPException.h"
#include "errors/InternalError.h"
#include "errors/ScopeExit.h"
#include "host/Interrupt.h"
#include "hostcalls/HostObjectCall.h"
#include "http/MonotonicTime.h"
#include "streaming/InterruptibleStreamCopier.h"
#include "streaming/ProgressReporterCall.h"
#include "transfer/CurlCalls.h"
#include "transfer/CurlSingleton.h"
#include "transfer/HTTPConnection.h"
#include "transfer/Trace.h"

namespace netrove {

using namespace matrix::detail::noninlined::vx_array_api;

namespace {

constexpr std::uint64_t kDefaultProviderBuffer = 16384;

} // namespace

// `count` has two uses, kept on purpose: it counts empty waits, and it receives the number of running handles. While a
// transfer runs it is at least 1 after a perform, so the first empty wait after one already pauses.
void InterruptibleStreamCopier::sendRequest() {
    HTTPConnection& connection = *Connection;
    HostArray wantedSize;
    if (Provider != nullptr) {
        wantedSize = makeUInt64Scalar();
        uint64Of(wantedSize.get()) = connection.Settings.ProviderBufferSize == 0
                                         ? kDefaultProviderBuffer
                                         : connection.Settings.ProviderBufferSize;
        ProviderArgs[1] = wantedSize.get();
    }
    ProgressReporterCall progress(connection.Settings.ProgressReporter);
    HostArray lastArray; // SendData points into it
    bool hasEnded = false;
    const ScopeExit leave([&] {
        withdrawOffer();
        if (!hasEnded) {
            breakUpload();
        }
        flushRepeats();
    });
    if (Provider != nullptr) {
        callHostMethod(kProviderStart, ProviderClass, std::span<vxArray_tag*>(ProviderArgs, 1));
        PumpWantsData = true;
    }
    int count = 0;
    do {
        if (!ReadPaused && !WritePaused) { // during a pause there is nothing to wait for
            awaitActivity(count);
        }
        if (!refill(lastArray)) {
            break;
        }
        resumeReading();
        makeRoomForEarlyContent();
        tracePerform(connection.Settings.Debug, "WRITER");
        count = connection.perform("writing to network");
        if (count == 0) {
            connection.checkCompletion(NOT_A_TIME);
        }
        utInterruptState::ThrowIfInterruptPending();
        if (connection.ReceivedHead.HeadersComplete) {
            progress.update(TotalSent);
        }
    } while (count != 0);
    hasEnded = true;
}

// Asks the provider for more once its last array is used up. False: there is nothing left to offer.
bool InterruptibleStreamCopier::refill(HostArray& lastArray) {
    if (SendPosition < SendLength) {
        return true;
    }
    if (Provider == nullptr) {
        return false;
    }
    HostArray next = callHostMethod(kProviderGetData, ProviderClass, ProviderArgs);
    // Neither class nor size is checked: the first dimension is the number of bytes, unless the array is empty.
    SendData = nullptr;
    SendLength = 0;
    if (!isNothing(next)) {
        SendData = static_cast<const std::uint8_t*>(vxGetData(static_cast<const vxArray_tag*>(next.get())));
        if (SendData == nullptr) {
            throwInternalError("vantik.net.http.io.ContentProvider.getDataInternal returned no bytes");
        }
        SendLength = vxGetDimensions(next.get())[0];
    }
    SendPosition = 0;
    lastArray = std::move(next);
    if (SendLength != 0) {
        return true;
    }
    PumpWantsData = false;
    resumeReading(); // the read callback now signals the end to libcurl
    return false;
}

void InterruptibleStreamCopier::resumeReading() {
    if (ReadPaused) {
        resume(true, false);
    }
}

// A server may answer while it still reads, and may read no further until its answer is taken.
void InterruptibleStreamCopier::makeRoomForEarlyContent() {
    if (!WritePaused) {
        return;
    }
    if (ReceiveLimit >= kLargestEarlyContent) {
        throw webservices::HTTPCopyStreamException("More than " + std::to_string(kLargestEarlyContent) +
                                                   " bytes of the response came before the request had been sent.");
    }
    ReceiveLimit += kReceiveStep;
    resume(false, true);
}

// The provider's array is released with the pump, so none of it may stay on offer. Content in memory stays: a rewind in
// a later phase sends it again.
void InterruptibleStreamCopier::withdrawOffer() noexcept {
    PumpWantsData = false;
    if (Provider != nullptr) {
        ProviderArgs[1] = nullptr;
        SendData = nullptr;
        SendLength = 0;
        SendPosition = 0;
    }
}

// No server may take what it has received for all of it: from here on the read callback aborts, and a pause is ended so
// that libcurl calls it.
void InterruptibleStreamCopier::breakUpload() noexcept {
    if (Connection->Transfer.Fault == TransferFault::None) {
        Connection->Transfer.Fault = TransferFault::UploadBroken;
    }
    if (std::exchange(ReadPaused, false)) {
        static_cast<void>(
            curl_easy_pause(Connection->Handles->EasyHandle, WritePaused ? CURLPAUSE_RECV : CURLPAUSE_CONT));
    }
}

} // namespace netrove
