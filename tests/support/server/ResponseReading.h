// What a client may make of the bytes of a server: a small reader of HTTP/1.1 responses that shares nothing with the
// library or libcurl. Its syntax is lenient where libcurl's is (bare LF, blanks, extensions of chunks); what it calls
// whole is not.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace testsupport {

// How the bytes ended.
enum class StreamEnd { Open, Closed, Reset };

struct ResponseReading {
    bool Whole = false;
    std::string Missing; // what it would need to be whole, in words
    int Status = 0;      // of the last head that ended
    // The lines of the final head without their ends, the status line first; empty until that head has ended.
    std::vector<std::string> Head;
    std::string Content;    // without chunk sizes, as far as it came
    bool Coded = false;     // a coding other than chunked is on the content
    bool Gzip = false;      // this one alone, and once
    std::size_t Length = 0; // bytes up to the end of the response
};

// Reads the first response of `bytes` to a request of that method, its interim heads included.
ResponseReading readResponse(std::string_view bytes, StreamEnd end, std::string_view method);

// Reads the response to the n-th request of a connection, counted from 1. Where one before it is not whole, that one.
ResponseReading readResponse(std::string_view bytes, StreamEnd end, std::string_view method, std::size_t nth);

} // namespace testsupport
