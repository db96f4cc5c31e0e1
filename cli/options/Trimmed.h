#pragma once

#include <string_view>

namespace netrove::cli {

// Without the blanks around it.
inline std::string_view trimmed(std::string_view text, std::string_view blanks) {
    const auto first = text.find_first_not_of(blanks);
    return first == text.npos ? std::string_view() : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

} // namespace netrove::cli
