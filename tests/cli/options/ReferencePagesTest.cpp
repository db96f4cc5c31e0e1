// The manual page and the completions that packages carry are those that the program prints. Where one differs, the
// target `reference_pages` writes them anew.
#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace testsupport;

struct Page {
    const char* Topic;
    const char* File; // under packaging/
};

class ReferencePage : public testing::TestWithParam<Page> {};

TEST_P(ReferencePage, IsWhatTheProgramPrints) {
    const Outcome outcome = run({"help", GetParam().Topic});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_GT(outcome.Out.size(), 500u);
    const bool same = outcome.Out == readFile(std::string(NETROVE_PACKAGING_FOLDER "/") + GetParam().File);
    EXPECT_TRUE(same) << GetParam().File << " differs; build the target reference_pages";
}

INSTANTIATE_TEST_SUITE_P(All, ReferencePage,
                         testing::Values(Page{"man", "netrove.1"}, Page{"bash", "completions/netrove.bash"},
                                         Page{"zsh", "completions/_netrove"}, Page{"fish", "completions/netrove.fish"}),
                         [](const auto& row) { return std::string(row.param.Topic); });

} // namespace
