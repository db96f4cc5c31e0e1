#include "streaming/InterruptibleStreamCopier.h"

#include "errors/MessageIdentifiers.h"
#include "hostcalls/HostObjectCall.h"
#include "http/MonotonicTime.h"
#include "transfer/CurlCalls.h"
#include "transfer/CurlSingleton.h"
#include "transfer/HTTPConnection.h"
#include "transfer/Trace.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace netrove {

namespace {

constexpr std::size_t kReceiveReservation = 16384;
constexpr int kPumpWaitMs = 1000; // whatever the timeouts are

} // namespace

InterruptibleStreamCopier::InterruptibleStreamCopier(HTTPConnection& connection)
    : Connection(&connection), Payload(connection.Settings.Payload), Provider(connection.Settings.Provider),
      ProviderClass(Provider != nullptr ? vcos::internal::makeInterned(kProviderClassName) : nullptr),
      ProviderArgs{Provider.get(), nullptr} {
    offerPayload();
    CURL* easy = connection.Handles->EasyHandle;
    setOption(easy, CURL_NAMED(CURLOPT_WRITEFUNCTION), &writeCallback);
    setOption(easy, CURL_NAMED(CURLOPT_WRITEDATA), this);
    setOption(easy, CURL_NAMED(CURLOPT_READFUNCTION), &readCallback);
    setOption(easy, CURL_NAMED(CURLOPT_READDATA), this);
    setOption(easy, CURL_NAMED(CURLOPT_SEEKFUNCTION), &seekCallback);
    setOption(easy, CURL_NAMED(CURLOPT_SEEKDATA), this);
    // Last, so that a refused option neither grows a buffer nor takes anything from the previous request's copier. One
    // perform may deliver far more than the reservation, so a buffer that has grown is worth keeping.
    if (connection.Transfer.Copier) {
        ReceiveBuffer = std::move(connection.Transfer.Copier->ReceiveBuffer);
        ReceiveBuffer.clear();
    }
    ReceiveBuffer.reserve(kReceiveReservation);
}

// Content in memory is offered first, before a provider's.
void InterruptibleStreamCopier::offerPayload() noexcept {
    SendData = Payload ? Payload->data() : nullptr;
    SendLength = Payload ? Payload->size() : 0;
    SendPosition = 0;
}

void InterruptibleStreamCopier::releaseContent() noexcept {
    Payload.reset();
    offerPayload();
    ProviderArgs[0] = nullptr;
    Provider.reset();
}

// What libcurl has read stays here until receiveResponse drains it. Nothing is refused, except after a failure, which
// ends the transfer at once.
std::size_t InterruptibleStreamCopier::writeCallback(char* data, std::size_t size, std::size_t count, void* copier) {
    auto* self = static_cast<InterruptibleStreamCopier*>(copier);
    const std::size_t length = size * count;
    return self->Connection->inCallback(std::size_t{0}, [&] { return self->takeBytes(data, length); });
}

// After a failure the upload is aborted: 0 would tell the server that the content is complete.
std::size_t InterruptibleStreamCopier::readCallback(char* buffer, std::size_t size, std::size_t count, void* copier) {
    auto* self = static_cast<InterruptibleStreamCopier*>(copier);
    return self->Connection->inCallback(std::size_t{CURL_READFUNC_ABORT},
                                        [&] { return self->giveBytes(buffer, size * count); });
}

// A provider that cannot be restarted fails the seek, which ends the transfer; its failure is rethrown after the
// libcurl call.
int InterruptibleStreamCopier::seekCallback(void* copier, curl_off_t offset, int /*origin*/) {
    auto* self = static_cast<InterruptibleStreamCopier*>(copier);
    return self->Connection->inCallback(int{CURL_SEEKFUNC_FAIL}, [&] { return self->rewind(offset); });
}

std::size_t InterruptibleStreamCopier::takeBytes(const char* data, std::size_t length) {
    Connection->Transfer.PerformDone = true; // the first byte of content ends the wait for the head
    const std::int32_t debug = Connection->Settings.Debug;
    if (debug != 0) {
        traceLine(debug, "RECEIVING " + std::to_string(length) + " BYTES");
        if (debug > 1) { // on a line of its own, unlike the bytes sent: kept on purpose
            traceLine(debug, {data, length});
        }
    }
    const std::size_t size = waiting() + length;
    const std::size_t largest = ReceiveLimit + kLargestExpansion;
    if (size > largest) {
        VANTIK::raise<VANTIK::webservices::DecodingError>(Connection->ReceivedHead.getResponseField("Content-Encoding"),
                                                          "a few bytes of it expand to more than " +
                                                              std::to_string(kLargestExpansion) + " bytes of content");
    }
    if (size > 2 * ReceiveLimit) { // growing step by step would need twice as much
        ReceiveBuffer.reserve(largest);
    }
    const std::size_t landed = land({data, length});
    ReceiveBuffer.append(data + landed, length - landed);
    Connection->Transfer.Tail.noteDecoded(length);
    if (waiting() >= ReceiveLimit && !WritePaused && Connection->ReceivedHead.expandsLittle()) {
        pause();
    }
    return length;
}

// Returns how many have found room.
std::size_t InterruptibleStreamCopier::land(std::span<const char> bytes) noexcept {
    std::size_t taken = 0;
    if (ReceiveBuffer.empty() && !Landing.empty()) {
        const std::size_t part = Landing.front().size();
        while (taken != bytes.size() && Landed != part * Landing.size()) {
            const std::span<char> room = Landing[Landed / part].subspan(Landed % part);
            const std::size_t length = std::min(room.size(), bytes.size() - taken);
            std::copy_n(bytes.data() + taken, length, room.data());
            taken += length;
            Landed += length;
        }
    }
    return taken;
}

// By the call and not by the callback's return value: after that, libcurl would copy what it keeps again for each piece
// we take.
void InterruptibleStreamCopier::pause() {
    WritePaused = true;
    applyPauses();
}

void InterruptibleStreamCopier::pauseAtLimit() {
    if (waiting() >= ReceiveLimit && !WritePaused) {
        pause();
    }
}

// Returning 0 ends the content for good. libcurl may ask a second time in one perform (8.x does in the perform that
// starts a request); while the pump can still get more from the provider, the upload is paused instead, and the pump
// resumes it. Once the provider has reported the end, and for content in memory, having nothing on offer means the end.
std::size_t InterruptibleStreamCopier::giveBytes(char* buffer, std::size_t room) {
    if (Connection->Transfer.Fault != TransferFault::None) {
        return CURL_READFUNC_ABORT;
    }
    if (!hasOffer()) {
        if (PumpWantsData) {
            ReadPaused = true;
            return CURL_READFUNC_PAUSE;
        }
        noteEndOfUpload();
        return 0;
    }
    const std::size_t length = copyOffer(buffer, room);
    if (length == 0) {
        return 0; // there was no room
    }
    TotalSent += length;
    const RunningTransfer& transfer = Connection->Transfer;
    if (transfer.HasContentLength && TotalSent >= static_cast<std::uint64_t>(transfer.ContentLengthToSend)) {
        noteEndOfUpload();
    }
    const std::int32_t debug = Connection->Settings.Debug;
    if (debug > 1) {
        traceLine(debug, "SENDING " + std::to_string(length) + " BYTES: " + std::string(buffer, length));
    } else if (debug == 1) {
        traceLine(debug, "SENDING " + std::to_string(length) + " BYTES");
    }
    Connection->updateDeadline();
    return length;
}

std::size_t InterruptibleStreamCopier::copyOffer(char* buffer, std::size_t room) {
    std::size_t copied = 0;
    do {
        if (SendPosition < SendLength) {
            const std::size_t length = std::min<std::uint64_t>(room - copied, SendLength - SendPosition);
            std::memcpy(buffer + copied, SendData + SendPosition, length);
            SendPosition += length;
            copied += length;
        }
    } while (copied < room && offerNextPiece());
    return copied;
}

// False: there is none.
bool InterruptibleStreamCopier::offerNextPiece() noexcept {
    if (NextPiece == Pieces.size()) {
        return false;
    }
    SendData = Pieces[NextPiece].Data;
    SendLength = Pieces[NextPiece].Length;
    SendPosition = 0;
    ++NextPiece;
    return true;
}

// All content has been handed over. A head that arrived earlier has forbidden the reuse of the network connection.
void InterruptibleStreamCopier::noteEndOfUpload() {
    if (std::exchange(Connection->Transfer.UploadPending, false) && Connection->ReceivedHead.HeadersComplete) {
        setOption(Connection->Handles->EasyHandle, CURL_NAMED(CURLOPT_FORBID_REUSE), 0L);
    }
}

// libcurl is about to send the body again. Each seek is taken as absolute; content in memory is offered again from
// there. A provider is restarted here, inside libcurl's call, and delivers everything again, so its last arrays are
// withdrawn. Once the pump has ended, nothing asks a provider any more: the seek fails, which ends the transfer before
// a server could take no content for all of it.
int InterruptibleStreamCopier::rewind(curl_off_t offset) {
    const bool nothingWasSent = TotalSent == 0;
    TotalSent += static_cast<std::uint64_t>(offset) - SendPosition; // modular: may go back
    SendPosition = static_cast<std::uint64_t>(offset);
    Connection->Transfer.UploadPending = true;
    traceLine(Connection->Settings.Debug, "RESETTING STREAM TO " + std::to_string(offset));
    if (Provider == nullptr) {
        return CURL_SEEKFUNC_OK;
    }
    callHostMethod(kProviderStart, ProviderClass, std::span<vxArray_tag*>(ProviderArgs, 1));
    if (!PumpWantsData && !nothingWasSent) {
        Connection->Transfer.Fault = TransferFault::UploadBroken;
        return CURL_SEEKFUNC_FAIL;
    }
    if (PumpWantsData) {
        NextPiece = Pieces.size(); // the next refill releases them: no host object goes inside libcurl's call
        ProviderEnded = false;
        offerPayload();
    }
    return CURL_SEEKFUNC_OK;
}

// Ends the pauses named and keeps the other one. libcurl may run the write callback in here, which may pause again. The
// pause was ours, so it does not count as silence of the server.
void InterruptibleStreamCopier::resume(bool reading, bool writing) {
    ReadPaused = ReadPaused && !reading;
    WritePaused = WritePaused && !writing;
    Connection->updateDeadline();
    applyPauses();
}

void InterruptibleStreamCopier::applyPauses() {
    const int paused = (ReadPaused ? CURLPAUSE_SEND : 0) | (WritePaused ? CURLPAUSE_RECV : 0);
    const CURLcode code = curl_easy_pause(Connection->Handles->EasyHandle, paused);
    Connection->rethrowEscapedFailure();
    if (code != CURLE_OK) {
        Connection->Transfer.Fault = TransferFault::Failed;
        throwCurlCodeError("curl_easy_pause", code, "");
    }
}

// The wait at the start of a pump's pass. Repeated empty waits pause, so that a pump does not spin while libcurl has no
// descriptors; the timeout is checked only after an empty wait.
void InterruptibleStreamCopier::awaitActivity(int& emptyWaits) {
    if (Connection->wait(kPumpWaitMs) != 0) {
        emptyWaits = 0;
        return;
    }
    if (++emptyWaits > 1) {
        interruptibleWait(monotonicNow() + kEmptyWaitPauseNs);
    }
    Connection->checkTimeout(NOT_A_TIME, false);
}

} // namespace netrove
