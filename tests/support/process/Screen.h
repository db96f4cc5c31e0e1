// A terminal as far as our programs move its cursor: what a person sees in the end, and the longest line on the way.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace testsupport {

class Screen {
public:
    // One byte is one column; the terminal breaks no line.
    explicit Screen(std::string_view bytes) {
        while (!bytes.empty()) {
            bytes.remove_prefix(take(bytes));
        }
        while (!Lines.empty() && Lines.back().empty()) {
            Lines.pop_back();
        }
    }

    std::vector<std::string> Lines; // without blanks at their ends
    std::size_t Widest = 0;         // of all that was shown

private:
    std::size_t take(std::string_view bytes) {
        if (bytes.starts_with("\033[")) {
            return 2 + obey(bytes.substr(2));
        }
        const char c = bytes.front();
        if (c == '\n') {
            ++Row;
        } else if (c == '\r') {
            Column = 0;
        } else if (c < ' ') {
            throw std::runtime_error("a control character on the screen: " + std::to_string(int(c)));
        } else {
            std::string& line = Lines.at(grow());
            line.resize(std::max(line.size(), Column + 1), ' ');
            line[Column] = c;
            Widest = std::max(Widest, ++Column);
        }
        grow();
        return 1;
    }
    // What follows "\033[".
    std::size_t obey(std::string_view code) {
        std::size_t count = 1;
        const char* const end = std::from_chars(code.data(), code.data() + code.size(), count).ptr;
        const auto length = static_cast<std::size_t>(end - code.data());
        std::string& line = Lines.at(grow());
        switch (length < code.size() ? *end : '\0') {
        case 'A':
            Row -= std::min(Row, count);
            break;
        case 'J':
            Lines.resize(Row + 1);
            [[fallthrough]];
        case 'K':
            line.resize(std::min(line.size(), Column));
            break;
        case 'm':
            break;
        default:
            throw std::runtime_error("an unknown code on the screen: " + std::string(code.substr(0, 8)));
        }
        return length + 1;
    }
    std::size_t grow() {
        Lines.resize(std::max(Lines.size(), Row + 1));
        return Row;
    }

    std::size_t Row = 0;
    std::size_t Column = 0;
};

} // namespace testsupport
