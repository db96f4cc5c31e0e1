// The floors that the page on architecture draws, held against what the sources include.
#include "tests/support/process/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <string>

namespace {

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

} // namespace
