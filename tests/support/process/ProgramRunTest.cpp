#include "tests/support/process/ProgramRun.h"

#include "tests/support/process/Await.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/SocketHandle.h"

#include <gmock/gmock.h>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

using namespace testsupport;
using testing::HasSubstr;

Surroundings shell() {
    return {.Executable = "/bin/sh"};
}

TEST(ProgramRun, WaitForWhatNeverComesEndsWithTheProgram) {
    Program program({"-c", "echo why >&2; exit 3"}, shell());
    try {
        program.awaitCondition([] { return false; }, "it is there");
        ADD_FAILURE() << "the wait ended without";
    } catch (const std::runtime_error& failure) {
        EXPECT_THAT(failure.what(), HasSubstr("the program has ended before it is there"));
    }
    const Outcome outcome = program.wait();
    EXPECT_EQ(outcome.Status, 3);
    EXPECT_EQ(outcome.Err, "why\n");
}

TEST(ProgramRun, EndsWhateverTheProgramHasStarted) {
    pid_t child = -1;
    {
        const TemporaryFolder folder;
        Program program({"-c", "sleep 600 >/dev/null 2>&1 & echo $! > '" + folder.file("child") + "'"}, shell());
        EXPECT_EQ(program.wait().Status, 0);
        child = std::stoi(readFile(folder.file("child")));
    }
    EXPECT_EQ(awaitOrEnd([child] { return processHasEnded(child); }, [] { return false; }), Awaited::Held);
}

TEST(ProgramRun, WhatCannotBeStartedIsNamed) {
    try {
        const Program program({}, {.Executable = "/no/such/program"});
        ADD_FAILURE() << "it has been started";
    } catch (const std::system_error& failure) {
        EXPECT_EQ(failure.code(), std::errc::no_such_file_or_directory);
        EXPECT_THAT(failure.what(), HasSubstr("/no/such/program"));
    }
}

TEST(ProgramRun, InheritsNoOtherDescriptor) {
    const int first = 200; // higher than what a shell opens for itself
    const SocketHandle inheritable(fcntl(STDOUT_FILENO, F_DUPFD, first));
    ASSERT_GE(inheritable.get(), first);
    const std::string path = "/proc/self/fd/" + std::to_string(inheritable.get());
    const Outcome outcome = run({"-c", "ls -d " + path + " || echo closed"}, shell());
    EXPECT_EQ(outcome.Out, "closed\n");
}

} // namespace
