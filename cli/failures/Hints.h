// What a person can try next after a failure: one table.
#pragma once

#include "vantik/Failure.h"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace netrove::cli {

struct HintRow {
    std::string_view Identifier;
    std::size_t Argument;    // number of the one to look at. The catalogue's own words around it never vary.
    std::string_view Needle; // must be in that argument; empty: any argument fits
    std::string_view Hint;
    bool Lacks = false; // the needle must be missing instead
};
std::span<const HintRow> hintTable();

// Empty if there is nothing to add to the failure's own text.
std::string_view hintFor(const vantik::Message& message);

// The known word that `word` probably means: it is what other programs call it, or mistyped by at most two letters, one
// if it is short. Empty for none.
std::string_view nearestWord(std::string_view word, std::span<const std::string> known);

} // namespace netrove::cli
