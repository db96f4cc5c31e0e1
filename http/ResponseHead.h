// The head of the response that counts, collected line by line from all heads of one exchange.
#pragma once

#include "http/HttpSyntax.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace netrove {

struct ResponseHead {
    // What the blank line has ended.
    enum class End {
        Passing, // 100, or a proxy's 200 to CONNECT: its lines stay until `dropPassing`
        Interim, // 102 to 199 (RFC 9110 section 15.2) except 101: its lines stay until the next head, and it ends
                 // nothing
        Final,   // any other
        Trailer, // of a trailer section, after a complete head
    };

    // Heads and trailers of one exchange together; no server needs as much.
    static constexpr std::size_t kLargestSize = std::size_t{1} << 20;

    void begin(); // a new exchange; the status stays
    // Counts a line of a head or trailer. False: all lines together are larger than kLargestSize.
    bool count(std::size_t length);
    // A trailer field (RFC 9110 section 6.5): a line after a complete head that begins no further one. libcurl takes a
    // status line in any case.
    bool isTrailer(std::string_view line) const {
        return HeadersComplete && !equalIgnoringCase(line.substr(0, 5), "HTTP/");
    }
    // For each line but a blank one or a trailer: whether it is the first of its head. A line after a head that has
    // ended begins a further one, which takes the place of the lines kept.
    bool beginsWithNext();
    // The status for a first line: libcurl's, or where libcurl has none, the one in the line. Raises MalformedHead
    // where it is out of range; the status then stays.
    void takeStatus(long codeOfLibcurl, const std::string& line);
    // Keeps the line without its CR LF. Raises MalformedHead, and keeps nothing, where it does not end so.
    void keep(std::string_view line);
    End end(const std::string& effectiveMethod); // the blank line
    void dropPassing() { ResponseHeaderLines.clear(); }
    // Lines are kept and no final head is among them: it was cut, or an interim one was the last.
    bool isCut() const { return !ResponseHeaderLines.empty() && !HeadersComplete; }
    // Where the content is to end is not certain: its lengths differ or cannot be counted, or a field that says it goes
    // on in a line of its own (RFC 9112 sections 5.2 and 6.3). libcurl chooses one of the readings.
    bool lengthIsUnclear() const;
    bool isChunked() const;
    std::int64_t contentLength() const; // as announced; -1: not, or unclear
    bool isGzip() const;                // the content is encoded once, by gzip, and its transfer by nothing

    // Value of the first field of that name, compared without regard to case; empty without one.
    std::string getResponseField(const std::string& name) const;
    std::string reasonPhrase() const;
    // The content grows a thousandfold at most when it is decoded: it is not encoded, or once, by gzip or deflate.
    bool expandsLittle() const;

    std::int32_t ResponseCode = 0;                // latest status; the host may set it
    std::vector<std::string> ResponseHeaderLines; // raw lines, status line first
    bool HeadersComplete = false;                 // a final head has ended and no further one has begun
    bool HasInterim = false;                      // the lines are those of an interim head that has ended

private:
    std::vector<std::string> listOf(const std::string& name) const; // elements of all fields of that name
    std::vector<std::string> codings() const;

    std::size_t Size = 0; // of all lines of the exchange
};

} // namespace netrove
