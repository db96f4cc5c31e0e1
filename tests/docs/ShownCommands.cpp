#include "tests/docs/ShownCommands.h"

#include "tests/docs/Page.h"

#include <regex>
#include <sstream>

namespace docstest {
namespace {

// Begins with the name of a program or a script, after variables that are set for it.
bool looksLikeACommand(const std::string& text) {
    static const std::regex command(
        R"re(\s*([A-Z0-9_]+=\S*\s+)*(scripts/|packaging/|build/|\./|"\$HOME/|(netrove|cmake|cpack|ctest|apt|apt-get|sudo|g\+\+|jq|seq|srun|sbatch|mpirun|mv|cp|git|man|export|ninja|curl|dpkg|python3|pip|parallel)(\s|$)))re");
    return std::regex_search(text, command, std::regex_constants::match_continuous);
}

std::string trimmed(const std::string& text) {
    const auto begin = text.find_first_not_of(" \t");
    return begin == text.npos ? "" : text.substr(begin, text.find_last_not_of(" \t") + 1 - begin);
}

// Where a comment begins: a hash after a blank, outside quotation marks.
std::size_t commentStart(const std::string& line) {
    char quote = '\0';
    for (std::size_t at = 0; at < line.size(); ++at) {
        const char c = line[at];
        if (quote != '\0') {
            quote = c == quote ? '\0' : quote;
        } else if (c == '\'' || c == '"') {
            quote = c;
        } else if (c == '#' && (at == 0 || line[at - 1] == ' ')) {
            return at;
        }
    }
    return line.size();
}

ShownCommand command(const std::string& line) {
    const auto start = commentStart(line);
    ShownCommand result{trimmed(line.substr(0, start)), {}};
    if (start < line.size()) {
        result.Comment = trimmed(line.substr(start + 1));
    }
    if (result.Comment.starts_with("exits ")) {
        result.Status = std::stoi(result.Comment.substr(6));
    }
    return result;
}

} // namespace

std::vector<ShownCommand> shownCommands(const std::string& page) {
    std::vector<ShownCommand> commands;
    std::istringstream lines(page);
    bool inBlock = false;
    std::string language;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("```")) {
            inBlock = !inBlock;
            language = line.substr(3);
            continue;
        }
        const bool indented = line.starts_with("    ");
        if (!inBlock && !indented) {
            for (const std::string& phrase : matches(line, "`([^`]+)`")) {
                if (looksLikeACommand(phrase) && phrase.find(' ') != phrase.npos) {
                    commands.push_back({replaced(phrase, "\\|", "|"), {}}); // as a table shows a bar
                }
            }
            continue;
        }
        if (inBlock && language != "sh" && !language.empty()) {
            continue;
        }
        std::string next;
        while (line.ends_with('\\') && std::getline(lines, next)) {
            line = line.substr(0, line.size() - 1) + trimmed(next);
        }
        if (language == "sh" && inBlock ? !trimmed(line).empty() && !trimmed(line).starts_with('#')
                                        : looksLikeACommand(line)) {
            commands.push_back(command(line));
        }
    }
    return commands;
}

} // namespace docstest
