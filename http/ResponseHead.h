// The head of the response that counts, collected line by line from all heads of one exchange.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct ResponseHead {
    // For each line but a blank one: whether it is the first of its head. A line after a complete head begins a further
    // one, which takes the place of the lines kept.
    bool beginsWithNext();
    // The status for a first line: libcurl's, or where libcurl has none, the one in the line. Raises MalformedHead
    // where it is out of range; the status then stays.
    void takeStatus(long codeOfLibcurl, const std::string& line);
    // Keeps the line without its CR LF. Raises MalformedHead, and keeps nothing, where it does not end so.
    void keep(std::string_view line);
    // The blank line. A head is interim when it is a 100, or a proxy's 200 to CONNECT; any other one is complete now.
    // True: it is complete. The lines of an interim head stay until `dropInterim`.
    bool end(const std::string& effectiveMethod);
    void dropInterim() { ResponseHeaderLines.clear(); }

    // Value of the first field of that name, compared without regard to case; empty without one.
    std::string getResponseField(const std::string& name) const;
    std::string reasonPhrase() const;

    std::int32_t ResponseCode = 0;                // latest status; the host may set it
    std::vector<std::string> ResponseHeaderLines; // raw lines, status line first
    bool HeadersComplete = false;                 // a final head has ended and no further one has begun
};
