#include "http/RequestHead.h"

#include "http/HttpSyntax.h"

#include <algorithm>
#include <utility>

namespace netrove {

// A NUL ends the search for a line end, as it ends a C string.
void RequestHead::take(char* data, std::size_t size) {
    const char* const end = data + size;
    for (char* start = data; start != end;) {
        const std::string_view rest(start, static_cast<std::size_t>(end - start));
        const std::size_t length = rest.substr(0, rest.find('\0')).find("\r\n");
        if (length == std::string_view::npos) {
            throw MalformedHead{"CRLF not found in headers:\n" + std::string(rest)};
        }
        const std::string_view line = trimmed(rest.substr(0, length));
        if (!InRequestHead) {
            takeRequestLine(line);
        } else if (line.empty()) {
            InRequestHead = false;
            Sent = true;
        } else {
            takeRequestField(line, start);
        }
        start += length + 2;
    }
}

void RequestHead::takeRequestLine(std::string_view line) {
    if (line.empty()) {
        throw MalformedHead{"Empty CRLF encountered when request line expected"};
    }
    InRequestHead = true;
    const std::size_t first = line.find(' ');
    if (first == std::string_view::npos) {
        throw MalformedHead{"No space found in request line"};
    }
    EffectiveMethod = line.substr(0, first);
    const std::size_t second = line.find(' ', first + 1);
    if (second == std::string_view::npos) {
        throw MalformedHead{"Second space not found in request line"};
    }
    RequestURI = line.substr(first + 1, second - first - 1);
    RequestHTTPVersion = line.substr(second + 1);
    RequestHeaderLines.clear();
}

// libcurl traces a head after it has written it, so the bytes on the wire keep their quotes.
void RequestHead::takeRequestField(std::string_view text, char* start) {
    constexpr std::string_view name = "authorization:";
    constexpr std::string_view quoted = "\"MD5\"";
    constexpr std::string_view plain = "MD5  ";
    std::string line(text);
    if (equalIgnoringCase(text.substr(0, name.size()), name)) {
        const std::size_t position = line.find(quoted);
        if (position != std::string::npos) {
            line.replace(position, quoted.size(), plain);
            std::copy(plain.begin(), plain.end(), start + position);
        }
    }
    RequestHeaderLines.push_back(std::move(line));
}

} // namespace netrove
