// What becomes of content that nobody wants.
#pragma once

#include <netrove/transport.h>

#include <algorithm>
#include <cstddef>

namespace netrove {

// Takes little content, so that the connection can be kept, and no more: a new connection is cheaper then.
inline Taker drain() {
    constexpr std::size_t most = std::size_t{64} << 10;
    return [left = most](std::span<const std::byte> piece) mutable {
        left -= std::min(left, piece.size());
        return left != 0;
    };
}

} // namespace netrove
