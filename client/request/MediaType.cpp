#include "client/request/MediaType.h"

#include <fnmatch.h>

#include <charconv>
#include <fstream>
#include <tuple>
#include <vector>

namespace netrove {

namespace {

constexpr const char* kDatabase = "/usr/share/mime/globs2"; // of the package shared-mime-info

struct Pattern {
    int Weight = 0;
    std::string Type;
    std::string Glob;
    bool ExactCase = false;
};

// Lines are "weight:type:pattern" or "weight:type:pattern:flags".
std::vector<Pattern> readDatabase() {
    std::vector<Pattern> patterns;
    std::ifstream database(kDatabase);
    for (std::string line; std::getline(database, line);) {
        const auto type = line.find(':');
        const auto glob = line.find(':', type + 1);
        if (line.starts_with('#') || type == line.npos || glob == line.npos) {
            continue;
        }
        Pattern pattern;
        std::from_chars(line.data(), line.data() + type, pattern.Weight);
        pattern.Type = line.substr(type + 1, glob - type - 1);
        const auto flags = line.find(':', glob + 1);
        pattern.Glob = line.substr(glob + 1, flags == line.npos ? flags : flags - glob - 1);
        pattern.ExactCase = flags != line.npos && line.substr(flags + 1) == "cs";
        patterns.push_back(std::move(pattern));
    }
    return patterns;
}

} // namespace

std::string mediaTypeOf(const std::string& fileName) {
    static const std::vector<Pattern> patterns = readDatabase();
    const Pattern* best = nullptr;
    // A match with the letters as they are goes first ("main.C" is C++), then weight, then length ("*.tar.gz").
    std::tuple<bool, int, std::size_t> bestRank;
    for (const Pattern& pattern : patterns) {
        const bool exact = fnmatch(pattern.Glob.c_str(), fileName.c_str(), 0) == 0;
        if (!exact && (pattern.ExactCase || fnmatch(pattern.Glob.c_str(), fileName.c_str(), FNM_CASEFOLD) != 0)) {
            continue;
        }
        const std::tuple rank{exact, pattern.Weight, pattern.Glob.size()};
        if (best == nullptr || rank > bestRank) {
            best = &pattern;
            bestRank = rank;
        }
    }
    return best == nullptr ? "application/octet-stream" : best->Type;
}

} // namespace netrove
