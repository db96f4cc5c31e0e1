// The end of a response's content as it arrived over the network. libcurl does not check whether compressed data is
// complete, so a part that the server left out would go unnoticed; gzip puts the content's length at the end (RFC 1952
// section 2.3.1).
#pragma once

#include <cstdint>
#include <string_view>

namespace netrove {

class ContentTail {
public:
    // Call after a head. `length` is the announced length; -1: none.
    void begin(bool isChunked, std::int64_t length);
    // The next bytes of the connection, chunk framing included (RFC 9112 section 7.1).
    void take(std::string_view bytes);
    void noteDecoded(std::uint64_t length) { Decoded += length; }
    // Whether the length of what was decoded differs from what the last four bytes say. Empty content contradicts
    // nothing.
    bool contradictsGzip() const;

private:
    enum class Part { SizeLine, Data, DataEnd, Trailers };

    void takeChunked(std::string_view bytes);
    void takeContent(std::string_view bytes);

    bool IsChunked = false;
    Part Next = Part::SizeLine;
    std::uint64_t Left = 0;     // of the announced length, or of the chunk
    std::uint64_t Size = 0;     // of the content as it arrived
    std::uint64_t Decoded = 0;  // bytes that libcurl has decoded
    std::uint32_t LastFour = 0; // bytes of the content, the first of them lowest
    bool InDigits = true;       // of a size line
};

} // namespace netrove
