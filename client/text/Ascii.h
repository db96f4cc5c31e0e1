// Letters of names and labels, which are ASCII whatever the locale is.
#pragma once

#include <netrove/text.h> // equalsIgnoringCase

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace netrove {

inline char lowered(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

inline std::string lowered(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), [](char c) { return lowered(c); });
    return result;
}

// The same as find_first_of and find_first_not_of, for sets of more than one or two: one look at each character.
class CharacterSet {
public:
    constexpr explicit CharacterSet(std::string_view members) {
        for (const char c : members) {
            Members[static_cast<unsigned char>(c)] = true;
        }
    }
    constexpr bool has(char c) const { return Members[static_cast<unsigned char>(c)]; }
    std::size_t firstIn(std::string_view text, std::size_t start = 0) const {
        const std::size_t begin = std::min(start, text.size());
        const auto found = std::find_if(text.begin() + begin, text.end(), [this](char c) { return has(c); });
        return found == text.end() ? text.npos : static_cast<std::size_t>(found - text.begin());
    }

private:
    std::array<bool, 256> Members{};
};

} // namespace netrove
