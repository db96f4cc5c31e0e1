// Numbers in text from outside.
#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>

namespace netrove::cli {

// The number that `text` is, if it consists of decimal digits only and fits into 64 bits.
inline std::optional<std::uint64_t> wholeNumber(std::string_view text) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

} // namespace netrove::cli
