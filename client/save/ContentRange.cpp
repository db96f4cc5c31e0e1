#include "client/save/ContentRange.h"

#include "client/text/Ascii.h"

#include <charconv>

namespace netrove {

std::optional<ContentRange> parseContentRange(std::string_view text) {
    const auto number = [&](std::uint64_t& value) {
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
        text.remove_prefix(static_cast<std::size_t>(end - text.data()));
        return error == std::errc();
    };
    const auto literal = [&](std::string_view expected) {
        const bool there = equalsIgnoringCase(text.substr(0, expected.size()), expected);
        text.remove_prefix(there ? expected.size() : 0);
        return there;
    };
    ContentRange range;
    std::uint64_t first = 0;
    std::uint64_t total = 0;
    if (!literal("bytes ")) { // names of units have no case (section 14.1)
        return std::nullopt;
    }
    if (!literal("*")) {
        if (!number(first) || !literal("-") || !number(range.Last) || range.Last < first) {
            return std::nullopt;
        }
        range.First = first;
    }
    if (!literal("/")) {
        return std::nullopt;
    }
    if (!literal("*")) {
        if (!number(total) || (range.First && total <= range.Last)) {
            return std::nullopt;
        }
        range.Total = total;
    }
    return text.empty() ? std::optional(range) : std::nullopt;
}

} // namespace netrove
