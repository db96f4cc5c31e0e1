#include "http/HttpSyntax.h"

#include <algorithm>
#include <locale>

namespace netrove {

bool equalIgnoringCase(std::string_view left, std::string_view right) {
    if (left.size() != right.size()) {
        return false;
    }
    const std::locale locale;
    const auto& letters = std::use_facet<std::ctype<char>>(locale); // once: looking it up costs more than comparing
    return std::equal(left.begin(), left.end(), right.begin(),
                      [&](char one, char other) { return letters.toupper(one) == letters.toupper(other); });
}

std::pair<std::string, std::string> splitFieldLine(std::string_view line) {
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) {
        return {std::string(line), std::string()};
    }
    const std::size_t value = line.find_first_not_of(' ', colon + 1);
    return {std::string(line.substr(0, colon)),
            value == std::string_view::npos ? std::string() : std::string(line.substr(value))};
}

std::string reasonPhraseOf(std::string_view statusLine) {
    const std::size_t first = statusLine.find(' ');
    const std::size_t second = first == std::string_view::npos ? first : statusLine.find(' ', first + 1);
    return second == std::string_view::npos ? std::string() : std::string(statusLine.substr(second + 1));
}

} // namespace netrove
