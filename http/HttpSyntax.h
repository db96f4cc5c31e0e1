// Pure parsing of heads and field lines.
#pragma once

#include <string>
#include <string_view>
#include <utility>

namespace netrove {

// A head that cannot be parsed. The text may quote its bytes, NULs included.
struct MalformedHead {
    std::string Text;
};

// Compares without regard to case, by the upper-case mapping of the default locale.
bool equalIgnoringCase(std::string_view left, std::string_view right);

// Without white space at its ends, by the default locale.
std::string_view trimmed(std::string_view text);

// Name and value of a stored field line, in the line. Blanks (0x20 only) after the colon are dropped; a line without a
// colon is a name with an empty value.
std::pair<std::string_view, std::string_view> viewFieldLine(std::string_view line);

// What follows the second blank of a status line; empty if there is none.
std::string reasonPhraseOf(std::string_view statusLine);

} // namespace netrove
