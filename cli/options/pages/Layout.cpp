#include "cli/options/pages/Layout.h"

#include <algorithm>
#include <utility>

namespace netrove::cli {

namespace {

constexpr std::size_t kIndent = 2;
constexpr std::size_t kDeepIndent = 6;
constexpr std::size_t kLeastTextWidth = 40; // less is hard to read beside names

} // namespace

std::string wrapped(std::string_view text, std::size_t width, std::size_t indent) {
    std::string result;
    std::size_t column = 0;
    for (std::size_t start = 0; start < text.size();) {
        const auto end = std::min(text.find(' ', start), text.size());
        const std::string_view word = text.substr(start, end - start);
        if (column != 0 && column + 1 + word.size() > width) {
            result += "\n" + std::string(indent, ' ');
            column = 0;
        } else if (column != 0) {
            result += ' ';
            ++column;
        }
        result += word;
        column += word.size();
        start = end + 1;
    }
    return result;
}

std::string paragraph(std::string_view text, std::size_t columns) {
    return wrapped(text, columns) + "\n";
}

std::string entry(std::string_view name, std::string_view text, std::size_t columns, std::size_t nameWidth) {
    const std::size_t beside = kIndent + nameWidth;
    const bool below = columns < beside + kLeastTextWidth;
    const std::size_t indent = below ? kDeepIndent : beside;
    std::string result = std::string(kIndent, ' ') + std::string(name);
    if (below || name.size() + 2 > nameWidth) {
        result += "\n" + std::string(indent, ' ');
    } else {
        result += std::string(nameWidth - name.size(), ' ');
    }
    return result + wrapped(text, columns - indent, indent) + "\n";
}

std::string commandLines(std::string_view line, std::size_t width, std::size_t indent) {
    if (line.size() <= width) {
        return std::string(line);
    }
    std::string result;
    for (const char c : wrapped(line, width - 2 - std::min(indent, width / 2), indent)) {
        result += c == '\n' ? " \\\n" : std::string(1, c);
    }
    return result;
}

std::string usageOf(const OptionRow& row) {
    std::string text = row.ShortName == 0 ? "    " : std::string("-") + row.ShortName + ", ";
    text += "--" + std::string(row.LongName);
    if (!row.ValueName.empty()) {
        text += " " + std::string(row.ValueName);
    }
    return text;
}

std::string meaningOf(const OptionRow& row) {
    std::string names;
    for (const std::string& name : longNames(row)) {
        if (name != row.LongName) {
            names += (names.empty() ? ". Also --" : ", --") + name;
        }
    }
    return std::string(row.Help) + names;
}

std::string usageOf(const CommandRow& command) {
    std::string text = "netrove " + std::string(command.Name) + " [OPTIONS]";
    for (const auto& [taken, name] : {std::pair{command.Url, " URL"}, std::pair{command.Target, " [FILE]"},
                                      std::pair{command.Manifest, " MANIFEST"}, std::pair{command.Topic, " [TOPIC]"}}) {
        text += taken ? name : "";
    }
    return text;
}

} // namespace netrove::cli
