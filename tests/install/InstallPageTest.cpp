// docs/install.md is done as it says, in order, by one shell: from the installation to programs of both build systems.
// What differs: this build instead of a release, a loopback server instead of a site.
#include "tests/install/InstallFixture.h"
#include "tests/support/process/ElfFile.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>

namespace {

using namespace installtest;
using namespace testsupport;

std::size_t countOf(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) {
        ++count;
    }
    return count;
}

std::string page() {
    return source("docs/install.md");
}
const std::string kSite = "https://example.org/";

} // namespace

TEST(InstallPage, QuotesTheProgramThatTheTestsBuild) {
    EXPECT_THAT(docstest::blockTexts(page(), "cpp"), testing::ElementsAre(source("tests/install/consumer/main.cpp")));
    EXPECT_THAT(docstest::blockTexts(page(), "cmake"),
                testing::ElementsAre(source("tests/install/consumer/CMakeLists.txt")));
}

TEST(InstallPage, CommandsWorkInTheOrderOfThePage) {
    std::string commands;
    for (const std::string& block : docstest::blockTexts(page().substr(page().find("\n## Into a folder\n")), "sh")) {
        commands += block;
    }
    const std::size_t requests = countOf(commands, kSite);
    ASSERT_EQ(requests, 3u) << "one with the tool, one for each build system";

    ScriptedServer server(
        std::vector<Script>(requests, {step::expectHead(), step::send(response("[content]")), step::awaitPeerEnd()}));
    commands = docstest::replaced(commands, kSite, server.url());
    commands = docstest::replaced(commands, "build/release", "\"" NETROVE_BUILD_FOLDER "\"");
    commands = docstest::replaced(commands, "/lib/pkgconfig", "/" NETROVE_LIBRARY_FOLDER "/pkgconfig");

    const TemporaryFolder home;
    for (const char* file : {"main.cpp", "CMakeLists.txt"}) {
        writeFile(home.file(file), source(std::string("tests/install/consumer/") + file));
    }
    const Outcome outcome = shell(commands, home.path(), {{"CMAKE_GENERATOR", "Ninja"}});
    ASSERT_EQ(outcome.Status, 0) << commands << "\n" << outcome.Out;
    EXPECT_EQ(countOf(outcome.Out, "[content]"), requests) << outcome.Out;
    for (std::size_t index = 0; index < requests; ++index) {
        EXPECT_EQ(startLine(server.waitUntilDone(index).Heads.at(0)), "GET / HTTP/1.1");
    }
    // What the library is made of stays its own business.
    for (const char* program : {"fetch", "build/fetch"}) {
        EXPECT_THAT(ElfFile(home.file(program)).neededLibraries(),
                    testing::IsSubsetOf({"libnetrove_client.so." NETROVE_SOVERSION, "libstdc++.so.6", "libm.so.6",
                                         "libgcc_s.so.1", "libc.so.6"}))
            << program;
    }
}
