// Letters of names and labels, which are ASCII whatever the locale is.
#pragma once

#include <netrove/text.h> // equalsIgnoringCase

#include <algorithm>
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

} // namespace netrove
