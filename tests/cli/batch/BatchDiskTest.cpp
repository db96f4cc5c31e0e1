// What a batch run leaves where the disk is in its way: whole files under their names or none, and a journal with which
// the next run does the rest.
#include "tests/cli/batch/BatchFixture.h"
#include "tests/support/process/FailingCalls.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace batchtest;
using testing::HasSubstr;
using testsupport::FailingCall;
using testsupport::failingCalls;
using testsupport::kHalfDone;

enum class Disk { Nameless, Named };

class BatchDisk : public BatchFixture, public testing::WithParamInterface<Disk> {
protected:
    testsupport::TemporaryFolder Elsewhere;

    Surroundings failing(std::vector<FailingCall> calls, const std::string& record = {}) const {
        if (GetParam() == Disk::Named) {
            calls.push_back({"tmpfile", 0, EOPNOTSUPP});
        }
        Surroundings result = around();
        result.Environment = failingCalls(Folder.path(), calls, record);
        return result;
    }
    Outcome run(const std::vector<FailingCall>& calls = {}, const std::string& record = {}) const {
        return testsupport::run({"batch", "list", "-j", "1", "--create-dirs"}, failing(calls, record));
    }
    std::map<std::string, int> callsOf(const std::string& record) const {
        std::istringstream lines(readFile(record));
        std::map<std::string, int> result;
        for (std::string line; std::getline(lines, line);) {
            ++result[line];
        }
        std::filesystem::remove(record);
        return result;
    }
    void begin() {
        for (const char* name : {"a", "list.journal"}) {
            std::filesystem::remove_all(Folder.file(name));
        }
        writeFile(Folder.file("list"), Server.url("/n/1") + " a/1\n" + Server.url("/n/2") + " a/2\n");
    }
    // Names in the folder of the targets.
    Names targets() const {
        Names names;
        if (std::filesystem::exists(Folder.file("a"))) {
            for (const auto& entry : std::filesystem::directory_iterator(Folder.file("a"))) {
                names.push_back(entry.path().filename().string());
            }
        }
        std::sort(names.begin(), names.end());
        return names;
    }
    void expectOnlyWholeFiles() const {
        for (const std::string& name : targets()) {
            EXPECT_THAT(name, testing::AnyOf("1", "2"));
            EXPECT_EQ(readFile(Folder.file("a/" + name)), BatchServer::contentOf("/n/" + name));
        }
    }
    // Whatever has happened, the next run makes everything whole.
    void expectTheNextRunDoesTheRest() {
        const Outcome outcome = run();
        EXPECT_EQ(outcome.Status, 0) << outcome.Err << outcome.Out;
        EXPECT_EQ(targets(), (Names{"1", "2"}));
        expectOnlyWholeFiles();
    }
    void play(const char* call, int number, int error, bool survived) {
        SCOPED_TRACE(std::string(call) + " " + std::to_string(number) + " " + std::strerror(error));
        const std::string record = Elsewhere.file("calls");
        const Outcome outcome = run({{call, number, error}}, record);
        const int made = callsOf(record)[call];
        expectOnlyWholeFiles();
        // How many pieces content comes in, and so how often it is written, is a matter of moments.
        if (survived || made < number) {
            EXPECT_EQ(outcome.Status, 0) << outcome.Err << outcome.Out;
            EXPECT_EQ(targets(), (Names{"1", "2"}));
        } else {
            EXPECT_THAT(outcome.Status, testing::AnyOf(23, 26)) << outcome.Err;
            EXPECT_THAT(outcome.Err + outcome.Out, HasSubstr(std::strerror(error)));
            EXPECT_THAT(outcome.Err + outcome.Out,
                        testing::AnyOf(HasSubstr("list.journal: "), HasSubstr("a/1: "), HasSubstr("a/2: "),
                                       HasSubstr("\"a: "), HasSubstr(": list: "), HasSubstr(": .: ")));
        }
        expectTheNextRunDoesTheRest();
    }
};

INSTANTIATE_TEST_SUITE_P(Disks, BatchDisk, testing::Values(Disk::Nameless, Disk::Named), [](const auto& info) {
    return info.param == Disk::Nameless ? "WithoutAName" : "ByATemporaryName";
});

struct Failing {
    const char* Call;
    std::vector<int> Fatal;    // error numbers that end the run, or the transfer, whenever they come
    std::vector<int> Survived; // and those that do not
};

const Failing kFailing[] = {
    {"open", {EACCES}, {EINTR}},
    {"openat", {ENOSPC}, {EINTR}},
    {"write", {ENOSPC}, {EINTR, kHalfDone}},
    {"read", {EIO}, {EINTR, kHalfDone}},
    {"pread", {EIO}, {EINTR, kHalfDone}},
    {"fdatasync", {EIO}, {EINTR, EINVAL}},
    {"ftruncate", {EIO}, {EINTR}},
    {"linkat", {EIO}, {EINTR}},
    {"renameat2", {EIO}, {EINTR}},
    {"mkdir", {EACCES}, {}},
    {"fstatat", {EIO}, {}},
    {"listing", {EIO}, {EACCES}}, // a folder in which nobody may look around
    {"flock", {}, {EINTR, ENOLCK}},
};

TEST_P(BatchDisk, EachCallThatFailsIsToldOrSurvived) {
    begin();
    const std::string record = Elsewhere.file("calls");
    ASSERT_EQ(run({}, record).Status, 0);
    const std::map<std::string, int> first = callsOf(record);
    for (const char* call : {"open", "write", "read", "fdatasync", "mkdir"}) {
        EXPECT_EQ(first.count(call), 1u) << call;
    }
    for (const Failing& failing : kFailing) {
        for (int number = 1; first.count(failing.Call) != 0 && number <= first.at(failing.Call); ++number) {
            for (const int error : failing.Fatal) {
                begin();
                play(failing.Call, number, error, false);
            }
            for (const int error : failing.Survived) {
                begin();
                play(failing.Call, number, error, true);
            }
        }
    }
}

// A journal that a killed run has left in the middle of a line, with one of two transfers done.
TEST_P(BatchDisk, EachCallThatFailsWhileAJournalIsTakenOverIsToldOrSurvived) {
    begin();
    ASSERT_EQ(run().Status, 0);
    const std::string whole = readFile(Folder.file("list.journal"));
    const auto takeBack = [&] {
        std::filesystem::remove(Folder.file("a/2"));
        writeFile(Folder.file("list.journal"), whole + "{\"half");
    };
    takeBack();
    const std::string record = Elsewhere.file("calls");
    ASSERT_EQ(run({}, record).Status, 0);
    const std::map<std::string, int> calls = callsOf(record);
    for (const char* call : {"pread", "read", "ftruncate", "flock"}) {
        EXPECT_EQ(calls.count(call), 1u) << call;
    }
    for (const Failing& failing : kFailing) {
        for (int number = 1; calls.count(failing.Call) != 0 && number <= calls.at(failing.Call); ++number) {
            for (const int error : failing.Fatal) {
                takeBack();
                play(failing.Call, number, error, false);
            }
            for (const int error : failing.Survived) {
                takeBack();
                play(failing.Call, number, error, true);
            }
        }
    }
}

TEST_P(BatchDisk, WhatAKilledRunLeftIsRemovedByTheNext) {
    begin();
    Server.hold("/n/2");
    {
        Program program({"batch", "list", "-j", "1", "--create-dirs"}, failing({}));
        Server.waitForRequest("/n/2");
        program.signal(SIGKILL);
        EXPECT_EQ(program.wait().Status, -1);
    }
    EXPECT_EQ(targets().size(), GetParam() == Disk::Named ? 2u : 1u);
    Server.release("/n/2");
    expectTheNextRunDoesTheRest();
}

TEST_P(BatchDisk, TwoSignalsAtOnceLeaveNothing) {
    begin();
    Server.hold("/n/1");
    Server.hold("/n/2");
    Program program({"batch", "list", "-j", "2", "--create-dirs"}, failing({}));
    Server.waitForRequest("/n/1");
    Server.waitForRequest("/n/2");
    program.freeze();
    program.signal(SIGHUP);
    program.signal(SIGTERM);
    program.signal(SIGCONT);
    EXPECT_THAT(program.wait().Status, testing::AnyOf(128 + SIGHUP, 128 + SIGTERM));
    EXPECT_EQ(targets(), Names{});
    Server.release("/n/1");
    Server.release("/n/2");
    expectTheNextRunDoesTheRest();
}

} // namespace
