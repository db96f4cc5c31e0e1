#include "http/HttpSyntax.h"

#include <algorithm>
#include <locale>

namespace netrove {

namespace {

char upperInAscii(char letter) {
    return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - ('a' - 'A')) : letter;
}

// Runs `work` with the default locale's letters, or with null where they are those of ASCII: heads are compared many
// times for each exchange, and looking the letters up costs more than comparing.
template <class Work>
auto withLetters(Work work) {
    const std::locale locale;
    return work(locale == std::locale::classic() ? nullptr : &std::use_facet<std::ctype<char>>(locale));
}

} // namespace

bool equalIgnoringCase(std::string_view left, std::string_view right) {
    if (left.size() != right.size()) {
        return false;
    }
    return withLetters([&](const std::ctype<char>* letters) {
        const auto upper = [=](char letter) { return letters ? letters->toupper(letter) : upperInAscii(letter); };
        return std::equal(left.begin(), left.end(), right.begin(),
                          [&](char one, char other) { return one == other || upper(one) == upper(other); });
    });
}

std::string_view trimmed(std::string_view text) {
    return withLetters([&](const std::ctype<char>* letters) {
        const auto isSpace = [=](char c) {
            return letters ? letters->is(std::ctype_base::space, c) : c == ' ' || (c >= '\t' && c <= '\r');
        };
        while (!text.empty() && isSpace(text.front())) {
            text.remove_prefix(1);
        }
        while (!text.empty() && isSpace(text.back())) {
            text.remove_suffix(1);
        }
        return text;
    });
}

std::pair<std::string_view, std::string_view> viewFieldLine(std::string_view line) {
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) {
        return {line, {}};
    }
    const std::size_t value = line.find_first_not_of(' ', colon + 1);
    return {line.substr(0, colon), value == std::string_view::npos ? std::string_view() : line.substr(value)};
}

std::string reasonPhraseOf(std::string_view statusLine) {
    const std::size_t first = statusLine.find(' ');
    const std::size_t second = first == std::string_view::npos ? first : statusLine.find(' ', first + 1);
    return second == std::string_view::npos ? std::string() : std::string(statusLine.substr(second + 1));
}

} // namespace netrove
