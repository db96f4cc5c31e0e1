// What a batch run leaves where the disk is in its way: whole files under their names or none, and a journal with which
// the next run does the rest.
#include "tests/cli/FailingDisk.h"
#include "tests/cli/batch/BatchFixture.h"

#include <csignal>

namespace {

using namespace batchtest;
using testing::AnyOf;

class BatchDisk : public BatchFixture, public testing::WithParamInterface<Disk> {
protected:
    const TemporaryFolder Elsewhere;

    static Words words(const char* jobs = "1") { return {"batch", "list", "-j", jobs, "--create-dirs"}; }
    Surroundings around(const std::vector<FailingCall>& calls = {}, const std::string& record = {}) const {
        return failingIn(Folder.path(), GetParam(), calls, record);
    }
    std::pair<Outcome, Calls> recorded(const std::vector<FailingCall>& calls = {}) const {
        const Outcome outcome = run(words(), around(calls, Elsewhere.file("calls")));
        return {outcome, takeRecord(Elsewhere.file("calls"))};
    }
    void begin() const {
        for (const char* name : {"a", "list.journal"}) {
            std::filesystem::remove_all(file(name));
        }
        write(Server.url("/n/1") + " a/1\n" + Server.url("/n/2") + " a/2\n");
    }
    Words targets() const { return std::filesystem::exists(file("a")) ? namesIn(file("a")) : Words{}; }
    void expectOnlyWholeFiles() const {
        for (const std::string& name : targets()) {
            EXPECT_THAT(name, AnyOf("1", "2"));
            EXPECT_EQ(readFile(file("a/" + name)), BatchServer::contentOf("/n/" + name));
        }
    }
    void expectEverythingDone(const Outcome& outcome) const {
        EXPECT_EQ(outcome.Status, 0) << outcome.Err << outcome.Out;
        EXPECT_EQ(targets(), (Words{"1", "2"}));
        expectOnlyWholeFiles();
    }
    // Whatever has happened, the next run makes everything whole.
    void expectTheNextRunDoesTheRest() const { expectEverythingDone(run(words(), around())); }

    // Each call that fails in a run of its own, with what `prepare` makes of the folder.
    void expectEachFailureReportedOrSurvived(const std::vector<const char*>& wanted,
                                             const std::function<void()>& prepare) const;
};

INSTANTIATE_TEST_SUITE_P(Disks, BatchDisk, testing::Values(Disk::Nameless, Disk::Named),
                         [](const auto& info) { return nameOf(info.param); });

const FailureRow kFailures[] = {
    {"open", {EACCES}, {EINTR}},
    {"openat", {ENOSPC}, {EINTR}},
    {"write", {ENOSPC}, {EINTR, kHalfDone}},
    {"read", {EIO}, {EINTR, kHalfDone}},
    {"pread", {EIO}, {EINTR, kHalfDone}},
    {"fdatasync", {EIO}, {EINTR, EINVAL}},
    {"ftruncate", {EIO}, {EINTR}},
    {"linkat", {EIO}, {EINTR, ENOENT}}, // ENOENT: not allowed by descriptor
    {"renameat2", {EIO}, {EINTR}},
    {"mkdir", {EACCES}, {}},
    {"fstatat", {EIO}, {}},
    {"listing", {EIO}, {EACCES}}, // a folder in which nobody may look around
    {"flock", {}, {EINTR, ENOLCK}},
};

void BatchDisk::expectEachFailureReportedOrSurvived(const std::vector<const char*>& wanted,
                                                    const std::function<void()>& prepare) const {
    prepare();
    const auto [plain, first] = recorded();
    ASSERT_EQ(plain.Status, 0);
    for (const char* call : wanted) {
        EXPECT_TRUE(first.contains(call)) << call;
    }
    playEachFailure(kFailures, first, [&](const FailingCall& failing, bool survived) {
        prepare();
        auto [outcome, made] = recorded({failing});
        // How many pieces content comes in, and so how often it is written, is a matter of moments.
        if (survived || made[failing.Call] < failing.Number) {
            return expectEverythingDone(outcome);
        }
        EXPECT_THAT(outcome.Status, AnyOf(23, 26)) << outcome.Err;
        EXPECT_THAT(outcome.Err + outcome.Out, HasSubstr(std::strerror(failing.Error)));
        EXPECT_THAT(outcome.Err + outcome.Out,
                    AnyOf(HasSubstr("list.journal: "), HasSubstr("a/1: "), HasSubstr("a/2: "), HasSubstr(" a: "),
                          HasSubstr(" list: "), HasSubstr(" .: ")));
        expectOnlyWholeFiles();
        expectTheNextRunDoesTheRest();
    });
}

TEST_P(BatchDisk, ReportsOrSurvivesEachCallThatFails) {
    expectEachFailureReportedOrSurvived({"open", "write", "read", "fdatasync", "mkdir"}, [this] { begin(); });
}

// A journal that a killed run has left in the middle of a line, with one of two transfers done.
TEST_P(BatchDisk, ReportsOrSurvivesEachCallThatFailsWhileAJournalIsTakenOver) {
    begin();
    expectTheNextRunDoesTheRest();
    const std::string whole = journal();
    expectEachFailureReportedOrSurvived({"pread", "read", "ftruncate", "flock"}, [&] {
        std::filesystem::remove(file("a/2"));
        writeFile(file("list.journal"), whole + "{\"half");
    });
}

TEST_P(BatchDisk, RemovesWhatAKilledRunLeft) {
    begin();
    Server.hold("/n/2");
    {
        Program program(words(), around());
        Server.waitForRequest("/n/2");
        program.waitForOutput("\"done\""); // the first file has its name
        program.signal(SIGKILL);
        EXPECT_EQ(program.wait().Status, -1);
    }
    EXPECT_EQ(targets().size(), GetParam() == Disk::Named ? 2u : 1u);
    Server.release("/n/2");
    expectTheNextRunDoesTheRest();
    EXPECT_EQ(Server.requests("/n/1"), 1u);
    EXPECT_EQ(Server.requests("/n/2"), 2u);
}

TEST_P(BatchDisk, LeavesNothingWhereTwoSignalsComeAtOnce) {
    begin();
    Server.hold("/n/1");
    Server.hold("/n/2");
    Program program(words("2"), around());
    Server.waitForRequest("/n/1");
    Server.waitForRequest("/n/2");
    program.freeze();
    program.signal(SIGHUP);
    program.signal(SIGTERM);
    program.signal(SIGCONT);
    EXPECT_THAT(program.wait().Status, AnyOf(128 + SIGHUP, 128 + SIGTERM));
    EXPECT_EQ(targets(), Words{});
    Server.release("/n/1");
    Server.release("/n/2");
    expectTheNextRunDoesTheRest();
}

} // namespace
