// What `save` leaves where the disk or somebody else in the folder is in its way: the whole new file or the old one,
// and nothing besides.
#include "tests/cli/FailingDisk.h"

#include <csignal>
#include <optional>

namespace {

using namespace clitest;

// Whether the file system makes files without a name, and whether a file is there and is replaced.
class DiskCommand : public ProgramFixture, public testing::WithParamInterface<std::tuple<Disk, bool>> {
protected:
    const std::string Content = patternedBytes(40'000);
    const TemporaryFolder Elsewhere;
    const Disk Kind = std::get<0>(GetParam());
    const bool Force = std::get<1>(GetParam());

    void SetUp() override { restore(); }
    void restore() const {
        for (const std::string& name : names()) {
            std::filesystem::remove(file(name));
        }
        if (Force) {
            writeFile(file("file"), "old");
        }
    }
    Surroundings around(const std::vector<FailingCall>& failing = {}, const std::string& record = {}) const {
        return failingIn(Folder.path(), Kind, failing, record);
    }
    Words words(const ScriptedServer& server) const {
        return Words{"save", server.url(), "file"} + (Force ? Words{"--force"} : Words{});
    }
    Outcome save(const std::vector<FailingCall>& failing = {}, const std::string& record = {}) const {
        const ScriptedServer server(answering(response(Content)));
        return run(words(server), around(failing, record));
    }
    std::pair<Outcome, Calls> recorded(const std::vector<FailingCall>& failing = {}) const {
        const Outcome outcome = save(failing, Elsewhere.file("calls"));
        return {outcome, takeRecord(Elsewhere.file("calls"))};
    }

    void expectWhole(const Outcome& outcome) const {
        EXPECT_EQ(outcome.Status, 0) << outcome.Err;
        EXPECT_EQ(names(), Words{"file"});
        EXPECT_EQ(difference(readFile(file("file")), Content), "");
    }
    void expectUntouched() const {
        EXPECT_EQ(names(), Force ? Words{"file"} : Words{});
        EXPECT_TRUE(!Force || readFile(file("file")) == "old");
    }
    void expectFailed(const Outcome& outcome, const std::string& reason) const {
        EXPECT_THAT(outcome, ended(23, "", "netrove: NETROVE:cli:FileNotWritten: cannot write file: " + reason + "\n"));
        expectUntouched();
    }
};

const auto kDisks = testing::Combine(testing::Values(Disk::Nameless, Disk::Named), testing::Bool());
const auto kDiskName = [](const auto& info) {
    return nameOf(std::get<0>(info.param)) + (std::get<1>(info.param) ? "Replacing" : "");
};
INSTANTIATE_TEST_SUITE_P(Disks, DiskCommand, kDisks, kDiskName);

// A close counts where it is the one that is looked at: others come after the content is known to be on the disk, or
// are of a folder. The system's look at what a name is, before anything is written, has others after it.
const FailureRow kFailures[] = {
    {"open", {EACCES}, {EINTR}},
    {"tmpfile", {}, {EACCES, EINTR}}, // a temporary name does as well
    {"openat", {ENOSPC}, {EINTR}},
    {"write", {ENOSPC}, {EINTR, kHalfDone}},
    {"fchmod", {EIO}, {EINTR, EPERM}},
    {"fdatasync", {EIO}, {EINTR, EINVAL}},
    {"dup", {EMFILE}, {}},
    {"linkat", {EIO}, {EINTR, ENOENT}}, // ENOENT: not allowed by descriptor
    {"renameat2", {EIO}, {EINTR}},
    {"fstatat", {EIO}, {}},
    {"close", {}, {EINTR}},
    {"stat", {}, {EIO}},
};

TEST_P(DiskCommand, ReportsOrSurvivesEachCallThatFails) {
    auto [plain, made] = recorded();
    expectWhole(plain);
    for (const char* call : {"open", "tmpfile", "write", "fdatasync", "dup", "close", "fstatat",
                             Kind == Disk::Nameless ? "linkat" : "openat"}) {
        EXPECT_TRUE(made.contains(call)) << call;
    }
    EXPECT_EQ(made.contains("fchmod"), Force);
    EXPECT_EQ(made.contains("renameat2"), Force || Kind == Disk::Named);
    playEachFailure(kFailures, made, [&](const FailingCall& failing, bool survived) {
        restore();
        auto [outcome, done] = recorded({failing});
        // How many pieces content comes in, and so how often it is written, is a matter of moments.
        if (survived || done[failing.Call] < failing.Number) {
            expectWhole(outcome);
        } else {
            expectFailed(outcome, std::strerror(failing.Error));
        }
    });
}

TEST_P(DiskCommand, ReportsAWriteThatFailsAtTheClose) {
    const int closes = recorded().second.at("close");
    int failures = 0;
    for (int number = 1; number <= closes; ++number) {
        restore();
        const Outcome outcome = save({{"close", number, EIO}});
        if (outcome.Status == 0) {
            expectWhole(outcome);
        } else {
            ++failures;
            expectFailed(outcome, "Input/output error");
        }
    }
    EXPECT_EQ(failures, 1);
}

TEST_P(DiskCommand, MakesALinkWhereNoRenameSparesAnExistingFile) {
    const Outcome outcome = save({{"renameat2", 1, EINVAL}});
    if (Force) {
        expectFailed(outcome, "Invalid argument");
    } else {
        expectWhole(outcome);
    }
}

// The server could send for ever.
TEST_P(DiskCommand, EndsAtOnceWhereNoMoreCanBeWritten) {
    const Script endless = answering(kOk + "Content-Length: 1000000000\r\n\r\n" + patternedBytes(500'000));
    const ScriptedServer server(std::vector<Script>{endless, endless});
    expectFailed(run(words(server), around({{"write", 3, ENOSPC}})), "No space left on device");
    EXPECT_TRUE(server.waitUntilDone().PeerEnded);
    Surroundings limited = around();
    limited.Executable = "/bin/sh";
    const Words shell = {"-c", "ulimit -f 100; exec \"$0\" \"$@\"", programFile()}; // of 512 bytes
    expectFailed(run(shell + words(server), limited), "File too large");
}

// A program that has received half of its content and is ended by two signals.
class HalfReceived : public DiskCommand {
protected:
    ScriptedServer Server{{step::expectHead(), step::send(response(Content).substr(0, 20'000)), step::signal("half"),
                           step::awaitPeerEnd()}};
    std::optional<Program> Saving;

    void SetUp() override {
        DiskCommand::SetUp();
        Saving.emplace(words(Server), around());
        Server.waitFor("half");
    }
};

INSTANTIATE_TEST_SUITE_P(Disks, HalfReceived, kDisks, kDiskName);

TEST_P(HalfReceived, IsRemovedByTheNextRunWhereTheProgramIsKilled) {
    Saving->signal(SIGKILL);
    EXPECT_EQ(Saving->wait().Status, -1);
    EXPECT_EQ(names().size(), (Force ? 1u : 0u) + (Kind == Disk::Named ? 1u : 0u));
    expectWhole(save());
}

// As a closing terminal and `timeout` send them: the second ends the program wherever it is.
TEST_P(HalfReceived, IsRemovedWhereTwoSignalsComeAtOnce) {
    Saving->freeze();
    Saving->signal(SIGHUP);
    Saving->signal(SIGTERM);
    Saving->signal(SIGCONT);
    EXPECT_THAT(Saving->wait().Status, testing::AnyOf(128 + SIGHUP, 128 + SIGTERM));
    expectUntouched();
}

TEST_P(HalfReceived, IsRemovedWhereTheSameSignalComesTwice) {
    Saving->signal(SIGTERM);
    Saving->signal(SIGTERM);
    // The second may come when the program has cleaned up and leaves signals to the system, which ends it (-1).
    EXPECT_THAT(Saving->wait().Status, testing::AnyOf(128 + SIGTERM, -1));
    expectUntouched();
}

} // namespace
