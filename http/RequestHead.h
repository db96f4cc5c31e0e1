// The head of the request as it was really sent, parsed from libcurl's trace.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace netrove {

struct RequestHead {
    // Takes the next part of a head. A head may come in several parts, cut between lines, and heads follow one another:
    // the one of the last request is kept. Raises MalformedHead; whatever was parsed before that stays. The algorithm
    // parameter of a Digest answer loses its quotes here, in `data` too.
    void take(char* data, std::size_t size);

    std::string EffectiveMethod;                 // method as sent; before that, as set
    std::string RequestURI;                      // from the request line
    std::string RequestHTTPVersion;              // from the request line
    std::vector<std::string> RequestHeaderLines; // raw field lines
    bool InRequestHead = false;                  // field lines are expected, not a request line
    bool Sent = false;                           // a whole head has been sent since the last open

private:
    void takeRequestLine(std::string_view line);
    void takeRequestField(std::string_view text, char* start);
};

} // namespace netrove
