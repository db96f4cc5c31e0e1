// What `save` leaves where the disk or somebody else in the folder is in its way: the whole new file or the old one,
// and nothing besides.
#include "tests/support/process/FailingCalls.h"
#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace testsupport;
using testing::HasSubstr;
using testing::StartsWith;

using Names = std::vector<std::string>;

const FailingCall kNoNamelessFiles = {"tmpfile", 0, EOPNOTSUPP};

// Whether or not the file system makes files without a name.
enum class Disk { Nameless, Named };

struct Case {
    Disk Kind;
    bool Force; // a file is there and is replaced
};

std::string nameOf(const testing::TestParamInfo<Case>& info) {
    return std::string(info.param.Kind == Disk::Nameless ? "WithoutAName" : "ByATemporaryName") +
           (info.param.Force ? "Replacing" : "");
}

void PrintTo(const Case& value, std::ostream* stream) { // for GoogleTest
    *stream << nameOf({value, 0});
}

class DiskCommand : public testing::TestWithParam<Case> {
protected:
    const std::string Content = patternedBytes(40'000);
    TemporaryFolder Folder;
    TemporaryFolder Elsewhere;

    bool force() const { return GetParam().Force; }
    std::string target() const { return Folder.file("file"); }

    void SetUp() override {
        if (force()) {
            writeFile(target(), "old");
        }
    }
    Surroundings around(std::vector<FailingCall> failing = {}, const std::string& record = {}) const {
        if (GetParam().Kind == Disk::Named) {
            failing.push_back(kNoNamelessFiles);
        }
        Surroundings result;
        result.Folder = Folder.path();
        result.Environment = failingCalls(Folder.path(), failing, record);
        return result;
    }
    std::vector<std::string> words(const ScriptedServer& server) const {
        std::vector<std::string> result = {"save", server.url(), "file"};
        if (force()) {
            result.push_back("--force");
        }
        return result;
    }
    Outcome save(const std::vector<FailingCall>& failing = {}, const std::string& record = {}) const {
        const ScriptedServer server({step::expectHead(), step::send(response(Content)), step::awaitPeerEnd()});
        return run(words(server), around(failing, record));
    }

    Names names() const {
        Names result;
        for (const auto& entry : std::filesystem::directory_iterator(Folder.path())) {
            result.push_back(entry.path().filename().string());
        }
        std::sort(result.begin(), result.end());
        return result;
    }
    void expectWhole() const {
        EXPECT_EQ(names(), Names{"file"});
        EXPECT_EQ(difference(readFile(target()), Content), "");
    }
    void expectUntouched() const {
        EXPECT_EQ(names(), force() ? Names{"file"} : Names{});
        EXPECT_TRUE(!force() || readFile(target()) == "old");
    }
    void restore() const {
        for (const std::string& name : names()) {
            std::filesystem::remove(Folder.file(name));
        }
        if (force()) {
            writeFile(target(), "old");
        }
    }

    // How often each call is made.
    using Calls = std::map<std::string, int>;
    std::pair<Outcome, Calls> record(const std::vector<FailingCall>& failing) const {
        const std::string file = Elsewhere.file("calls");
        const Outcome outcome = save(failing, file);
        std::istringstream lines(readFile(file));
        std::filesystem::remove(file);
        Calls made;
        for (std::string line; std::getline(lines, line);) {
            ++made[line];
        }
        return {outcome, made};
    }
};

INSTANTIATE_TEST_SUITE_P(Disks, DiskCommand,
                         testing::Values(Case{Disk::Nameless, false}, Case{Disk::Nameless, true},
                                         Case{Disk::Named, false}, Case{Disk::Named, true}),
                         nameOf);

struct Expected {
    const char* Call;
    std::vector<int> Fatal;    // error numbers that end a save whenever they come
    std::vector<int> Survived; // and those that do not
};

// A close counts where it is the one that is looked at: others come after the content is known to be on the disk, or
// are of a folder. The system's look at what a name is, before anything is written, has others after it.
const Expected kExpected[] = {
    {"open", {EACCES, EIO}, {EINTR}},
    {"tmpfile", {}, {EACCES, EIO, ENOSPC, EISDIR, EINTR}}, // a temporary name does as well
    {"openat", {EACCES, EIO, ENOSPC, EROFS}, {EINTR}},
    {"write", {EIO, ENOSPC, EDQUOT, EFBIG}, {EINTR, kHalfDone}},
    {"fchmod", {EIO, EROFS}, {EINTR, EPERM}},
    {"fdatasync", {EIO, ENOSPC}, {EINTR, EINVAL}},
    {"dup", {EMFILE}, {}},
    {"linkat", {EIO, ENOSPC, EACCES}, {EINTR}},
    {"renameat2", {EIO, ENOSPC, EACCES}, {EINTR}},
    {"fstatat", {EIO, EACCES}, {}},
    {"close", {}, {EINTR}},
    {"stat", {}, {EIO, EACCES}},
};

TEST_P(DiskCommand, EachCallThatFailsIsToldOrSurvived) {
    auto [plain, made] = record({});
    EXPECT_EQ(plain.Status, 0) << plain.Err;
    expectWhole();
    restore();
    Names kinds;
    for (const auto& [call, count] : made) {
        kinds.push_back(call);
    }
    for (const char* call : {"open", "tmpfile", "write", "fdatasync", "dup", "close", "fstatat"}) {
        EXPECT_THAT(kinds, testing::Contains(call));
    }
    EXPECT_THAT(kinds, testing::Contains(GetParam().Kind == Disk::Nameless ? "linkat" : "openat"));
    EXPECT_EQ(made.count("fchmod"), force() ? 1u : 0u);
    EXPECT_EQ(made.count("renameat2"), force() || GetParam().Kind == Disk::Named ? 1u : 0u);
    for (const Expected& expected : kExpected) {
        const auto found = made.find(expected.Call);
        for (int number = 1; found != made.end() && number <= found->second; ++number) {
            for (const int error : expected.Fatal) {
                SCOPED_TRACE(std::string(expected.Call) + " " + std::to_string(number) + " " + std::strerror(error));
                auto [outcome, done] = record({{expected.Call, number, error}});
                // How many pieces content comes in, and so how often it is written, is a matter of moments.
                if (done[expected.Call] >= number) {
                    EXPECT_EQ(outcome.Status, 23) << outcome.Err;
                    EXPECT_EQ(outcome.Err,
                              "netrove: NETROVE:cli:FileNotWritten: file: " + std::string(std::strerror(error)) + "\n");
                    expectUntouched();
                } else {
                    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
                    expectWhole();
                }
                restore();
            }
            for (const int error : expected.Survived) {
                SCOPED_TRACE(std::string(expected.Call) + " " + std::to_string(number) + " " + std::strerror(error));
                const Outcome outcome = save({{expected.Call, number, error}});
                EXPECT_EQ(outcome.Status, 0) << outcome.Err;
                expectWhole();
                restore();
            }
        }
    }
}

TEST_P(DiskCommand, AWriteThatFailsAtTheCloseIsTold) {
    const int closes = record({}).second.at("close");
    restore();
    int told = 0;
    for (int number = 1; number <= closes; ++number) {
        const Outcome outcome = save({{"close", number, EIO}});
        if (outcome.Status == 0) {
            expectWhole();
        } else {
            ++told;
            EXPECT_EQ(outcome.Status, 23);
            EXPECT_EQ(outcome.Err, "netrove: NETROVE:cli:FileNotWritten: file: Input/output error\n");
            expectUntouched();
        }
        restore();
    }
    EXPECT_EQ(told, 1);
}

TEST_P(DiskCommand, WithoutARenameThatReplacesNothingALinkDoes) {
    const Outcome outcome = save({{"renameat2", 1, EINVAL}});
    if (force()) {
        EXPECT_EQ(outcome.Status, 23);
        expectUntouched();
    } else {
        EXPECT_EQ(outcome.Status, 0) << outcome.Err;
        expectWhole();
    }
}

// The server could send for ever.
TEST_P(DiskCommand, AFullDiskEndsItAtOnce) {
    ScriptedServer server(
        {step::expectHead(),
         step::send("HTTP/1.1 200 OK\r\nContent-Length: 1000000000\r\n\r\n" + patternedBytes(500'000)),
         step::awaitPeerEnd()});
    const Outcome outcome = run(words(server), around({{"write", 3, ENOSPC}}));
    EXPECT_EQ(outcome.Status, 23);
    EXPECT_EQ(outcome.Err, "netrove: NETROVE:cli:FileNotWritten: file: No space left on device\n");
    expectUntouched();
    EXPECT_TRUE(server.waitUntilDone().PeerEnded);
}

TEST_P(DiskCommand, ALimitOfFileSizesEndsItAtOnce) {
    ScriptedServer server(
        {step::expectHead(),
         step::send("HTTP/1.1 200 OK\r\nContent-Length: 1000000000\r\n\r\n" + patternedBytes(500'000)),
         step::awaitPeerEnd()});
    Surroundings limited = around();
    limited.Executable = "/bin/sh";
    std::vector<std::string> arguments = {"-c", "ulimit -f 100; exec \"$0\" \"$@\"", programFile()}; // of 512 bytes
    for (const std::string& word : words(server)) {
        arguments.push_back(word);
    }
    const Outcome outcome = run(arguments, limited);
    EXPECT_EQ(outcome.Status, 23);
    EXPECT_EQ(outcome.Err, "netrove: NETROVE:cli:FileNotWritten: file: File too large\n");
    expectUntouched();
}

// A program that has received half of its content, with a name for it only where the disk wants one.
class HalfReceived : public DiskCommand {
protected:
    ScriptedServer Server{
        {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 40000\r\n\r\n" + Content.substr(0, 20'000)),
         step::signal("half"), step::await("go on"), step::send(Content.substr(20'000)), step::awaitPeerEnd()}};
    std::optional<Program> Saving;

    void SetUp() override {
        DiskCommand::SetUp();
        Saving.emplace(words(Server), around());
        Server.waitFor("half");
    }
    std::string temporary() const {
        for (const std::string& name : names()) {
            if (name.ends_with(".part")) {
                return Folder.file(name);
            }
        }
        return {};
    }
};

INSTANTIATE_TEST_SUITE_P(Disks, HalfReceived,
                         testing::Values(Case{Disk::Nameless, false}, Case{Disk::Nameless, true},
                                         Case{Disk::Named, false}, Case{Disk::Named, true}),
                         nameOf);

TEST_P(HalfReceived, HasANameOnlyWhereTheDiskWantsOne) {
    EXPECT_EQ(temporary().empty(), GetParam().Kind == Disk::Nameless);
    Server.raise("go on");
    EXPECT_EQ(Saving->wait().Status, 0);
    expectWhole();
}

TEST_P(HalfReceived, ALinkInItsPlaceIsNotWrittenThrough) {
    const std::string precious = Elsewhere.file("precious");
    writeFile(precious, "precious");
    const std::string swapped = temporary();
    if (!swapped.empty()) {
        std::filesystem::remove(swapped);
        std::filesystem::create_symlink(precious, swapped);
    }
    Server.raise("go on");
    const Outcome outcome = Saving->wait();
    EXPECT_EQ(readFile(precious), "precious");
    if (swapped.empty()) {
        EXPECT_EQ(outcome.Status, 0);
        expectWhole();
    } else {
        EXPECT_EQ(outcome.Status, 23);
        EXPECT_EQ(outcome.Err, "netrove: NETROVE:cli:FileNotWritten: file: somebody replaced its temporary file\n");
        expectUntouched();
    }
}

// As a closing terminal and `timeout` send them: the second ends the program wherever it is.
TEST_P(HalfReceived, TwoSignalsAtOnceLeaveNothing) {
    Saving->freeze();
    Saving->signal(SIGHUP);
    Saving->signal(SIGTERM);
    Saving->signal(SIGCONT);
    const Outcome outcome = Saving->wait();
    EXPECT_THAT(outcome.Status, testing::AnyOf(128 + SIGHUP, 128 + SIGTERM));
    expectUntouched();
}

TEST_P(HalfReceived, TheSameSignalTwiceLeavesNothing) {
    Saving->signal(SIGTERM);
    Saving->signal(SIGTERM);
    // The second may come when the program has cleaned up and leaves signals to the system, which ends it (-1).
    EXPECT_THAT(Saving->wait().Status, testing::AnyOf(128 + SIGTERM, -1));
    expectUntouched();
}

} // namespace
