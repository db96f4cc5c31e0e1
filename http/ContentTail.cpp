#include "http/ContentTail.h"

#include <algorithm>
#include <cctype>
#include <limits>

namespace netrove {

void ContentTail::begin(bool isChunked, std::int64_t length) {
    *this = ContentTail();
    IsChunked = isChunked;
    if (!isChunked) {
        Left = length < 0 ? std::numeric_limits<std::uint64_t>::max() : static_cast<std::uint64_t>(length);
    }
}

void ContentTail::take(std::string_view bytes) {
    if (IsChunked) {
        takeChunked(bytes);
    } else {
        takeContent(bytes.substr(0, std::min<std::uint64_t>(Left, bytes.size())));
    }
}

void ContentTail::takeContent(std::string_view bytes) {
    Size += bytes.size();
    Left -= bytes.size();
    for (const char byte : bytes.substr(bytes.size() - std::min<std::size_t>(bytes.size(), 4))) {
        LastFour = LastFour >> 8 | std::uint32_t{static_cast<unsigned char>(byte)} << 24;
    }
}

void ContentTail::takeChunked(std::string_view bytes) {
    while (!bytes.empty() && Next != Part::Trailers) {
        if (Next == Part::Data) {
            const std::string_view content = bytes.substr(0, std::min<std::uint64_t>(Left, bytes.size()));
            takeContent(content);
            bytes.remove_prefix(content.size());
            if (Left == 0) {
                Next = Part::DataEnd;
            }
            continue;
        }
        const char byte = bytes.front();
        bytes.remove_prefix(1);
        if (byte == '\n') {
            Next = Next == Part::DataEnd ? Part::SizeLine : Left != 0 ? Part::Data : Part::Trailers;
            InDigits = true;
        } else if (Next == Part::SizeLine && InDigits) {
            InDigits = std::isxdigit(static_cast<unsigned char>(byte)) != 0; // an extension follows
            if (InDigits) {
                const int digit = std::isdigit(static_cast<unsigned char>(byte)) != 0
                                      ? byte - '0'
                                      : std::tolower(static_cast<unsigned char>(byte)) - 'a' + 10;
                Left = Left * 16 + static_cast<std::uint64_t>(digit);
            }
        }
    }
}

bool ContentTail::contradictsGzip() const {
    return Size != 0 && static_cast<std::uint32_t>(Decoded) != LastFour;
}

} // namespace netrove
