#include "errors/InternalError.h"
#include "http/HttpSyntax.h"
#include "transfer/CurlCallbacks.h"
#include "transfer/HTTPConnection.h"
#include "transfer/Trace.h"

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <string>
#include <string_view>

namespace netrove {

namespace {

constexpr std::size_t kLongText = 1000; // from this length on, only the length of a text is traced

// Makes line ends visible. The search resumes two characters after a marked pair, so a pair that begins right there
// stays raw: kept on purpose, the blank line at the end of a head is not marked.
std::string markLineEnds(std::string_view raw) {
    std::string text;
    std::size_t from = 0;
    std::size_t copied = 0;
    while (from + 2 <= raw.size()) {
        const std::size_t pair = raw.find("\r\n", from);
        if (pair == std::string_view::npos) {
            break;
        }
        text.append(raw, copied, pair - copied);
        copied = pair + 2;
        text += copied < raw.size() ? "<CRLF>\n" : "<CRLF>";
        from = copied + 2;
    }
    text.append(raw, copied);
    return text;
}

bool isPrintable(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char character) {
        const auto code = static_cast<unsigned char>(character);
        return std::isspace(code) != 0 || std::isprint(code) != 0;
    });
}

const char* typeWord(curl_infotype type) {
    switch (type) {
    case CURLINFO_TEXT:
        return "INFO";
    case CURLINFO_HEADER_OUT:
        return "HDR";
    case CURLINFO_DATA_IN:
    case CURLINFO_DATA_OUT:
        return "DATA";
    default:
        return "UNKNOWN";
    }
}

// Type and time of day in seconds, modulo 1000: it orders the lines of a log and measures nothing.
std::string label(curl_infotype type) {
    const auto microseconds = boost::posix_time::microsec_clock::local_time().time_of_day().total_microseconds();
    const double seconds = static_cast<double>(microseconds / 1000 % 1000000) / 1000.0;
    std::array<char, 20> text{};
    std::snprintf(text.data(), text.size(), "%s (%07.3f)", typeWord(type), seconds);
    return text.data();
}

bool isTextShown(curl_infotype type, std::size_t length, std::int32_t debug) {
    if (type == CURLINFO_HEADER_OUT) {
        return true;
    }
    return length < kLongText && (type == CURLINFO_TEXT || debug > 1);
}

void recordTraffic(std::int32_t debug, curl_infotype type, const char* data, std::size_t size) {
    std::string text = markLineEnds({data, size});
    if (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    const bool outgoing = type == CURLINFO_HEADER_OUT || type == CURLINFO_DATA_OUT;
    traceText(debug, (outgoing ? "OUT " : "IN ") + label(type) + ": ");
    if (isTextShown(type, text.size(), debug) && isPrintable(text)) {
        traceLine(debug, text);
    } else {
        traceLine(debug, std::to_string(text.size()) + " bytes"); // of the marked text, not of the wire
    }
    traceText(debug, "");
}

} // namespace

// A head that cannot be parsed ends the libcurl call with an InternalError, kept until that call has returned.
int debugCallback(CURL* /*handle*/, curl_infotype type, char* data, std::size_t size, void* connection) {
    auto* self = static_cast<HTTPConnection*>(connection);
    return self->inCallback(0, [&] { return self->takeTrace(type, data, size); });
}

// Has two jobs: it traces the traffic if Debug asks for that and, at every level, collects the request head as it was
// really sent.
int HTTPConnection::takeTrace(int type, char* data, std::size_t size) {
    if (Settings.Debug != 0) {
        // The header callback traces incoming head lines, and encrypted data is never shown.
        if (type == CURLINFO_HEADER_IN || type >= CURLINFO_SSL_DATA_IN) {
            return 0;
        }
        recordTraffic(Settings.Debug, static_cast<curl_infotype>(type), data, size);
    }
    if (type == CURLINFO_HEADER_OUT) {
        try {
            SentHead.take(data, size);
        } catch (const MalformedHead& failure) {
            throwInternalError(failure.Text);
        }
    }
    if (type == CURLINFO_DATA_IN) {
        boundContent();
        Transfer.Tail.take({data, size});
    }
    if (type == CURLINFO_HEADER_OUT || type == CURLINFO_HEADER_IN || type == CURLINFO_DATA_IN ||
        type == CURLINFO_DATA_OUT) {
        updateDeadline();
    }
    return 0;
}

} // namespace netrove
