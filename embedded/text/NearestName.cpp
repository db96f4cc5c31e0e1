#include "embedded/text/NearestName.h"

#include <algorithm>
#include <utility>

namespace vantik::detail {

namespace {

// Edits are counted in halves. The command line has a distance of its own for mistyped words: swapping two neighbours
// is one edit there, letter case counts in full, and words are not told apart.
constexpr std::size_t kEdit = 2;
constexpr std::size_t kCaseEdit = 1;
constexpr std::size_t kWordEdit = 2 * kEdit; // a whole word more or less
constexpr std::size_t kMostEdits = 3;
constexpr std::size_t kNever = 1000000;   // more than any two names differ
constexpr std::size_t kShortestPart = 4;  // letters that are enough to stand for a longer name
constexpr std::size_t kLongestName = 256; // the comparison takes the product of both lengths

using Words = std::vector<std::string_view>;

bool isUpper(char c) noexcept {
    return c >= 'A' && c <= 'Z';
}

char lower(char c) noexcept {
    return isUpper(c) ? static_cast<char>(c - 'A' + 'a') : c;
}

std::size_t changeCost(char from, char to) noexcept {
    return from == to ? 0 : lower(from) == lower(to) ? kCaseEdit : kEdit;
}

// The least cost of the edits that turn one sequence into the other.
template <class Sequence, class ChangeCost>
std::size_t distance(const Sequence& from, const Sequence& to, std::size_t removal, std::size_t insertion,
                     ChangeCost change) {
    std::vector<std::size_t> row(to.size() + 1);
    for (std::size_t j = 0; j <= to.size(); ++j) {
        row[j] = j * insertion;
    }
    for (std::size_t i = 1; i <= from.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i * removal;
        for (std::size_t j = 1; j <= to.size(); ++j) {
            const std::size_t changed = diagonal + change(from[i - 1], to[j - 1]);
            diagonal = row[j];
            row[j] = std::min({changed, row[j] + removal, row[j - 1] + insertion});
        }
    }
    return row[to.size()];
}

std::size_t letterDistance(std::string_view from, std::string_view to) {
    return distance(from, to, kEdit, kEdit, changeCost);
}

std::size_t wordDistance(const Words& from, const Words& to, std::size_t removal, std::size_t insertion) {
    return distance(from, to, removal, insertion, letterDistance);
}

// "HTTPConnection" is "HTTP" and "Connection"; dots and underscores separate too.
Words wordsOf(std::string_view name) {
    Words words;
    std::size_t start = 0;
    const auto endWord = [&](std::size_t end, std::size_t next) {
        if (end > start) {
            words.push_back(name.substr(start, end - start));
        }
        start = next;
    };
    for (std::size_t at = 0; at < name.size(); ++at) {
        if (name[at] == '.' || name[at] == '_') {
            endWord(at, at + 1);
        } else if (isUpper(name[at]) && at > start &&
                   (!isUpper(name[at - 1]) || (at + 1 < name.size() && !isUpper(name[at + 1])))) {
            endWord(at, at);
        }
    }
    endWord(name.size(), name.size());
    return words;
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
    const std::size_t limit = std::clamp<std::size_t>(length / 3, 1, kMostEdits) * kEdit;
    const Words words = wordsOf(name);
    std::size_t best = kNever;
    for (const std::string& candidate : candidates) {
        const Words known = wordsOf(candidate);
        const std::size_t edits =
            std::min(letterDistance(name, candidate), wordDistance(words, known, kWordEdit, kWordEdit));
        const bool isPart = length >= kShortestPart && !words.empty() && wordDistance(words, known, kNever, 0) <= limit;
        if (edits < best && (edits <= limit || isPart)) {
            best = edits;
            nearest = candidate;
        }
    }
    return nearest;
}

std::vector<resource_core::MsgArgument> withHint(std::vector<resource_core::MsgArgument> arguments, std::string hint) {
    arguments.emplace_back(hint.empty() ? std::string("none") : std::move(hint));
    return arguments;
}

} // namespace vantik::detail
