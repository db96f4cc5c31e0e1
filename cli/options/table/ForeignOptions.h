// Options that users of other programs type and that netrove does not have.
#pragma once

#include <span>
#include <string_view>

namespace netrove::cli {

struct ForeignOption {
    std::string_view Names; // as typed, separated by blanks
    std::string_view Instead;
    unsigned Commands; // those for which this is said
};

std::span<const ForeignOption> foreignOptions();

// What to use instead of an option with that name; empty if it is not one of them.
std::string_view insteadOf(std::string_view name, unsigned commands);
} // namespace netrove::cli
