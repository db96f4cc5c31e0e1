#include "errors/HTTPException.h"
#include "errors/InternalError.h"
#include "errors/MessageIdentifiers.h"
#include "errors/ScopeExit.h"
#include "host/Interrupt.h"
#include "hostcalls/HostObjectCall.h"
#include "hostcalls/NumericNarrowing.h"
#include "http/MonotonicTime.h"
#include "streaming/ContentBuffer.h"
#include "streaming/InterruptibleStreamCopier.h"
#include "streaming/ProgressReporterCall.h"
#include "transfer/CurlCalls.h"
#include "transfer/CurlSingleton.h"
#include "transfer/HTTPConnection.h"
#include "transfer/Trace.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace netrove {

using namespace matrix::detail::noninlined::vx_array_api;

namespace {

constexpr std::uint64_t kLargestPiece = 16384;
constexpr std::uint64_t kLargestDecodedInMemory = std::uint64_t{512} << 20;

} // namespace

// The state of one receiveResponse.
struct InterruptibleStreamCopier::Receiver {
    vcos::InternedName ConsumerClass;
    SharedHostArray ConsumerShare; // the connection may have another by the next piece
    vxArray_tag* Consumer;         // in ConsumerShare; null: none
    std::ostream* SaveTo;          // borrowed; null: none
    ContentBuffer* Memory;         // that is SaveTo; null: it is something else
    ProgressReporterCall Progress;
    std::uint64_t PieceSize = kLargestPiece; // largest piece passed to the consumer
    int Idle = 0;                            // empty waits in a row
    int Running = 0;                         // handles that the last perform left running, or set here
    std::uint64_t Total = 0;                 // bytes passed on
    HostArray Piece = {};                    // the last one passed to the consumer
    std::size_t PieceLength = 0;             // its length
    std::vector<HostArray> Places = {};      // largest pieces, in which content lands

    std::span<vxArray_tag*> self() { return {&Consumer, 1}; }

    // A column of these bytes. It is the last one again where the length is the same: if the consumer has kept that,
    // the host lets us write to a copy.
    vxArray_tag* pieceOf(std::span<const char> bytes) {
        if (Piece != nullptr && PieceLength == bytes.size()) {
            std::memcpy(vxGetData(Piece.get()), bytes.data(), bytes.size());
        } else {
            Piece = makeByteColumn(bytes);
            PieceLength = bytes.size();
        }
        return Piece.get();
    }

    void makePlaces(std::size_t count) {
        while (Places.size() < count) {
            Places.emplace_back(vxCreateNumericMatrix(kLargestPiece, 1, vxUINT8_CLASS, vxREAL));
        }
    }

    // Calls a method of the consumer, if there is one. A consumer without the method is accepted, on purpose.
    void notify(const HostMethod& method) {
        if (Consumer != nullptr) {
            HostArray ignored;
            tryHostMethod(method, ConsumerClass, self(), ignored);
        }
    }
    // The same while a failure is being handled: what the consumer raises does not replace that failure.
    void notifyOfFailure(const HostMethod& method) noexcept {
        try {
            notify(method);
        } catch (...) { // see above
        }
    }
};

void InterruptibleStreamCopier::receiveResponse(std::ostream* saveTo) {
    const RequestSettings& settings = Connection->Settings;
    Receiver receiver{vcos::internal::makeInterned(kConsumerClassName),
                      settings.Consumer,
                      settings.Consumer.get(),
                      saveTo,
                      dynamic_cast<ContentBuffer*>(saveTo),
                      ProgressReporterCall(settings.ProgressReporter)};
    const ScopeExit leave([this] {
        takeBackLanded();
        flushRepeats();
    });
    ReceiveLimit = kReceiveStep;
    if (receiver.Consumer != nullptr) {
        const HostArray wanted = callHostMethod(kConsumerStart, receiver.ConsumerClass, receiver.self());
        if (!isNothing(wanted)) {
            // Only a value that truncates to 0 fails, whatever the text says: a negative one wraps to a huge size.
            const std::uint64_t size = wrapToUInt64(vxGetScalar(wanted.get()));
            if (size == 0) {
                throwInternalError("ContentConsumer.startInternal returned bufSize <= 0");
            }
            receiver.PieceSize = std::min(size, kLargestPiece);
        }
    }
    try {
        drainUntilDone(receiver);
    } catch (const std::exception&) {
        receiver.notifyOfFailure(kConsumerClose);
        throw;
    }
    receiver.notify(kConsumerClose);
    // The only test of the stream, after the whole transfer: kept on purpose, the consumer has then seen everything.
    if (saveTo != nullptr && saveTo->bad()) {
        throw webservices::HTTPCopyStreamException("Error saving to local data stream.");
    }
}

// While bytes are buffered no network step runs, so libcurl never gets ahead by more than it is allowed: a slow
// consumer slows the socket instead of filling memory.
void InterruptibleStreamCopier::drainUntilDone(Receiver& receiver) {
    do {
        if (waiting() == 0) {
            prepareLanding(receiver);
            receiveOnce(receiver);
        } else {
            receiver.Running = 1;
        }
        std::size_t length = waiting();
        if (length == 0 && receiver.Running == 0) {
            return;
        }
        if (receiver.Consumer == nullptr && receiver.SaveTo == nullptr) {
            throwInternalError("Message contains data but neither consumer nor savePayload was set");
        }
        pollInterrupt(receiver);
        if (length == 0) {
            Connection->checkTimeout(NOT_A_TIME, false);
            continue;
        }
        requireRoom(receiver, length);
        if (receiver.Consumer != nullptr) {
            length = passToConsumer(receiver, length);
        } else {
            passToStream(receiver, length);
        }
        receiver.Total += length;
        const ScopeExit drained([this] { // no byte comes twice
            ReceiveBuffer.clear();       // keeps its capacity
            Landed = 0;
        });
        receiver.Progress.update(receiver.Total);
    } while (receiver.Running != 0);
}

// Pieces for a consumer land in arrays where the drain before had many: a short response needs none.
void InterruptibleStreamCopier::prepareLanding(Receiver& receiver) {
    Landing.clear();
    if (receiver.Consumer != nullptr) {
        for (const HostArray& place : receiver.Places) {
            // If the consumer has kept it, the host lets us write to a copy.
            Landing.emplace_back(static_cast<char*>(vxGetData(place.get())), kLargestPiece);
        }
    } else if (receiver.Memory != nullptr) {
        if (const std::span<char> room = receiver.Memory->room(); !room.empty()) {
            Landing.push_back(room);
        }
    }
}

// After a pause libcurl first delivers what it has kept, which may be all that there is.
void InterruptibleStreamCopier::receiveOnce(Receiver& receiver) {
    if (WritePaused) {
        resume(false, true);
        if (waiting() != 0) {
            receiver.Running = 1;
            return;
        }
    } else {
        awaitActivity(receiver.Idle);
    }
    tracePerform(Connection->Settings.Debug, "READER");
    receiver.Running = Connection->perform("reading from network");
    if (receiver.Running == 0) {
        Connection->checkCompletion(NOT_A_TIME);
    }
}

// A few bytes on the wire may expand to enough content to fill the memory. Content that arrives unencoded cost its
// sender just as much.
void InterruptibleStreamCopier::requireRoom(const Receiver& receiver, std::size_t length) const {
    const std::uint64_t size = Connection->Transfer.PassedOn + length;
    if (size <= kLargestDecodedInMemory || receiver.Memory == nullptr) {
        return;
    }
    const auto wire = getInfo<curl_off_t>(Connection->Handles->EasyHandle, CURL_NAMED(CURLINFO_SIZE_DOWNLOAD_T));
    if (size > static_cast<std::uint64_t>(wire)) {
        VANTIK::raise<VANTIK::webservices::DecodedContentTooLarge>(std::to_string(kLargestDecodedInMemory),
                                                                   Connection->Metadata.ContentEncoding);
    }
}

void InterruptibleStreamCopier::passToStream(Receiver& receiver, std::size_t length) {
    if (receiver.Memory == nullptr) {
        receiver.SaveTo->write(ReceiveBuffer.data(), static_cast<std::streamsize>(length));
    } else {
        receiver.Memory->addLanded(Landed);
        Connection->Transfer.PassedOn += std::exchange(Landed, 0);
        Landing.clear();
        receiver.Memory->append(ReceiveBuffer);
    }
    Connection->Transfer.PassedOn += ReceiveBuffer.size();
}

// What has not been drained waits for a later copy, which may go elsewhere.
void InterruptibleStreamCopier::takeBackLanded() noexcept {
    try {
        std::string landed;
        for (const std::span<char> part : Landing) {
            landed.append(part.data(), std::min(part.size(), Landed - landed.size()));
        }
        ReceiveBuffer.insert(0, landed);
    } catch (const std::bad_alloc&) { // it is lost, and a later copy must not go on after it
        Connection->Transfer.Fault = TransferFault::Failed;
    }
    Landing.clear();
    Landed = 0;
}

// So many bytes of what has not been drained. Where some have landed, and where the rest is, pieces meet.
std::span<const char> InterruptibleStreamCopier::waitingAt(std::size_t offset, std::size_t length) const noexcept {
    if (offset < Landed) {
        const std::size_t part = Landing.front().size();
        return Landing[offset / part].subspan(offset % part, length);
    }
    return {ReceiveBuffer.data() + (offset - Landed), length};
}

// Returns the number of bytes that count as taken. Taking less than offered ends the copy without a failure.
std::size_t InterruptibleStreamCopier::passToConsumer(Receiver& receiver, std::size_t length) {
    for (std::size_t offset = 0; offset < length; offset += receiver.PieceSize) {
        const std::size_t piece = std::min<std::uint64_t>(receiver.PieceSize, length - offset);
        const std::span<const char> bytes = waitingAt(offset, piece);
        vxArray_tag* const content = offset < Landed && piece == kLargestPiece
                                         ? receiver.Places[offset / kLargestPiece].get()
                                         : receiver.pieceOf(bytes);
        if (receiver.SaveTo != nullptr) { // before the consumer, so it includes what that then refuses
            receiver.SaveTo->write(bytes.data(), static_cast<std::streamsize>(piece));
        }
        Connection->Transfer.PassedOn += piece; // whatever the consumer does with it
        Connection->Transfer.ConsumerHasPart = true;
        vxArray_tag* arguments[] = {receiver.Consumer, content};
        const HostArray result = callHostMethod(kConsumerPutData, receiver.ConsumerClass, arguments);
        if (isNothing(result)) {
            throw webservices::HTTPConsumerException("Web service copy operation aborted by consumer");
        }
        const std::uint64_t taken = wrapToUInt64(vxGetScalar(result.get()));
        if (taken < piece) {
            receiver.Running = 0;
            return offset + taken;
        }
    }
    if (receiver.PieceSize == kLargestPiece) {
        receiver.makePlaces(std::min(length, ReceiveLimit) / kLargestPiece);
    }
    return length;
}

// Only the host's own interrupt is reported to the consumer; a stop that a reporter asks for is not.
void InterruptibleStreamCopier::pollInterrupt(Receiver& receiver) {
    try {
        utInterruptState::ThrowIfInterruptPending();
    } catch (...) {
        receiver.notifyOfFailure(kConsumerInterrupt);
        throw;
    }
}

} // namespace netrove
