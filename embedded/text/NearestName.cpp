#include "embedded/text/NearestName.h"

#include <algorithm>
#include <utility>

namespace vantik::detail {

namespace {

// Edits are counted in halves. The command line has a distance of its own for mistyped words: swapping two neighbours
// is one edit there, and letter case counts in full.
constexpr std::size_t kEdit = 2;
constexpr std::size_t kCaseEdit = 1;
constexpr std::size_t kLongestName = 256; // the comparison takes the product of both lengths

char lower(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::size_t changeCost(char from, char to) noexcept {
    return from == to ? 0 : lower(from) == lower(to) ? kCaseEdit : kEdit;
}

std::size_t distance(std::string_view from, std::string_view to) {
    std::vector<std::size_t> row(to.size() + 1);
    for (std::size_t j = 0; j <= to.size(); ++j) {
        row[j] = j * kEdit;
    }
    for (std::size_t i = 1; i <= from.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i * kEdit;
        for (std::size_t j = 1; j <= to.size(); ++j) {
            const std::size_t change = diagonal + changeCost(from[i - 1], to[j - 1]);
            diagonal = row[j];
            row[j] = std::min({change, row[j] + kEdit, row[j - 1] + kEdit});
        }
    }
    return row[to.size()];
}

} // namespace

std::string nearestName(std::string_view name, std::span<const std::string> candidates) {
    std::string nearest;
    if (name.size() > kLongestName) {
        return nearest;
    }
    // Names of classes share long packages: what may differ is measured by the part after the last dot.
    const std::size_t dot = name.rfind('.');
    const std::size_t length = dot == std::string_view::npos ? name.size() : name.size() - dot - 1;
    std::size_t best = std::max<std::size_t>(length / 3, 1) * kEdit + 1;
    for (const std::string& candidate : candidates) {
        const std::size_t lengths = std::max(candidate.size(), name.size()) - std::min(candidate.size(), name.size());
        if (lengths * kEdit < best) {
            const std::size_t edits = distance(name, candidate);
            if (edits < best) {
                best = edits;
                nearest = candidate;
            }
        }
    }
    return nearest;
}

std::vector<resource_core::MsgArgument> withHint(std::vector<resource_core::MsgArgument> arguments, std::string hint) {
    arguments.emplace_back(hint.empty() ? std::string("none") : std::move(hint));
    return arguments;
}

} // namespace vantik::detail
