// docs/install.md is done as it says, in order, by one shell: from the installation to programs of both build systems.
// What differs: this build instead of a release, a loopback server instead of a site, this build's sanitizers.
#include "tests/install/InstallFixture.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>

namespace {

using namespace installtest;
using namespace testsupport;

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
        text.replace(at, from.size(), to);
    }
    return text;
}

std::size_t countOf(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) {
        ++count;
    }
    return count;
}

// The fenced blocks of one language below a heading of the page, in order.
std::vector<std::string> blocks(const std::string& page, const std::string& language, const std::string& afterHeading) {
    std::vector<std::string> result;
    std::size_t at = page.find("\n" + afterHeading + "\n");
    const std::string fence = "\n```" + language + "\n";
    while (at != std::string::npos && (at = page.find(fence, at)) != std::string::npos) {
        at += fence.size();
        const std::size_t end = page.find("\n```\n", at);
        result.push_back(page.substr(at, end - at) + "\n");
        at = end;
    }
    return result;
}

const std::string kSite = "https://example.org/";

} // namespace

TEST(InstallPage, QuotesTheProgramThatTheTestsBuild) {
    const std::string page = readFile(source("docs/install.md"));
    EXPECT_THAT(blocks(page, "cpp", "## From a C++ program"),
                testing::ElementsAre(readFile(source("tests/install/consumer/main.cpp"))));
    EXPECT_THAT(blocks(page, "cmake", "## From a C++ program"),
                testing::ElementsAre(readFile(source("tests/install/consumer/CMakeLists.txt"))));
}

TEST(InstallPage, CommandsWorkInTheOrderOfThePage) {
    const std::string page = readFile(source("docs/install.md"));
    std::string commands;
    for (const std::string& block : blocks(page, "sh", "## Into a folder")) {
        commands += block;
    }
    const std::size_t requests = countOf(commands, kSite);
    ASSERT_EQ(requests, 3u) << "one with the tool, one for each build system";

    ScriptedServer server(
        std::vector<Script>(requests, {step::expectHead(), step::send(response("[content]")), step::awaitPeerEnd()}));
    commands = replaced(commands, kSite, server.url());
    commands = replaced(commands, "build/release", "\"" NETROVE_BUILD_FOLDER "\"");
    commands = replaced(commands, "/lib/pkgconfig", "/" NETROVE_LIBRARY_FOLDER "/pkgconfig");
    commands = replaced(commands, "g++ ", "g++ " + sanitizerFlags() + " ");

    const TemporaryFolder home;
    for (const char* file : {"main.cpp", "CMakeLists.txt"}) {
        writeFile(home.file(file), readFile(source(std::string("tests/install/consumer/") + file)));
    }
    const ShellOutcome outcome =
        shell(commands, home.path(), {{"CMAKE_GENERATOR", "Ninja"}, {"CXXFLAGS", sanitizerFlags()}});
    ASSERT_EQ(outcome.Status, 0) << commands << "\n" << outcome.Out;
    EXPECT_EQ(countOf(outcome.Out, "[content]"), requests) << outcome.Out;
    for (std::size_t index = 0; index < requests; ++index) {
        EXPECT_EQ(startLine(server.waitUntilDone(index).Heads.at(0)), "GET / HTTP/1.1");
    }
}
