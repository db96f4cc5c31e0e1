#include "transfer/HTTPConnection.h"

#include "errors/InternalError.h"
#include "http/HttpSyntax.h"
#include "transfer/Trace.h"

#include <boost/numeric/conversion/cast.hpp>

#include <cstdlib>

namespace {

// The number behind the first blank, as atol reads it; 0 without one.
long statusFromLine(const std::string& line) {
    const std::size_t blank = line.find(' ');
    return blank == std::string::npos ? 0 : std::strtol(line.c_str() + blank, nullptr, 10);
}

} // namespace

// libcurl calls this for every line of every head on the connection. A failed check is stored in CallbackFailure and
// the transfer runs on; libcurl always gets the full length back and is never asked to stop.
std::size_t HTTPConnection::headerCallback(char* buffer, std::size_t size, std::size_t count, void* connection) {
    auto* self = static_cast<HTTPConnection*>(connection);
    const std::size_t length = size * count;
    return self->inCallback(length, [&] { return self->takeHeadLine(buffer, length); });
}

std::size_t HTTPConnection::takeHeadLine(const char* data, std::size_t length) {
    const std::string line(data, length);
    if (line == "\r\n") {
        endHead();
    } else {
        if (HeadersComplete) { // a further response: the next leg of an authentication, a trailer
            ResponseHeaderLines.clear();
            HeadersComplete = false;
        }
        if (ResponseHeaderLines.empty()) {
            startHead(line);
        }
        try {
            keepHeadLine(line);
        } catch (...) {
            CallbackFailure = std::current_exception();
        }
    }
    updateDeadline();
    return length;
}

void HTTPConnection::startHead(const std::string& line) {
    // The handle that counts is the current scope's, as libcurl runs it, and not the one that was borrowed at the
    // start.
    long code = getInfo<long>(getCurlSingleton().EasyHandle, CURL_NAMED(CURLINFO_RESPONSE_CODE),
                              "getting response code after first header");
    if (code == 0) {
        code = statusFromLine(line);
    }
    try {
        ResponseCode = boost::numeric_cast<std::int32_t>(code);
    } catch (const std::exception&) {
        try {
            throwInternalError("Could not convert response code " + std::to_string(code));
        } catch (...) {
            CallbackFailure = std::current_exception();
        }
    }
}

void HTTPConnection::keepHeadLine(const std::string& line) {
    // Without a newline, kept on purpose: the CR stays at the end, and what is traced next follows on the same line.
    if (Debug != 0) {
        traceText(Debug, "IN  HDR: " + line.substr(0, line.empty() ? 0 : line.size() - 1));
    }
    if (line.size() < 2 || line.compare(line.size() - 2, 2, "\r\n") != 0) {
        throwInternalError("CRLF not found at the end of the received headers");
    }
    ResponseHeaderLines.push_back(line.substr(0, line.size() - 2));
}

// A head is interim, and dropped, when it is a 100 or a proxy's 200 to CONNECT.
void HTTPConnection::endHead() {
    const bool interim = ResponseCode == 100 || (equalIgnoringCase(EffectiveMethod, "CONNECT") && ResponseCode == 200);
    if (!interim) {
        HeadersComplete = true;
        if (DataTimeout == Unlimited) {
            Deadline = NoDeadline; // no silence ends the transfer from here on
        }
        traceLine(Debug, "...DONE RECEIVING HEADERS...");
        return;
    }
    if (Debug != 0 && ResponseHeaderLines.size() > 1) {
        std::string report =
            "UNEXPECTED HEADERS FOR RESPONSE " + std::to_string(ResponseCode) + " TO " + EffectiveMethod + '\n';
        for (const std::string& line : ResponseHeaderLines) {
            report += line + '\n';
        }
        traceLine(Debug, report);
    }
    ResponseHeaderLines.clear();
}
