// The field Content-Range (RFC 9110, section 14.4).
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace netrove {

struct ContentRange {
    std::optional<std::uint64_t> First; // nothing: "*", the range cannot be satisfied
    std::uint64_t Last = 0;             // where there is a first
    std::optional<std::uint64_t> Total; // nothing: "*"
};

// "bytes 5-9/10", "bytes 5-9/*", "bytes */10"; nothing for anything else.
std::optional<ContentRange> parseContentRange(std::string_view text);

} // namespace netrove
