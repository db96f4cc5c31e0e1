// The floors that the page on architecture draws, held against what the sources include: includes go one way.
#include "tests/support/process/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Names = std::set<std::string>;

// What each folder may include besides itself.
const std::map<std::string, Names> kBelow = {
    {"http", {}},
    {"errors", {"host"}},
    {"hostcalls", {"host", "errors"}},
    {"transfer", {"host", "errors", "hostcalls", "http"}},
    {"streaming", {"host", "errors", "hostcalls", "http", "transfer"}},
    {"hostclass", {"host", "errors", "hostcalls", "http", "transfer", "streaming"}},
    {"proxy", {"host", "errors", "hostcalls"}},
};
const Names kKnowLibcurl = {"transfer", "streaming"};

TEST(Floors, IncludesGoDown) {
    const std::regex include(R"re(#include ["<]([a-z]+)/[^">]+[">])re");
    const Names folders = {"http",  "errors",   "hostcalls", "transfer", "streaming", "hostclass",
                           "proxy", "embedded", "cli",       "host",     "curl"};
    for (const auto& [folder, below] : kBelow) {
        int seen = 0;
        for (const auto& entry : std::filesystem::directory_iterator(std::string(NETROVE_SOURCES) + "/" + folder)) {
            const std::string source = testsupport::readFile(entry.path());
            for (std::sregex_iterator found(source.begin(), source.end(), include), end; found != end; ++found) {
                const std::string target = (*found)[1];
                const bool mayBe =
                    target == "curl" ? kKnowLibcurl.contains(folder) : target == folder || below.contains(target);
                EXPECT_TRUE(mayBe || !folders.contains(target)) << entry.path() << " includes " << (*found)[0];
                ++seen;
            }
        }
        EXPECT_GT(seen, 0) << folder;
    }
}

// Who includes whom; `name` makes a node of a file.
template <class Name>
std::map<std::string, Names> includeGraph(Name name) {
    const fs::path root(NETROVE_SOURCES);
    const std::regex include(R"re(#include "([^"]+)")re");
    std::map<std::string, Names> graph;
    for (const char* top : {"http", "errors", "hostcalls", "transfer", "streaming", "hostclass", "proxy", "host",
                            "embedded", "cli", "tests", "fuzz", "bench", "examples"}) {
        for (const fs::path& file : fs::recursive_directory_iterator(root / top)) {
            if (file.extension() != ".h" && file.extension() != ".cpp") {
                continue;
            }
            const std::string source = testsupport::readFile(file);
            const std::string from = name(file.lexically_relative(root));
            for (std::sregex_iterator found(source.begin(), source.end(), include), end; found != end; ++found) {
                const std::string path = (*found)[1];
                const std::string to = name(path.starts_with("vantik/") ? "embedded/include/" + path : path);
                if (to != from) {
                    graph[from].insert(to);
                }
            }
        }
    }
    return graph;
}

// What a node reaches, itself only by way of others.
Names reached(const std::map<std::string, Names>& graph, const std::string& start) {
    Names seen;
    std::vector<std::string> open = {start};
    while (!open.empty()) {
        const auto found = graph.find(open.back());
        open.pop_back();
        for (const std::string& next : found == graph.end() ? Names() : found->second) {
            if (seen.insert(next).second) {
                open.push_back(next);
            }
        }
    }
    return seen;
}

TEST(Floors, NoFolderIsIncludedByWhatItIncludes) {
    const auto graph = includeGraph([](const fs::path& file) { return file.parent_path().string(); });
    EXPECT_GT(graph.size(), 30U);
    for (const auto& [folder, below] : graph) {
        EXPECT_FALSE(reached(graph, folder).contains(folder)) << folder;
    }
}

TEST(Floors, NoFileIsIncludedByWhatItIncludes) {
    const auto graph = includeGraph([](fs::path file) { return file.replace_extension().string(); });
    EXPECT_GT(graph.size(), 200U);
    for (const auto& [file, below] : graph) {
        EXPECT_FALSE(reached(graph, file).contains(file)) << file;
    }
}

} // namespace
