// The lines of a manifest as they come.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace netrove::cli {

class LineReader {
public:
    // Fills what it is given and returns how many bytes that are; 0 at the end.
    using Read = std::function<std::size_t(std::span<char> room)>;

    struct Line {
        std::size_t Number;    // from 1; of all lines
        std::string_view Text; // without blanks around it; valid until the next call
    };

    explicit LineReader(Read read) : ReadMore(std::move(read)) {}

    // The next one that is neither empty nor a comment, as soon as its end has come; nothing at the end.
    std::optional<Line> next();

private:
    std::optional<std::string_view> whole();

    Read ReadMore;
    std::vector<char> Buffer;
    std::size_t Begin = 0;   // of the line that is next
    std::size_t Checked = 0; // its end is not before this
    std::size_t End = 0;     // of what was read
    bool Finished = false;
    std::size_t Number = 0;
};

} // namespace netrove::cli
