// Pure parsing of heads and field lines.
#pragma once

#include <string>
#include <string_view>
#include <utility>

namespace netrove {

// A head that cannot be parsed. The text may quote its bytes, a NUL among them.
struct MalformedHead {
    std::string Text;
};

// Equal without regard to case, by the upper-case mapping of the default locale.
bool equalIgnoringCase(std::string_view left, std::string_view right);

// Name and value of a stored field line. Blanks (0x20 only) behind the colon are dropped; without a colon the line is a
// name with an empty value.
std::pair<std::string, std::string> splitFieldLine(std::string_view line);

// What stands behind the second blank of a status line; empty without one.
std::string reasonPhraseOf(std::string_view statusLine);

} // namespace netrove
