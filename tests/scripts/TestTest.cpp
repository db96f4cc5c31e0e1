// scripts/test with stand-ins for cmake, ctest and scripts/deps: what its last lines say of what it has run.
#include "tests/scripts/ScriptFixture.h"
#include "tests/support/process/ProgramRun.h"

#include <curl/curlver.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using testsupport::Outcome;

// Builds every preset but the one that the file "unbuildable" names.
constexpr const char* kCMake = R"(
while [ "$1" != --preset ]; do shift; done
mkdir -p "build/$2/bin"
read -r program < program
ln -sf "$program" "build/$2/bin/netrove"
! grep -qx "$2" unbuildable
)";
// Writes what the file of the preset's name holds.
constexpr const char* kCTest = R"(
output=$(cat "$(basename "$2").output")
printf '%s\n' "$output"
echo "${LD_LIBRARY_PATH:-}" > "$(basename "$2").libraries"
case $output in *' 0 tests failed'*) ;; *) exit 8 ;; esac
)";
constexpr const char* kAllPassed = "1/1 Test #1: Some.Test ....   Passed    0.01 sec\n"
                                   "\n"
                                   "100% tests passed, 0 tests failed out of 1\n";
constexpr const char* kOneFailed = "    Start 1: Some.Test\n"
                                   "1/2 Test #1: Some.Test ........***Failed    0.01 sec\n"
                                   "SomeTest.cpp:7: Failure\n"
                                   "Value of: three\n"
                                   "\n"
                                   "    Start 2: Some.OtherTest\n"
                                   "2/2 Test #2: Some.OtherTest ...   Passed    0.01 sec\n"
                                   "\n"
                                   "50% tests passed, 1 tests failed out of 2\n";

class AllTests : public ScriptFixture {
protected:
    AllTests() {
        for (const char* folder : {"bin", "scripts"}) {
            fs::create_directory(Folder.file(folder));
        }
        fs::copy_file(NETROVE_SOURCES "/scripts/test", Folder.file("scripts/test"));
        standIn("scripts/deps", "");
        standIn("bin/cmake", kCMake);
        standIn("bin/ctest", kCTest);
        write("unbuildable", "");
        write("program", testsupport::programFile() + "\n");
        for (const char* preset : {"dev", "asan", "tsan"}) {
            write(std::string(preset) + ".output", kAllPassed);
        }
    }

    Outcome runAll(std::vector<std::string> arguments = {}) const {
        testsupport::Surroundings around;
        around.Environment["PATH"] = Folder.file("bin") + ":/usr/bin:/bin";
        around.Folder = Folder.path();
        around.Executable = Folder.file("scripts/test");
        return testsupport::run(std::move(arguments), around);
    }

    // A folder with a file that is called as libcurl is.
    std::string folderWithLibcurl(const fs::path& file) const {
        fs::create_directory(Folder.file("other"));
        fs::create_symlink(file, Folder.file("other/libcurl.so.4"));
        return Folder.file("other");
    }
};

} // namespace

TEST_F(AllTests, WhereAllPassTheLastLineCountsThem) {
    const Outcome outcome = runAll();
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_THAT(outcome.Out, EndsWith("out of 1\n\n3 passed, 0 failed\n"));
}

TEST_F(AllTests, WhatFailedIsToldAgainAtTheEnd) {
    write("dev.output", kOneFailed);
    const Outcome outcome = runAll();
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_THAT(outcome.Out, EndsWith("\n== what failed\n"
                                      "dev: 1 failed\n"
                                      "1/2 Test #1: Some.Test ...***Failed    0.01 sec\n"
                                      "SomeTest.cpp:7: Failure\n"
                                      "Value of: three\n"
                                      "\n"
                                      "3 passed, 1 failed\n"));
}

TEST_F(AllTests, OfALongOutputTheBeginningIsToldAgain) {
    std::string lines;
    for (int line = 0; line < 100; ++line) {
        lines += "line " + std::to_string(line) + "\n";
    }
    write("asan.output",
          "1/1 Test #1: Some.Test ...***Failed    0.01 sec\n" + lines + "0% tests passed, 1 tests failed out of 1\n");
    EXPECT_THAT(runAll().Out, EndsWith("\nline 57\nline 58\n...\n\n2 passed, 1 failed\n"));
}

TEST_F(AllTests, WhatCannotBeBuiltCountsAsAFailure) {
    write("unbuildable", "asan\n");
    const Outcome outcome = runAll();
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_THAT(outcome.Out, EndsWith("\n== what failed\nasan: the build failed\n\n2 passed, 1 failed\n"));
}

TEST_F(AllTests, NoTestAtAllCountsAsAFailure) {
    write("tsan.output", "No tests were found!!!\n");
    const Outcome outcome = runAll();
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_THAT(outcome.Out, EndsWith("\n== what failed\ntsan: no test has run\n\n2 passed, 1 failed\n"));
}

TEST_F(AllTests, AnotherLibcurlServesAllOfThem) {
    const std::string folder = folderWithLibcurl(NETROVE_LIBCURL);
    const Outcome outcome = runAll({"--libcurl", "other"});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_THAT(outcome.Out, HasSubstr("\n== the tests run with libcurl " LIBCURL_VERSION " of " + folder + "\n"));
    for (const char* preset : {"dev", "asan", "tsan"}) {
        EXPECT_THAT(testsupport::readFile(Folder.file(std::string(preset) + ".libraries")), StartsWith(folder));
    }
}

TEST_F(AllTests, FolderWithoutLibcurlIsRefused) {
    const Outcome outcome = runAll({"--libcurl", "scripts"});
    EXPECT_EQ(outcome.Status, 2);
    EXPECT_EQ(outcome.Out, "");
    EXPECT_EQ(outcome.Err, "scripts/test: there is no libcurl.so.4 in \"scripts\"\n");
}

TEST_F(AllTests, LibcurlThatCannotBeLoadedIsRefused) {
    write("broken", "no library");
    const std::string folder = folderWithLibcurl(Folder.file("broken"));
    const Outcome outcome = runAll({"--quick", "--libcurl", folder});
    EXPECT_EQ(outcome.Status, 2);
    EXPECT_THAT(outcome.Out, Not(HasSubstr("== dev: tests")));
    EXPECT_THAT(outcome.Err, HasSubstr("scripts/test: " + folder + "/libcurl.so.4 cannot be loaded"));
}
