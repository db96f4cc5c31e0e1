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

// Name and value of a stored field line. Blanks (0x20 only) after the colon are dropped; a line without a colon is a
// name with an empty value.
std::pair<std::string, std::string> splitFieldLine(std::string_view line);

// What follows the second blank of a status line; empty if there is none.
std::string reasonPhraseOf(std::string_view statusLine);

} // namespace netrove
