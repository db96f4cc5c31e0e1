// The code that the README, the tutorial and the cookbook show, run: it prints what the page says.
#include "tests/docs/Page.h"
#include "tests/examples/ExampleRun.h"
#include "tests/examples/ExampleSite.h"
#include "tests/support/process/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace docstest;
using namespace testsupport;

Outcome runPart(const ExampleSite& site, const TemporaryFolder& folder, const std::string& program, Words arguments) {
    writeFile(folder.file("photo.jpg"), "a photo");
    return run(std::move(arguments), {.Environment = {{"EXAMPLE_SITE", site.url()}},
                                      .Folder = folder.path(),
                                      .Executable = builtFile("bin/client_pages/" + program)});
}

// Each block of code comes before a block of what it prints.
void expectWhatThePageSays(const std::string& page, const std::string& program, std::size_t parts) {
    const std::vector<Block> blocks = blocksOf(source(page));
    std::size_t count = 0;
    for (std::size_t at = 0; at < blocks.size(); ++at) {
        const auto part = matches(blocks[at].Before, R"(^<!-- examples/client/\w+\.cpp: (\w+) -->$)");
        if (part.empty()) {
            continue;
        }
        SCOPED_TRACE(part.front());
        ASSERT_LT(at + 1, blocks.size());
        ASSERT_EQ(blocks[at + 1].Language, "text") << "what it prints";
        const ExampleSite site;
        const TemporaryFolder folder;
        const Outcome outcome = runPart(site, folder, program, {part.front()});
        EXPECT_EQ(outcome.Status, 0) << outcome.Err;
        const std::string printed =
            replaced(replaced(outcome.Out, site.url(), "https://example.org"), site.authority(), "example.org:443");
        EXPECT_EQ(printed, blocks[at + 1].Text) << outcome.Err;
        ++count;
    }
    EXPECT_EQ(count, parts);
}

TEST(ClientPages, TutorialStepsPrintWhatThePageSays) {
    expectWhatThePageSays("docs/get-started.md", "tutorial", 10);
}

TEST(ClientPages, RecipesPrintWhatThePageSays) {
    expectWhatThePageSays("docs/cookbook.md", "cookbook", 11);
}

TEST(ClientPages, FirstExampleDoesAllItsRequests) {
    const ExampleSite site;
    const TemporaryFolder folder;
    const Outcome outcome = runPart(site, folder, "first", {});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_THAT(outcome.Out, testing::StartsWith("Hello from example.org\n"));
    EXPECT_THAT(outcome.Out, testing::EndsWith(" bytes\n"));
    EXPECT_EQ(readFile(folder.file("data.bin")).size(), 100'000U);
}

TEST(ClientPages, PartsThatDoNotExistAreUsage) {
    const ExampleSite site;
    const TemporaryFolder folder;
    const Outcome outcome = runPart(site, folder, "tutorial", {"nothing"});
    EXPECT_EQ(outcome.Status, 2);
    EXPECT_THAT(outcome.Err, testing::HasSubstr("  page\n"));
}

} // namespace
