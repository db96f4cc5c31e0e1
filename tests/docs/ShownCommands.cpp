#include "tests/docs/ShownCommands.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <sstream>

namespace docstest {
namespace {

namespace fs = std::filesystem;

constexpr const char* kPrograms[] = {"netrove", "cmake",  "cpack", "ctest",  "apt",    "apt-get", "sudo",    "g++",
                                     "jq",      "seq",    "srun",  "sbatch", "mpirun", "mv",      "cp",      "git",
                                     "man",     "export", "ninja", "curl",   "dpkg",   "python3", "parallel"};
constexpr const char* kFolders[] = {"scripts/", "packaging/", "build/", "./", "\"$HOME/"};

std::string trimmed(const std::string& text) {
    const auto begin = text.find_first_not_of(" \t");
    return begin == text.npos ? "" : text.substr(begin, text.find_last_not_of(" \t") + 1 - begin);
}

// "NAME=value", which sets a variable for the command after it.
bool isAssignment(const std::string& word) {
    const auto end = word.find('=');
    return end != word.npos && end > 0 &&
           std::all_of(word.begin(), word.begin() + static_cast<std::ptrdiff_t>(end),
                       [](unsigned char c) { return std::isupper(c) || std::isdigit(c) || c == '_'; });
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

void addPhrases(const std::string& line, std::vector<ShownCommand>& commands) {
    for (auto begin = line.find('`'); begin != line.npos; begin = line.find('`', begin + 1)) {
        const auto end = line.find('`', begin + 1);
        if (end == line.npos) {
            return;
        }
        const std::string phrase = line.substr(begin + 1, end - begin - 1);
        if (looksLikeACommand(phrase) && phrase.find(' ') != phrase.npos) {
            commands.push_back({phrase, {}});
        }
        begin = end;
    }
}

} // namespace

bool looksLikeACommand(const std::string& text) {
    std::istringstream words(text);
    std::string word;
    do {
        if (!(words >> word)) {
            return false;
        }
    } while (isAssignment(word));
    return std::ranges::find(kPrograms, word) != std::end(kPrograms) ||
           std::ranges::any_of(kFolders, [&](const char* folder) { return word.starts_with(folder); });
}

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
            addPhrases(line, commands);
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

std::vector<std::string> allPages() {
    const fs::path root(NETROVE_SOURCES);
    std::vector<std::string> pages;
    for (const char* folder : {".", "docs", "bench", "fuzz"}) {
        for (const auto& entry : fs::directory_iterator(root / folder)) {
            if (entry.path().extension() == ".md") {
                pages.push_back(entry.path().lexically_normal().lexically_relative(root.lexically_normal()).string());
            }
        }
    }
    std::ranges::sort(pages);
    return pages;
}

} // namespace docstest
