// The end of a response's content as it came over the network. libcurl does not look whether compressed data comes to
// its end, so what a server leaves out inside it would not be missed; gzip writes the content's length there (RFC 1952
// section 2.3.1).
#pragma once

#include <cstdint>
#include <string_view>

namespace netrove {

class ContentTail {
public:
    // After a head. `length` is the announced one; -1: none.
    void begin(bool isChunked, std::int64_t length);
    // The next bytes of the connection, with the framing of chunks (RFC 9112 section 7.1).
    void take(std::string_view bytes);
    void noteDecoded(std::uint64_t length) { Decoded += length; }
    // What was decoded is not as long as the last four bytes say. No content at all contradicts nothing.
    bool contradictsGzip() const;

private:
    enum class Part { SizeLine, Data, DataEnd, Trailers };

    void takeChunked(std::string_view bytes);
    void takeContent(std::string_view bytes);

    bool IsChunked = false;
    Part Next = Part::SizeLine;
    std::uint64_t Left = 0;     // of the announced length, or of the chunk
    std::uint64_t Size = 0;     // of the content, as it came
    std::uint64_t Decoded = 0;  // what libcurl has made of it
    std::uint32_t LastFour = 0; // bytes, the first one lowest
    bool InDigits = true;       // of a size line
};

} // namespace netrove
