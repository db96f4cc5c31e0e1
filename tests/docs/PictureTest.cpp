// The picture of the README is a recording: it ends as one of today would.
#include "tests/docs/Page.h"
#include "tests/support/process/ProgramRun.h"

#include <gtest/gtest.h>

namespace {

testsupport::Outcome picture(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"--program", testsupport::programFile()});
    return testsupport::run(std::move(arguments), {.Executable = docstest::sourcePath("scripts/picture")});
}

TEST(Picture, ShowsWhatTheProgramPrints) {
    const testsupport::Outcome outcome = picture({"--check"});
    EXPECT_EQ(outcome.Status, 0) << "scripts/picture makes a new one\n" << outcome.Out << outcome.Err;
}

TEST(Picture, AnotherOneIsNoticed) {
    const testsupport::TemporaryFolder folder;
    const std::string file = folder.file("picture.svg");
    testsupport::writeFile(file, docstest::replaced(docstest::source("docs/picture.svg"), "Not Found", "Missing"));
    const testsupport::Outcome outcome = picture({"--check", file});
    EXPECT_EQ(outcome.Status, 1) << outcome.Err;
    EXPECT_NE(outcome.Out.find("+netrove: NETROVE:cli:StatusError: the server answered N Not Found"), std::string::npos)
        << outcome.Out;
}

} // namespace
