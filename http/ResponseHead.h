// The response head that counts, collected line by line from all heads of one exchange.
#pragma once

#include "http/HttpSyntax.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace netrove {

struct ResponseHead {
    // What a blank line has ended.
    enum class End {
        Passing, // 100, or a proxy's 200 to CONNECT: its lines stay until `dropPassing`
        Interim, // 102 to 199 (RFC 9110 section 15.2) except 101: its lines stay until the next head, and it ends
                 // nothing
        Final,   // any other
        Trailer, // a trailer section, after a complete head
    };

    // Limit for all heads and trailers of one exchange together; no server needs that much.
    static constexpr std::size_t kLargestSize = std::size_t{1} << 20;

    void begin(); // a new exchange; the status stays
    // Counts a line of a head or trailer. False: all lines together exceed kLargestSize.
    bool count(std::size_t length);
    // A trailer field (RFC 9110 section 6.5): a line after a complete head that does not begin another one. Like
    // libcurl, this accepts a status line in upper or lower case.
    bool isTrailer(std::string_view line) const {
        return HeadersComplete && !equalIgnoringCase(line.substr(0, 5), "HTTP/");
    }
    // Call for each line except blank ones and trailers: whether it is the first of its head. A line after a head that
    // has ended begins another one, which replaces the lines kept.
    bool beginsWithNext();
    // Takes the status for a first line: libcurl's or, if libcurl has none, the one in the line. Raises MalformedHead
    // if it is out of range; the status then stays as it was.
    void takeStatus(long codeOfLibcurl, std::string_view line);
    // Keeps the line without its CR LF. If there is none, raises MalformedHead and keeps nothing.
    void keep(std::string_view line);
    End end(const std::string& effectiveMethod); // the blank line
    void dropPassing() { ResponseHeaderLines.clear(); }
    // There are lines but no final head: it was cut off, or the last head was an interim one.
    bool isCut() const { return !ResponseHeaderLines.empty() && !HeadersComplete; }
    // It is uncertain where the content ends: the announced lengths differ or are not numbers, or a field that says it
    // is folded onto a further line (RFC 9112 sections 5.2 and 6.3). libcurl picks one of the readings.
    bool lengthIsUnclear() const;
    bool isChunked() const;
    std::int64_t contentLength() const; // as announced; -1: not announced, or unclear
    bool isGzip() const;                // the content is encoded once, by gzip, and the transfer adds no coding

    // Value of the first field of that name, ignoring case; empty if there is none.
    std::string getResponseField(std::string_view name) const;
    std::string reasonPhrase() const;
    bool isEncoded() const; // decoding changes the content
    // Decoding makes the content at most a thousand times larger: it is not encoded at all, or once, by gzip or
    // deflate.
    bool expandsLittle() const;

    std::int32_t ResponseCode = 0;                // latest status; the host may set it
    std::vector<std::string> ResponseHeaderLines; // raw lines in the order of the wire, status line first
    bool HeadersComplete = false;                 // a final head has ended and no other has begun
    bool HasInterim = false;                      // the lines are those of a complete interim head

private:
    template <class Visit>
    void forEachElement(std::string_view name, Visit visit) const; // of all fields of that name
    bool hasField(std::string_view name) const;
    template <class Visit>
    void forEachCoding(Visit visit) const;

    std::size_t Size = 0; // of all lines of the exchange
};

} // namespace netrove
