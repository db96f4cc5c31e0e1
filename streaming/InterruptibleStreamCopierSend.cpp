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
// Providers that deliver less at a time may be waiting for what comes of it.
constexpr std::uint64_t kSmallestGathered = 16384;
// What has been gathered is not held back for longer: a provider that takes its time is asked once for each perform.
constexpr std::int64_t kGatherNs = kNsPerMs;

} // namespace

// `count` has two uses, kept on purpose: it counts empty waits, and it receives the number of running handles. While a
// transfer runs it is at least 1 after a perform, so the first empty wait after one already pauses.
void InterruptibleStreamCopier::sendRequest() {
    HTTPConnection& connection = *Connection;
    HostArray wantedSize;
    if (Provider != nullptr) {
        wantedSize = makeUInt64Scalar();
        WantedSize = connection.Settings.ProviderBufferSize == 0 ? kDefaultProviderBuffer
                                                                 : connection.Settings.ProviderBufferSize;
        uint64Of(wantedSize.get()) = WantedSize;
        ProviderArgs[1] = wantedSize.get();
    }
    ProgressReporterCall progress(connection.Settings.ProgressReporter);
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
        if (!refill()) {
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

// Asks the provider for more once its last arrays are used up. False: there is nothing left to offer.
bool InterruptibleStreamCopier::refill() {
    if (hasOffer()) {
        return true;
    }
    if (Provider == nullptr) {
        return false;
    }
    dropPieces(); // before the provider is asked, so that it may write into its last array again
    if (!std::exchange(ProviderEnded, false)) {
        askProvider();
    }
    if (offerNextPiece()) {
        return true;
    }
    PumpWantsData = false;
    resumeReading(); // the read callback now signals the end to libcurl
    return false;
}

// Once or, where the provider cannot tell the difference, until there is enough for one read of libcurl.
void InterruptibleStreamCopier::askProvider() {
    const std::int64_t start = monotonicNow();
    std::uint64_t gathered = 0;
    std::uint64_t length = 0;
    do {
        if (!Pieces.empty()) {
            utInterruptState::ThrowIfInterruptPending(); // as between two passes
        }
        length = takePiece();
        gathered += length;
    } while (mayAskAgain(length, gathered, start));
    ProviderEnded = length == 0;
}

// Returns the number of its bytes; 0: the provider has no more.
std::uint64_t InterruptibleStreamCopier::takePiece() {
    HostArray array = callHostMethod(kProviderGetData, ProviderClass, ProviderArgs);
    if (isNothing(array)) {
        return 0;
    }
    // Neither class nor size is checked: the first dimension is the number of bytes, unless the array is empty.
    const auto* data = static_cast<const std::uint8_t*>(vxGetData(static_cast<const vxArray_tag*>(array.get())));
    if (data == nullptr) {
        throwInternalError("vantik.net.http.io.ContentProvider.getDataInternal returned no bytes");
    }
    const std::uint64_t length = vxGetDimensions(array.get())[0];
    if (length != 0) {
        Pieces.push_back({std::move(array), data, length});
    }
    return length;
}

// Content of known length that comes in full pieces and without delay is gathered: each read of libcurl becomes a write
// to the network, and few large ones cost less. The first piece goes out alone, since the server may refuse what
// follows. A trace shows each piece, and once a head has come, progress is reported for each.
bool InterruptibleStreamCopier::mayAskAgain(std::uint64_t length, std::uint64_t gathered, std::int64_t start) const {
    const RunningTransfer& transfer = Connection->Transfer;
    return transfer.IsSentByLength && TotalSent != 0 && WantedSize >= kSmallestGathered && length >= WantedSize &&
           gathered + WantedSize <= kUploadBuffer &&
           TotalSent + gathered < static_cast<std::uint64_t>(transfer.ContentLengthToSend) &&
           Connection->Settings.Debug == 0 && !Connection->ReceivedHead.HeadersComplete &&
           monotonicNow() - start < kGatherNs;
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

// The provider's arrays are released with the pump, so none of it may stay on offer. Content in memory stays: a rewind
// in a later phase sends it again.
void InterruptibleStreamCopier::withdrawOffer() noexcept {
    PumpWantsData = false;
    if (Provider != nullptr) {
        ProviderArgs[1] = nullptr;
        ProviderEnded = false;
        dropPieces();
    }
}

void InterruptibleStreamCopier::dropPieces() noexcept {
    SendData = nullptr;
    SendLength = 0;
    SendPosition = 0;
    Pieces.clear();
    NextPiece = 0;
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
