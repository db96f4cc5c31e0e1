#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {

using namespace testsupport;

TEST(DemoCommand, EveryStepDoesWhatItSaysAndNothingIsLeft) {
    const testsupport::TemporaryFolder folder;
    Surroundings around;
    around.Environment["TMPDIR"] = folder.path();
    const Outcome outcome = run({"demo"}, around);
    EXPECT_EQ(outcome.Status, 0) << outcome.Out << outcome.Err;
    EXPECT_EQ(outcome.Err, "");
    for (const char* title :
         {"1. A GET into a byte array", "2. A save with progress", "3. An upload streamed from a provider",
          "4. A download into a consumer", "5. A 404 in both modes", "6. A refused connection", "7. A timeout",
          "8. An interrupted transfer", "9. The wire trace", "GET /hello HTTP/1.1<CRLF>"}) {
        EXPECT_NE(outcome.Out.find(title), std::string::npos) << title << "\n" << outcome.Out;
    }
    EXPECT_EQ(lastLine(outcome.Out), "Every step did what it says.");
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

} // namespace
