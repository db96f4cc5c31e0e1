#include "errors/HTTPException.h"
#include "errors/MessageIdentifiers.h"
#include "http/HttpSyntax.h"
#include "transfer/CurlCallbacks.h"
#include "transfer/CurlCalls.h"
#include "transfer/CurlSingleton.h"
#include "transfer/HTTPConnection.h"
#include "transfer/Trace.h"

namespace netrove {

// libcurl calls this for every line of every head on the connection, and of a trailer section. A failed check is stored
// in CallbackFailure and the transfer runs on; anything else that is raised here ends it.
std::size_t headerCallback(char* buffer, std::size_t size, std::size_t count, void* connection) {
    auto* self = static_cast<HTTPConnection*>(connection);
    const std::size_t length = size * count;
    return self->inCallback(std::size_t{0}, [&] { return self->takeHeadLine(buffer, length); });
}

// The last failure counts.
template <class Check>
void HTTPConnection::keepFailure(Check check) {
    try {
        check();
    } catch (const MalformedHead& failure) {
        using VANTIK::webservices::InternalError;
        Transfer.CallbackFailure = std::make_exception_ptr(VANTIK::Failure<InternalError>(InternalError(failure.Text)));
    } catch (...) {
        Transfer.CallbackFailure = std::current_exception();
    }
}

std::size_t HTTPConnection::takeHeadLine(const char* data, std::size_t length) {
    // libcurl keeps what it hands over here, so a server that never ends its trailers would fill the memory.
    if (!ReceivedHead.count(length)) {
        throw webservices::HTTPConnectionRefusedException("Heads and trailers of the response are larger than " +
                                                          std::to_string(ResponseHead::kLargestSize) + " bytes.");
    }
    const std::string_view line(data, length);
    if (line == "\r\n") {
        endHead();
    } else if (ReceivedHead.isTrailer(line)) {
        traceHeadLine(line);
    } else {
        if (ReceivedHead.beginsWithNext()) {
            startHead(line);
        }
        keepHeadLine(line);
    }
    updateDeadline();
    return length;
}

void HTTPConnection::startHead(std::string_view line) {
    // The handle to ask is the current scope's, which libcurl is running, not the one that was borrowed at the start.
    const long code = getInfo<long>(getCurlSingleton().EasyHandle, CURL_NAMED(CURLINFO_RESPONSE_CODE),
                                    "getting response code after first header");
    keepFailure([&] { ReceivedHead.takeStatus(code, line); });
}

void HTTPConnection::keepHeadLine(std::string_view line) {
    keepFailure([&] {
        traceHeadLine(line);
        ReceivedHead.keep(line);
    });
}

// Without a newline, kept on purpose: the CR stays at the end, and what is traced next follows on the same line.
void HTTPConnection::traceHeadLine(std::string_view line) const {
    if (Settings.Debug != 0) {
        traceText(Settings.Debug, "IN  HDR: " + std::string(line.substr(0, line.empty() ? 0 : line.size() - 1)));
    }
}

void HTTPConnection::endHead() {
    const std::int32_t debug = Settings.Debug;
    const ResponseHead::End end = ReceivedHead.end(SentHead.EffectiveMethod);
    if (end != ResponseHead::End::Passing) {
        if (end == ResponseHead::End::Final) {
            Limits.endHead();
            Transfer.Tail.begin(ReceivedHead.isChunked(), ReceivedHead.contentLength());
        }
        if (Transfer.UploadPending && ReceivedHead.ResponseCode >= 200 && ReceivedHead.ResponseCode <= 299) {
            // An answer that arrives while libcurl still waits for "100 Continue" ends the upload, but libcurl 7.88
            // keeps the network connection: the server would take the next request's head for the missing content. If
            // the content is sent after all, its end undoes this.
            setOption(Handles->EasyHandle, CURL_NAMED(CURLOPT_FORBID_REUSE), 1L);
        }
        traceLine(debug, "...DONE RECEIVING HEADERS...");
        return;
    }
    if (debug != 0 && ReceivedHead.ResponseHeaderLines.size() > 1) {
        std::string report = "UNEXPECTED HEADERS FOR RESPONSE " + std::to_string(ReceivedHead.ResponseCode) + " TO " +
                             SentHead.EffectiveMethod + '\n';
        for (const std::string& line : ReceivedHead.ResponseHeaderLines) {
            report += line + '\n';
        }
        traceLine(debug, report);
    }
    ReceivedHead.dropPassing();
}

} // namespace netrove
