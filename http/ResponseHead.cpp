#include "http/ResponseHead.h"

#include "http/HttpSyntax.h"

#include <boost/algorithm/string.hpp>
#include <boost/numeric/conversion/cast.hpp>

#include <algorithm>
#include <charconv>
#include <cstdlib>

namespace netrove {

namespace {

// The number after the first blank, as atol reads it; 0 if there is none.
long statusFromLine(const std::string& line) {
    const std::size_t blank = line.find(' ');
    return blank == std::string::npos ? 0 : std::strtol(line.c_str() + blank, nullptr, 10);
}

bool isGzipName(const std::string& coding) {
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

std::string ResponseHead::getResponseField(const std::string& name) const {
    for (std::size_t i = 1; i < ResponseHeaderLines.size(); ++i) { // line 0 is the status line
        auto [fieldName, value] = splitFieldLine(ResponseHeaderLines[i]);
        if (equalIgnoringCase(fieldName, name)) {
            return value;
        }
    }
    return {};
}

std::vector<std::string> ResponseHead::listOf(const std::string& name) const {
    std::vector<std::string> all;
    for (const std::string& line : ResponseHeaderLines) {
        const auto [fieldName, value] = splitFieldLine(line);
        if (equalIgnoringCase(fieldName, name)) {
            std::vector<std::string> elements;
            boost::split(elements, value, boost::is_any_of(","));
            for (std::string& element : elements) {
                all.push_back(boost::trim_copy(element));
            }
        }
    }
    return all;
}

bool ResponseHead::lengthIsUnclear() const {
    for (std::size_t i = 1; i < ResponseHeaderLines.size(); ++i) {
        const std::string name = splitFieldLine(ResponseHeaderLines[i - 1]).first;
        const std::string& line = ResponseHeaderLines[i];
        const bool isFolded = line.starts_with(' ') || line.starts_with('\t');
        if (isFolded && (equalIgnoringCase(name, "Content-Length") || equalIgnoringCase(name, "Transfer-Encoding"))) {
            return true;
        }
    }
    return contentLength() < 0 && !listOf("Content-Length").empty() && listOf("Transfer-Encoding").empty();
}

std::int64_t ResponseHead::contentLength() const {
    const std::vector<std::string> lengths = listOf("Content-Length");
    const bool isOne = !lengths.empty() && std::all_of(lengths.begin(), lengths.end(),
                                                       [&](const auto& length) { return length == lengths[0]; });
    std::int64_t length = 0;
    const char* const end = isOne ? lengths[0].data() + lengths[0].size() : nullptr;
    const bool isNumber =
        isOne && std::from_chars(lengths[0].data(), end, length) == std::from_chars_result{end, std::errc()};
    return isNumber && length >= 0 ? length : -1;
}

bool ResponseHead::isChunked() const {
    const std::vector<std::string> codings = listOf("Transfer-Encoding");
    return !codings.empty() && equalIgnoringCase(codings.back(), "chunked");
}

// The codings of the content in order, without those that change no byte of it.
std::vector<std::string> ResponseHead::codings() const {
    std::vector<std::string> codings = listOf("Content-Encoding");
    for (std::string& coding : listOf("Transfer-Encoding")) {
        codings.push_back(std::move(coding));
    }
    std::erase_if(codings, [&](const auto& coding) {
        return coding.empty() || equalIgnoringCase(coding, "identity") || equalIgnoringCase(coding, "chunked");
    });
    return codings;
}

bool ResponseHead::isGzip() const {
    const std::vector<std::string> ofContent = listOf("Content-Encoding");
    return codings().size() == 1 && std::any_of(ofContent.begin(), ofContent.end(), isGzipName);
}

bool ResponseHead::expandsLittle() const {
    const std::vector<std::string> all = codings();
    return all.empty() || (all.size() == 1 && (isGzipName(all[0]) || equalIgnoringCase(all[0], "deflate")));
}

std::string ResponseHead::reasonPhrase() const {
    return ResponseHeaderLines.empty() ? std::string() : reasonPhraseOf(ResponseHeaderLines.front());
}

} // namespace netrove
