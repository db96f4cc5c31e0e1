// The head of the request as it really went out, parsed from what libcurl traces of it.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace netrove {

struct RequestHead {
    // Takes the next part of a head. Heads may come in parts that are cut between lines, and one after another: what is
    // kept is the head of the last request. Raises MalformedHead; what was parsed until then stays. The algorithm
    // parameter of a Digest answer loses its quotes here, in `data` too.
    void take(char* data, std::size_t size);

    std::string EffectiveMethod;                 // method as sent; until then as set
    std::string RequestURI;                      // from the request line
    std::string RequestHTTPVersion;              // from the request line
    std::vector<std::string> RequestHeaderLines; // raw field lines
    bool InRequestHead = false;                  // field lines are expected, not a request line
    bool Sent = false;                           // a whole head has gone out since the last open

private:
    void takeRequestLine(const std::string& line);
    void takeRequestField(std::string line, char* start);
};

} // namespace netrove
