// scripts/bench-check with stand-ins for valgrind and the programs: when it complains, and what it writes.
#include "tests/scripts/ScriptFixture.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;
using testsupport::Outcome;
using testsupport::readFile;

class BenchCheck : public ScriptFixture {
protected:
    BenchCheck() {
        for (const char* folder : {"bin", "bench", "build", "build/release", "build/release/bin"}) {
            fs::create_directory(Folder.file(folder));
        }
        copy("scripts/bench-check");
        standIn("build/release/bin/netrove_bench_server", "echo 1234\nexec sleep 1000\n");
        countsAre(1000);
        EXPECT_EQ(check({"--update"}).Status, 0);
    }

    // Of what a peer does between its marks; all else of its process, and other programs, take twice as many.
    void countsAre(int count) const {
        standIn("bin/valgrind", "file=${2#--callgrind-out-file=}\n"
                                "case $3 in */peer_*) echo 'totals: " +
                                    std::to_string(count) +
                                    "' > $file.1 ;; esac\n"
                                    "echo 'totals: 2000' > $file\n");
    }
    Outcome check(std::vector<std::string> arguments) const {
        arguments.emplace_back("--no-build");
        return run("scripts/bench-check", std::move(arguments));
    }
    std::string file() const { return readFile(Folder.file("bench/instructions.json")); }
};

TEST_F(BenchCheck, CountsOfAPeerAreThoseBetweenItsMarks) {
    EXPECT_THAT(file(), HasSubstr("\"16 MiB into memory\": 1000,"));
    EXPECT_THAT(file(), HasSubstr("\"netrove get, the whole process\": 2000,"));
}

TEST_F(BenchCheck, AFewMoreAreAccepted) {
    countsAre(1030);
    const Outcome outcome = check({});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_THAT(outcome.Out, HasSubstr("         1,030    +3.0%  16 MiB into memory\n"));
}

TEST_F(BenchCheck, MoreThanThatIsNamedUntilTheFileSaysSo) {
    countsAre(1031);
    const Outcome outcome = check({});
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_THAT(outcome.Err, HasSubstr("\n  16 MiB into memory\n"));
    EXPECT_THAT(outcome.Err, Not(HasSubstr("netrove get")));
    EXPECT_THAT(file(), HasSubstr("\"16 MiB into memory\": 1000,"));
    EXPECT_EQ(check({"--update"}).Status, 0);
    EXPECT_EQ(check({}).Status, 0);
}

TEST_F(BenchCheck, AJobThatTheFileDoesNotKnowIsNamed) {
    write("bench/instructions.json", "{}\n");
    const Outcome outcome = check({});
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_THAT(outcome.Err, HasSubstr("\n  16 MiB into memory\n"));
}

TEST_F(BenchCheck, AProgramThatFailsIsAFailure) {
    standIn("bin/valgrind", "echo 'no such server' >&2\nexit 1\n");
    const Outcome outcome = check({"--update"});
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_THAT(outcome.Err, HasSubstr(": no such server\n"));
    EXPECT_THAT(file(), HasSubstr("\"16 MiB into memory\": 1000,"));
}

} // namespace
