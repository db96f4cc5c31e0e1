// What a person can try next after a failure: one table.
#pragma once

#include "vantik/Failure.h"

#include <cstddef>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace netrove::cli {

enum class Party { Any, Server, Proxy };
constexpr std::size_t kWholeText = std::numeric_limits<std::size_t>::max();

struct HintRow {
    std::string_view Identifier;
    std::size_t Argument;    // number of the one to look at, or kWholeText
    std::string_view Needle; // must be in that argument; empty: any argument fits
    std::string_view Hint;
    bool Lacks = false;    // the needle must be missing instead
    Party Of = Party::Any; // whose failure it is
};
std::span<const HintRow> hintTable();

// Empty if there is nothing to add to the failure's own text.
std::string hintFor(const vantik::Message& message);

// The known word that `word` probably means: it is what other programs call it, or mistyped by at most two letters, one
// if it is short. Empty for none.
std::string_view nearestWord(std::string_view word, std::span<const std::string> known);

} // namespace netrove::cli
