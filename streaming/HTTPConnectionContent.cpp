#include "errors/HTTPException.h"
#include "errors/InternalError.h"
#include "host/Messages.h"
#include "streaming/InterruptibleStreamCopier.h"
#include "transfer/HTTPConnection.h"
#include "transfer/Trace.h"

#include <new>
#include <sstream>

namespace {

// No announced length makes us reserve more than this. Reserved memory is not touched until bytes arrive.
constexpr std::int64_t LargestReservation = std::int64_t{1} << 30;

// Gives a memory stream room for the announced content at once: growing step by step copies all of it several times.
// Only a hint, so a length that lies or memory that is not there changes nothing.
void reserveFor(std::ostream& stream, std::int64_t contentLength) {
    auto* memory = dynamic_cast<std::ostringstream*>(&stream);
    if (memory == nullptr || contentLength <= 0 || contentLength > LargestReservation) {
        return;
    }
    std::string content = std::move(*memory).str();
    try {
        content.reserve(content.size() + static_cast<std::size_t>(contentLength));
    } catch (const std::bad_alloc&) { // see above
    }
    memory->str(std::move(content));
    memory->seekp(0, std::ios_base::end);
}

} // namespace

// Gives the response's content to the stream, the consumer, or both.
void HTTPConnection::copyContentToStream(std::ostream& stream, bool useStream) {
    if (Opened) {
        try {
            sendRequest();
            if (!HTTPOptionsMode && (ResponseCode < 200 || ResponseCode > 299)) {
                throw webservices::HTTPStatusError(reasonPhrase(), &URL, ResponseCode);
            }
            const std::shared_ptr copier = Copier; // held: a consumer may start another send
            if (copier->Detached) {
                // Nothing has been sent since the open, and libcurl would write a response to standard output.
                throwInternalError(
                    "The connection was opened again before the last response was copied. Close it first.");
            }
            traceLine(Debug, "COPY CONTENT TO STREAM");
            if (useStream) {
                reserveFor(stream, ResponseContentLength);
            }
            copier->receiveResponse(useStream ? &stream : nullptr);
            traceLine(Debug, "CLOSING");
        } catch (const webservices::HTTPException&) {
            throw;
        } catch (const foundation::core::except::IException&) { // the host's interrupt as well
            throw;
        } catch (const std::exception& failure) {
            if (!HTTPOptionsMode) {
                ResponseCode = 400;
            }
            throw webservices::HTTPConnectionFailedException(failure.what());
        }
    }
    traceLine(Debug, "******************** DONE WITH TRANSFER ***************");
    ResponseDone = false;
}
