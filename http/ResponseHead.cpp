#include "http/ResponseHead.h"

#include "http/HttpSyntax.h"

#include <boost/numeric/conversion/cast.hpp>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <optional>

namespace netrove {

namespace {

// The number after the first blank, as atol reads it; 0 if there is none.
long statusFromLine(std::string_view line) {
    const std::size_t blank = line.find(' ');
    return blank == std::string_view::npos ? 0 : std::strtol(std::string(line.substr(blank)).c_str(), nullptr, 10);
}

// Most lines have another name, which the place of the colon shows before anything is compared.
bool hasName(std::string_view line, std::string_view name) {
    const bool fits = line.size() > name.size() ? line[name.size()] == ':' : line.size() == name.size();
    return fits && equalIgnoringCase(viewFieldLine(line).first, name);
}

bool isGzipName(std::string_view coding) {
    return equalIgnoringCase(coding, "gzip") || equalIgnoringCase(coding, "x-gzip");
}

} // namespace

void ResponseHead::begin() {
    ResponseHeaderLines.clear();
    HeadersComplete = false;
    HasInterim = false;
    Size = 0;
}

bool ResponseHead::count(std::size_t length) {
    Size += length;
    return Size <= kLargestSize;
}

bool ResponseHead::beginsWithNext() {
    if (HeadersComplete ||
        HasInterim) { // another response follows: the next leg of an authentication, or the final one
        ResponseHeaderLines.clear();
        HeadersComplete = false;
        HasInterim = false;
    }
    return ResponseHeaderLines.empty();
}

void ResponseHead::takeStatus(long codeOfLibcurl, std::string_view line) {
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

ResponseHead::End ResponseHead::end(const std::string& effectiveMethod) {
    if (HeadersComplete) {
        return End::Trailer;
    }
    if (ResponseCode == 100 || (equalIgnoringCase(effectiveMethod, "CONNECT") && ResponseCode == 200)) {
        return End::Passing;
    }
    if (ResponseCode >= 102 && ResponseCode <= 199) {
        HasInterim = true;
        return End::Interim;
    }
    HeadersComplete = true;
    return End::Final;
}

std::string ResponseHead::getResponseField(std::string_view name) const {
    for (std::size_t i = 1; i < ResponseHeaderLines.size(); ++i) { // line 0 is the status line
        if (hasName(ResponseHeaderLines[i], name)) {
            return std::string(viewFieldLine(ResponseHeaderLines[i]).second);
        }
    }
    return {};
}

template <class Visit>
void ResponseHead::forEachElement(std::string_view name, Visit visit) const {
    for (const std::string& line : ResponseHeaderLines) {
        if (!hasName(line, name)) {
            continue;
        }
        for (std::string_view rest = viewFieldLine(line).second;;) {
            const std::size_t comma = rest.find(',');
            visit(trimmed(rest.substr(0, comma)));
            if (comma == std::string_view::npos) {
                break;
            }
            rest.remove_prefix(comma + 1);
        }
    }
}

bool ResponseHead::hasField(std::string_view name) const {
    return std::any_of(ResponseHeaderLines.begin(), ResponseHeaderLines.end(),
                       [&](const std::string& line) { return hasName(line, name); });
}

bool ResponseHead::lengthIsUnclear() const {
    for (std::size_t i = 1; i < ResponseHeaderLines.size(); ++i) {
        const std::string& line = ResponseHeaderLines[i];
        if (!line.starts_with(' ') && !line.starts_with('\t')) {
            continue; // it is not folded
        }
        const std::string_view name = viewFieldLine(ResponseHeaderLines[i - 1]).first;
        if (equalIgnoringCase(name, "Content-Length") || equalIgnoringCase(name, "Transfer-Encoding")) {
            return true;
        }
    }
    return contentLength() < 0 && hasField("Content-Length") && !hasField("Transfer-Encoding");
}

std::int64_t ResponseHead::contentLength() const {
    std::optional<std::string_view> announced;
    bool differs = false;
    forEachElement("Content-Length", [&](std::string_view length) {
        differs = differs || (announced && *announced != length);
        announced = length;
    });
    if (!announced || differs) {
        return -1;
    }
    std::int64_t length = 0;
    const char* const end = announced->data() + announced->size();
    const bool isNumber = std::from_chars(announced->data(), end, length) == std::from_chars_result{end, std::errc()};
    return isNumber && length >= 0 ? length : -1;
}

bool ResponseHead::isChunked() const {
    std::string_view last;
    forEachElement("Transfer-Encoding", [&](std::string_view coding) { last = coding; });
    return equalIgnoringCase(last, "chunked");
}

// The codings of the content in order, without those that change no byte of it.
template <class Visit>
void ResponseHead::forEachCoding(Visit visit) const {
    for (const std::string_view field : {"Content-Encoding", "Transfer-Encoding"}) {
        forEachElement(field, [&](std::string_view coding) {
            if (!coding.empty() && !equalIgnoringCase(coding, "identity") && !equalIgnoringCase(coding, "chunked")) {
                visit(coding);
            }
        });
    }
}

bool ResponseHead::isEncoded() const {
    bool is = false;
    forEachCoding([&](std::string_view) { is = true; });
    return is;
}

bool ResponseHead::isGzip() const {
    bool isNamed = false;
    forEachElement("Content-Encoding", [&](std::string_view coding) { isNamed = isNamed || isGzipName(coding); });
    std::size_t count = 0;
    if (isNamed) {
        forEachCoding([&](std::string_view) { ++count; });
    }
    return count == 1;
}

bool ResponseHead::expandsLittle() const {
    std::size_t count = 0;
    bool isKnown = true;
    forEachCoding([&](std::string_view coding) {
        ++count;
        isKnown = isKnown && (isGzipName(coding) || equalIgnoringCase(coding, "deflate"));
    });
    return count == 0 || (count == 1 && isKnown);
}

std::string ResponseHead::reasonPhrase() const {
    return ResponseHeaderLines.empty() ? std::string() : reasonPhraseOf(ResponseHeaderLines.front());
}

} // namespace netrove
