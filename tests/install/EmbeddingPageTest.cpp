// The build lines of docs/embedding.md, with the installed tree: all examples by CMake, the first one by hand.
#include "tests/install/InstallFixture.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace {

using namespace installtest;
using namespace testsupport;

class EmbeddingPage : public InstalledTree {
protected:
    const std::string Folder = scratch("examples");
    ScriptedServer Server{{step::expectHead(), step::send(response("[content]")), step::awaitPeerEnd()}};

    void SetUp() override {
        std::filesystem::copy(sourcePath("examples"), Folder,
                              std::filesystem::copy_options::recursive |
                                  std::filesystem::copy_options::overwrite_existing);
    }

    Outcome build(const std::string& commands, const std::string& folder = "") const {
        return shell(commands, Folder + folder,
                     {{"CMAKE_GENERATOR", "Ninja"},
                      {"CMAKE_PREFIX_PATH", prefix()},
                      {"PKG_CONFIG_PATH", library("pkgconfig")},
                      {"LD_LIBRARY_PATH", library("")}});
    }
    void expectContent(const Outcome& outcome) {
        ASSERT_EQ(outcome.Status, 0) << outcome.Out;
        EXPECT_THAT(outcome.Out, testing::EndsWith("[content]"));
        EXPECT_EQ(startLine(Server.waitUntilDone().Heads.at(0)), "GET / HTTP/1.1");
    }
};

// The page's first block of that language.
std::string block(const std::string& language) {
    return docstest::blockTexts(source("docs/embedding.md"), language).at(0);
}

} // namespace

TEST_F(EmbeddingPage, LineWithoutCMakeBuildsTheFirstExample) {
    expectContent(build(block("sh") + "./get_to_memory " + Server.url() + "\n", "/embedding"));
}

TEST_F(EmbeddingPage, ExamplesAreBuiltByThemselves) {
    // The two lines of the page are those that the examples' own file is made of.
    const std::string list = source("examples/CMakeLists.txt");
    EXPECT_THAT(block("cmake"), testing::HasSubstr("find_package(netrove CONFIG REQUIRED)\n"));
    EXPECT_THAT(list, testing::HasSubstr("find_package(netrove CONFIG REQUIRED)\n"));
    expectContent(build("cmake -S . -B build\ncmake --build build\nbuild/get_to_memory " + Server.url() + "\n"));
    for (const char* folder : {"examples", "examples/embedding"}) {
        for (const std::string& file : docstest::sourcesIn(folder, ".cpp")) {
            const std::string example = std::filesystem::path(file).stem().string();
            EXPECT_TRUE(std::filesystem::exists(Folder + "/build/" + example)) << example;
        }
    }
}
