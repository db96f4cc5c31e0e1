// What a person can try next, by failure: one table.
#pragma once

#include "vantik/Failure.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace netrove::cli {

struct HintRow {
    std::string_view Identifier;
    int Argument;            // the one that tells, by number. The catalogue's own words around it are always the same.
    std::string_view Needle; // in that argument; empty: whatever it says
    std::string_view Hint;
    bool Lacks = false; // the needle has to be missing instead
};
std::span<const HintRow> hintTable();

// Empty where there is nothing to say beyond the failure's own text.
std::string_view hintFor(const vantik::Message& message);

// The word of a list that another one is likely to mean: what other programs call it, or a mistyped one, at most two
// letters away and one where it is short. Empty for none.
std::string_view nearestWord(std::string_view word, std::span<const std::string> known);

} // namespace netrove::cli
