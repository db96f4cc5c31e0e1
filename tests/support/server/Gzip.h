// Content as servers compress it.
#pragma once

#include <Poco/DeflatingStream.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <string_view>

namespace testsupport {

// `piece` again and again, up to that length, of which no more than a piece is held at a time.
inline std::string gzipRepeated(std::string_view piece, std::size_t length) {
    std::ostringstream compressed;
    Poco::DeflatingOutputStream stream(compressed, Poco::DeflatingStreamBuf::STREAM_GZIP);
    for (; length > 0; length -= std::min(length, piece.size())) {
        stream.write(piece.data(), static_cast<std::streamsize>(std::min(length, piece.size())));
    }
    stream.close();
    return compressed.str();
}

inline std::string gzip(std::string_view content) {
    return gzipRepeated(content, content.size());
}

inline std::string gzippedZeros(std::size_t length) {
    return gzipRepeated(std::string(std::size_t{1} << 20, '\0'), length);
}

} // namespace testsupport
