#include "http/ResponseHead.h"

#include "http/HttpSyntax.h"

#include <boost/numeric/conversion/cast.hpp>

#include <cstdlib>

namespace {

// The number after the first blank, as atol reads it; 0 without one.
long statusFromLine(const std::string& line) {
    const std::size_t blank = line.find(' ');
    return blank == std::string::npos ? 0 : std::strtol(line.c_str() + blank, nullptr, 10);
}

} // namespace

bool ResponseHead::beginsWithNext() {
    if (HeadersComplete) { // a further response: the next leg of an authentication, a trailer
        ResponseHeaderLines.clear();
        HeadersComplete = false;
    }
    return ResponseHeaderLines.empty();
}

void ResponseHead::takeStatus(long codeOfLibcurl, const std::string& line) {
    const long code = codeOfLibcurl != 0 ? codeOfLibcurl : statusFromLine(line);
    try {
        ResponseCode = boost::numeric_cast<std::int32_t>(code);
    } catch (const boost::numeric::bad_numeric_cast&) {
        throw MalformedHead{"Could not convert response code " + std::to_string(code)};
    }
}

void ResponseHead::keep(std::string_view line) {
    if (!line.ends_with("\r\n")) {
        throw MalformedHead{"CRLF not found at the end of the received headers"};
    }
    ResponseHeaderLines.emplace_back(line.substr(0, line.size() - 2));
}

bool ResponseHead::end(const std::string& effectiveMethod) {
    const bool interim = ResponseCode == 100 || (equalIgnoringCase(effectiveMethod, "CONNECT") && ResponseCode == 200);
    HeadersComplete = HeadersComplete || !interim;
    return !interim;
}

std::string ResponseHead::getResponseField(const std::string& name) const {
    for (std::size_t i = 1; i < ResponseHeaderLines.size(); ++i) { // line 0 is the status line
        auto [fieldName, value] = splitFieldLine(ResponseHeaderLines[i]);
        if (equalIgnoringCase(fieldName, name)) {
            return value;
        }
    }
    return {};
}

std::string ResponseHead::reasonPhrase() const {
    return ResponseHeaderLines.empty() ? std::string() : reasonPhraseOf(ResponseHeaderLines.front());
}
