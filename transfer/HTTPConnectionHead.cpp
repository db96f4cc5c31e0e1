#include "transfer/HTTPConnection.h"

#include "errors/InternalError.h"
#include "http/HttpSyntax.h"
#include "transfer/CurlCallbacks.h"
#include "transfer/CurlCalls.h"
#include "transfer/CurlSingleton.h"
#include "transfer/Trace.h"

// libcurl calls this for every line of every head on the connection. A failed check is stored in CallbackFailure and
// the transfer runs on.
std::size_t headerCallback(char* buffer, std::size_t size, std::size_t count, void* connection) {
    auto* self = static_cast<HTTPConnection*>(connection);
    const std::size_t length = size * count;
    return self->inCallback(length, [&] { return self->takeHeadLine(buffer, length); });
}

// The last failure counts.
template <class Check>
void HTTPConnection::keepFailure(Check check) {
    try {
        try {
            check();
        } catch (const MalformedHead& failure) {
            throwInternalError(failure.Text);
        }
    } catch (...) {
        Transfer.CallbackFailure = std::current_exception();
    }
}

std::size_t HTTPConnection::takeHeadLine(const char* data, std::size_t length) {
    const std::string line(data, length);
    if (line == "\r\n") {
        endHead();
    } else {
        if (ReceivedHead.beginsWithNext()) {
            startHead(line);
        }
        keepHeadLine(line);
    }
    updateDeadline();
    return length;
}

void HTTPConnection::startHead(const std::string& line) {
    // The handle that counts is the current scope's, as libcurl runs it, and not the one that was borrowed at the
    // start.
    const long code = getInfo<long>(getCurlSingleton().EasyHandle, CURL_NAMED(CURLINFO_RESPONSE_CODE),
                                    "getting response code after first header");
    keepFailure([&] { ReceivedHead.takeStatus(code, line); });
}

void HTTPConnection::keepHeadLine(const std::string& line) {
    keepFailure([&] {
        // Without a newline, kept on purpose: the CR stays at the end, and what is traced next follows on the same
        // line.
        if (Settings.Debug != 0) {
            traceText(Settings.Debug, "IN  HDR: " + line.substr(0, line.empty() ? 0 : line.size() - 1));
        }
        ReceivedHead.keep(line);
    });
}

void HTTPConnection::endHead() {
    const std::int32_t debug = Settings.Debug;
    if (ReceivedHead.end(SentHead.EffectiveMethod)) {
        Limits.endHead();
        if (Transfer.UploadPending && ReceivedHead.ResponseCode >= 200 && ReceivedHead.ResponseCode <= 299) {
            // An answer while libcurl still waits for "100 Continue" ends the upload, and libcurl 7.88 keeps the
            // network connection: the next request's head would be taken for the content that is missing. Should the
            // content go out after all, its end takes this back.
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
    ReceivedHead.dropInterim();
}
