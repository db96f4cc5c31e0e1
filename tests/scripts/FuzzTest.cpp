// scripts/fuzz with stand-ins for cmake, clang and the drivers: which of them it runs, for how long, and what it says.
#include "tests/scripts/ScriptFixture.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;
using testsupport::Outcome;

class FuzzDrivers : public ScriptFixture {
protected:
    FuzzDrivers() {
        for (const char* folder : {"bin", "fuzz", "build", "build/fuzz", "build/fuzz/bin"}) {
            fs::create_directory(Folder.file(folder));
        }
        copy("scripts/fuzz");
        standIn("bin/cmake", "");
        standIn("bin/clang++", "");
        write("fuzz/CMakeLists.txt",
              "add_fuzz_driver(one-two FuzzOneTwo.cpp x)\nadd_fuzz_driver(three FuzzThree.cpp x)\n");
        for (const char* driver : {"fuzz_one_two", "fuzz_three"}) {
            standIn(std::string("build/fuzz/bin/") + driver, "echo \"ran ${0##*/} $*\"\n");
        }
    }

    Outcome fuzz(std::vector<std::string> arguments) const { return run("scripts/fuzz", std::move(arguments)); }
};

TEST_F(FuzzDrivers, AllRunForAMinuteWithoutArguments) {
    const Outcome outcome = fuzz({});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_THAT(outcome.Out, HasSubstr("ran fuzz_one_two -entropic=0 -close_fd_mask=1 -max_total_time=60 "));
    EXPECT_THAT(outcome.Out, HasSubstr("ran fuzz_three -entropic=0 -close_fd_mask=1 -max_total_time=60 "));
}

TEST_F(FuzzDrivers, OneRunsAsLongAsIsSaid) {
    write("fuzz/one-two.dict", "");
    const Outcome outcome = fuzz({"one-two", "5"});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_THAT(outcome.Out, HasSubstr("-max_total_time=5 "));
    EXPECT_THAT(outcome.Out, HasSubstr(" -dict=fuzz/one-two.dict build/fuzz/corpus/one-two fuzz/seeds/one-two\n"));
    EXPECT_THAT(outcome.Out, Not(HasSubstr("fuzz_three")));
}

TEST_F(FuzzDrivers, AnUnknownOneIsRefusedWithThoseThatThereAre) {
    const Outcome outcome = fuzz({"two"});
    EXPECT_EQ(outcome.Status, 2);
    EXPECT_EQ(outcome.Err, "scripts/fuzz: no driver \"two\"; there are one-two three\n");
    EXPECT_EQ(outcome.Out, "");
}

TEST_F(FuzzDrivers, ATimeIsANumber) {
    for (const char* seconds : {"0", "x", "-1", ""}) {
        EXPECT_EQ(fuzz({"three", seconds}).Err, "usage: scripts/fuzz [DRIVER] [SECONDS]\n") << seconds;
    }
}

TEST_F(FuzzDrivers, AFailureIsReportedAndTheOthersStillRun) {
    standIn("build/fuzz/bin/fuzz_one_two", "exit 77\n");
    const Outcome outcome = fuzz({"1"});
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_THAT(outcome.Err, HasSubstr("failed: one-two; see build/fuzz/found\n"));
    EXPECT_THAT(outcome.Out, HasSubstr("ran fuzz_three"));
}

TEST(FuzzSeeds, AreThereForEachDriverAndForNothingElse) {
    const std::string list = testsupport::readFile(NETROVE_SOURCES "/fuzz/CMakeLists.txt");
    std::size_t folders = 0;
    for (const auto& entry : fs::directory_iterator(NETROVE_SOURCES "/fuzz/seeds")) {
        EXPECT_THAT(list, HasSubstr("\nadd_fuzz_driver(" + entry.path().filename().string() + " "));
        EXPECT_FALSE(fs::is_empty(entry.path())) << entry.path();
        ++folders;
    }
    std::size_t drivers = 0;
    for (auto at = list.find("\nadd_fuzz_driver("); at != std::string::npos;
         at = list.find("\nadd_fuzz_driver(", at + 1)) {
        ++drivers;
    }
    EXPECT_EQ(folders, drivers);
}

} // namespace
