// scripts/test with stand-ins for cmake, ctest and scripts/deps: what its last lines say of what it has run.
#include "tests/scripts/ScriptFixture.h"

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
// Leaves the log that the file of the preset's name holds.
constexpr const char* kCTest = R"(
mkdir -p "$2/Testing/Temporary"
cp "$(basename "$2").log" "$2/Testing/Temporary/LastTest.log"
echo "${LD_LIBRARY_PATH:-}" > "$(basename "$2").libraries"
echo "${GTEST_FILTER:-}" > filter
! grep -q '^Test Failed' "$2/Testing/Temporary/LastTest.log"
)";

// What ctest logs of an executable.
std::string entry(const std::string& name, const std::string& output, bool passes) {
    return "1/2 Testing: " + name + "\n1/2 Test: " + name + "\n\"" + name + "\" start time: now\nOutput:\n" + output +
           "<end of output>\n" + (passes ? "Test Passed.\n" : "Test Failed.\n") + "\"" + name + "\" end time: now\n";
}
std::string ok(const std::string& test) {
    return "[ RUN      ] " + test + "\n[       OK ] " + test + " (1 ms)\n";
}
const std::string kTwoPassed =
    entry("some_tests.1", ok("Some.Test") + ok("Some.OtherTest") + "[  PASSED  ] 2 tests.\n", true);
const std::string kOneFailed = entry("some_tests.1",
                                     ok("Some.Test") +
                                         "[ RUN      ] Some.OtherTest\n"
                                         "SomeTest.cpp:7: Failure\n"
                                         "Value of: three\n"
                                         "[  FAILED  ] Some.OtherTest, where GetParam() = 3 (1 ms)\n" +
                                         ok("Some.Last") +
                                         "[  PASSED  ] 2 tests.\n"
                                         "[  FAILED  ] 1 test, listed below:\n"
                                         "[  FAILED  ] Some.OtherTest, where GetParam() = 3\n",
                                     false);

class AllTests : public ScriptFixture {
protected:
    AllTests() {
        fs::create_directory(Folder.file("bin"));
        copy("scripts/test");
        standIn("bin/cmake", kCMake);
        standIn("bin/ctest", kCTest);
        write("unbuildable", "");
        write("program", testsupport::programFile() + "\n");
        for (const char* preset : {"dev", "asan", "tsan"}) {
            write(std::string(preset) + ".log", kTwoPassed);
        }
    }

    Outcome runAll(std::vector<std::string> arguments = {}) const { return run("scripts/test", std::move(arguments)); }

    void expectFailure(const std::string& lastLines) const {
        const Outcome outcome = runAll();
        EXPECT_EQ(outcome.Status, 1);
        EXPECT_THAT(outcome.Out, EndsWith("\n== what failed\n" + lastLines));
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
    EXPECT_THAT(outcome.Out, EndsWith("tsan: 2 passed, 0 failed\n\n6 passed, 0 failed\n"));
}

TEST_F(AllTests, WhatFailedIsShownAgainAtTheEnd) {
    write("dev.log", kTwoPassed + kOneFailed);
    expectFailure("dev: 1 failed\n"
                  "[ RUN      ] Some.OtherTest\n"
                  "SomeTest.cpp:7: Failure\n"
                  "Value of: three\n"
                  "[  FAILED  ] Some.OtherTest, where GetParam() = 3 (1 ms)\n"
                  "\n"
                  "8 passed, 1 failed\n");
}

TEST_F(AllTests, TestsOfPytestCountOneByOne) {
    const std::string rest = " ===================\n";
    write(
        "dev.log",
        entry("python", ".....s\n== 5 passed, 1 skipped in 0.31s" + rest, true) +
            entry("more", "F..\nE  assert 2 == 3\n=== 2 failed, 7 passed, 1 error in 61.20s (0:01:01)" + rest, false) +
            entry("none", "=== 9 deselected in 0.01s" + rest, true));
    expectFailure("dev: 3 failed\n"
                  "F..\n"
                  "E  assert 2 == 3\n"
                  "\n"
                  "16 passed, 3 failed\n");
}

// A crash takes GoogleTest's last words with it; a test without GoogleTest has none.
TEST_F(AllTests, EntryWithoutASummaryIsOneTest) {
    write("asan.log", entry("headers", "", true) +
                          entry("some_tests.2", ok("Some.Test") + "[ RUN      ] Some.Crash\nhalf a li\n", false));
    expectFailure("asan: 1 failed\n"
                  "\"some_tests.2\" ended with:\n"
                  "[ RUN      ] Some.Crash\n"
                  "half a li\n"
                  "\n"
                  "5 passed, 1 failed\n");
}

// A sanitizer speaks when the program ends.
TEST_F(AllTests, WhatFailsAfterAllItsTestsIsShownToo) {
    const std::string leak = "==7==ERROR: LeakSanitizer: detected memory leaks\n";
    write("asan.log", entry("some_tests.1", ok("Some.Test") + "[  PASSED  ] 1 test.\n" + leak, false) +
                          entry("python", "..\n=== 2 passed in 0.31s ===\n" + leak, false) + kTwoPassed);
    expectFailure("asan: 2 failed\n"
                  "\"some_tests.1\" ended with:\n" +
                  leak + "\"python\" ended with:\n" + leak +
                  "\n"
                  "9 passed, 2 failed\n");
}

TEST_F(AllTests, OfALongOutputTheBeginningIsShownAgain) {
    std::string lines;
    for (int line = 0; line < 100; ++line) {
        lines += "line " + std::to_string(line) + "\n";
    }
    write("asan.log", entry("some_tests.1", "[ RUN      ] Some.Test\n" + lines, false));
    EXPECT_THAT(runAll().Out, EndsWith("\nline 57\nline 58\n...\n\n4 passed, 1 failed\n"));
}

TEST_F(AllTests, OneTestIsRunByItsName) {
    const Outcome outcome = runAll({"--only", "Some.*"});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_THAT(outcome.Out, EndsWith("\n2 passed, 0 failed\n"));
    EXPECT_EQ(testsupport::readFile(Folder.file("filter")), "Some.*\n");
}

TEST_F(AllTests, WhatCannotBeBuiltCountsAsAFailure) {
    write("unbuildable", "asan\n");
    expectFailure("asan: the build failed\n\n4 passed, 1 failed\n");
}

TEST_F(AllTests, NoTestAtAllCountsAsAFailure) {
    write("tsan.log", "Start testing: now\n");
    expectFailure("tsan: no test has run\n\n4 passed, 1 failed\n");
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
