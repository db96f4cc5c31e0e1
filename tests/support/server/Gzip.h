// Content as servers compress it.
#pragma once

#include <Poco/DeflatingStream.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <string_view>

namespace testsupport {

inline std::string gzip(std::string_view content) {
    std::ostringstream compressed;
    Poco::DeflatingOutputStream stream(compressed, Poco::DeflatingStreamBuf::STREAM_GZIP);
    stream.write(content.data(), static_cast<std::streamsize>(content.size()));
    stream.close();
    return compressed.str();
}

// So many zero bytes, of which no more than a piece is held at a time.
inline std::string gzippedZeros(std::size_t length) {
    const std::string piece(std::size_t{1} << 20, '\0');
    std::ostringstream compressed;
    Poco::DeflatingOutputStream stream(compressed, Poco::DeflatingStreamBuf::STREAM_GZIP);
    for (; length > 0; length -= std::min(length, piece.size())) {
        stream.write(piece.data(), static_cast<std::streamsize>(std::min(length, piece.size())));
    }
    stream.close();
    return compressed.str();
}

} // namespace testsupport
