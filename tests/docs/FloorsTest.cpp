// The floors that the page on architecture draws, held against what the sources include: includes go one way.
#include "tests/docs/Page.h"

#include <gmock/gmock.h>

#include <map>
#include <set>

namespace {

using namespace docstest;
namespace fs = std::filesystem;
using Names = std::set<std::string>;
using Graph = std::map<std::string, Names>;

// Who includes whom; `name` makes a node of a file.
Graph includeGraph(std::string (*name)(fs::path)) {
    Graph graph;
    for (const char* top : {"late", "http", "errors", "hostcalls", "transfer", "streaming", "hostclass", "proxy",
                            "host", "embedded", "client", "cli", "python", "tests", "fuzz", "bench", "examples"}) {
        for (const fs::path& file : fs::recursive_directory_iterator(sourcePath(top))) {
            if (file.extension() != ".h" && file.extension() != ".cpp") {
                continue;
            }
            const std::string from = name(file.lexically_relative(NETROVE_SOURCES));
            for (const std::string& path : matches(testsupport::readFile(file), R"re(#include ["<]([^">]+)[">])re")) {
                const std::string to = name(path.starts_with("vantik/")    ? "embedded/include/" + path
                                            : path.starts_with("netrove/") ? "client/include/" + path
                                                                           : path);
                if (to != from) {
                    graph[from].insert(to);
                }
            }
        }
    }
    return graph;
}

// What each folder may include besides itself.
const Graph kBelow = {
    {"late", {}},
    {"http", {}},
    {"errors", {"host"}},
    {"hostcalls", {"host", "errors"}},
    {"transfer", {"host", "errors", "hostcalls", "http", "curl", "late"}},
    {"streaming", {"host", "errors", "hostcalls", "http", "transfer", "curl"}},
    {"hostclass", {"host", "errors", "hostcalls", "http", "transfer", "streaming"}},
    {"proxy", {"host", "errors", "hostcalls"}},
    {"client", {"embedded", "http", "late"}},
};

TEST(Floors, IncludesGoDown) {
    const Names folders = {"http",     "errors", "hostcalls", "transfer", "streaming", "hostclass", "proxy",
                           "embedded", "client", "cli",       "host",     "curl",      "late"};
    const Graph graph = includeGraph([](fs::path file) { return file.begin()->string(); });
    for (const auto& [folder, below] : kBelow) {
        ASSERT_TRUE(graph.contains(folder)) << folder;
        for (const std::string& target : graph.at(folder)) {
            EXPECT_TRUE(below.contains(target) || !folders.contains(target)) << folder << " includes " << target;
        }
    }
}

// What a node reaches, itself only by way of others.
Names reached(const Graph& graph, const std::string& start) {
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

TEST(Floors, NoFolderAndNoFileIsIncludedByWhatItIncludes) {
    const Graph folders = includeGraph([](fs::path file) { return file.parent_path().string(); });
    const Graph files = includeGraph([](fs::path file) { return file.replace_extension().string(); });
    EXPECT_GT(folders.size(), 30U);
    EXPECT_GT(files.size(), 200U);
    for (const Graph& graph : {folders, files}) {
        for (const auto& [node, below] : graph) {
            EXPECT_FALSE(reached(graph, node).contains(node)) << node;
        }
    }
}

} // namespace
