// Reading the pages and sources that tests compare.
#pragma once

#include "tests/support/process/TemporaryFolder.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace docstest {

inline std::string sourcePath(const std::string& path) {
    return std::string(NETROVE_SOURCES) + "/" + path;
}

inline std::string source(const std::string& path) {
    return testsupport::readFile(sourcePath(path));
}

// The files of one folder with that extension, as paths from the root of the sources, sorted.
inline std::vector<std::string> sourcesIn(const std::string& folder, const std::string& extension) {
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(sourcePath(folder))) {
        if (entry.path().extension() == extension) {
            files.push_back((std::filesystem::path(folder) / entry.path().filename()).lexically_normal().string());
        }
    }
    std::ranges::sort(files);
    return files;
}

// All pages, as paths from the root.
inline std::vector<std::string> allPages() {
    std::vector<std::string> pages;
    for (const char* folder : {".", "bench", "docs", "fuzz"}) {
        std::ranges::copy(sourcesIn(folder, ".md"), std::back_inserter(pages));
    }
    return pages;
}

// What the first parenthesis of the expression matches, each time.
inline std::vector<std::string> matches(const std::string& text, const char* expression) {
    const std::regex regex(expression);
    std::vector<std::string> found;
    for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match) {
        found.push_back((*match)[1]);
    }
    return found;
}

inline std::string replaced(std::string text, const std::string& from, const std::string& to) {
    for (auto at = text.find(from); at != text.npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

// The part of a page below a heading, up to the next one of its kind or a higher one.
inline std::string section(const std::string& page, const std::string& heading) {
    const auto begin = page.find("\n" + heading + "\n");
    if (begin == page.npos) {
        return "";
    }
    const std::string rest = page.substr(begin + 1);
    return rest.substr(0, std::min(rest.find("\n## "), rest.find("\n" + heading.substr(0, heading.find(' ') + 1))));
}

// A fenced block.
struct Block {
    std::string Language;
    std::string Before; // the line in front of it
    std::string Text;
};

// The blocks of a page; `prose` becomes the rest of it.
inline std::vector<Block> blocksOf(const std::string& page, std::string* prose = nullptr) {
    std::vector<Block> blocks;
    std::istringstream lines(page);
    bool inside = false;
    std::string before;
    for (std::string line; std::getline(lines, line); before = line) {
        if (line.starts_with("```")) {
            inside = !inside;
            if (inside) {
                blocks.push_back({line.substr(3), before, ""});
            }
        } else if (inside) {
            blocks.back().Text += line + "\n";
        } else if (prose != nullptr) {
            *prose += line + "\n";
        }
    }
    return blocks;
}

// What a page may quote: a whole source, or with "source: name" the lines between "// [name]" and "// [/name]", without
// the indentation that they share. Empty if there is no such part.
inline std::string quotable(const std::string& name) {
    const auto colon = name.find(": ");
    std::istringstream lines(source(name.substr(0, colon)));
    if (colon == name.npos) {
        return lines.str();
    }
    const std::string part = name.substr(colon + 2);
    std::string text;
    std::size_t indentation = 0;
    bool inside = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.ends_with("// [" + part + "]")) {
            inside = true;
            indentation = line.find('/');
        } else if (line.ends_with("// [/" + part + "]")) {
            return text;
        } else if (inside) {
            text += line.substr(std::min(line.size(), indentation)) + "\n";
        }
    }
    return "";
}

// The texts of the blocks of one language.
inline std::vector<std::string> blockTexts(const std::string& page, const std::string& language) {
    std::vector<std::string> texts;
    for (const Block& block : blocksOf(page)) {
        if (block.Language == language) {
            texts.push_back(block.Text);
        }
    }
    return texts;
}

// Where the links and pictures of a page lead, without those into the network and those within the page.
inline std::vector<std::string> relativeLinks(const std::string& page) {
    std::string prose; // a lambda of C++ looks like a link
    blocksOf(page, &prose);
    std::vector<std::string> targets = matches(prose, R"re((?:\]\(|<img [^>]*src=")([^")#]+))re");
    std::erase_if(targets, [](const std::string& target) { return target.find(":") != target.npos; });
    return targets;
}

} // namespace docstest
