// Ctrl-C at the command line in phases of a request, for each command that writes: it ends soon, with the status for
// that, and leaves no file.
#include "tests/integration/interrupt/HeldLookup.h"
#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/UnreachablePorts.h"

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>

namespace {

using namespace testsupport;

using Texts = std::vector<std::string>;

const std::string kInterrupted = "netrove: NETROVE:cli:Interrupted: interrupted\n";
constexpr int kCommandRounds = 8;                   // each command twice
constexpr std::chrono::seconds kPatience{2}; // of the person who has pressed Ctrl-C

class InterruptedCommand : public testing::Test {
protected:
    // Presses Ctrl-C and looks at what is left. A program that goes on for too long is killed, and has no status then.
    Outcome stop(Program& program) {
        program.signal(SIGINT);
        const Outcome outcome = program.waitAtMost(kPatience);
        EXPECT_EQ(outcome.Status, 130);
        EXPECT_TRUE(std::filesystem::is_empty(Folder.path())) << "something is left of the file";
        return outcome;
    }
    void interrupt(Program& program, const std::string& output = {}) {
        const Outcome outcome = stop(program);
        EXPECT_EQ(outcome.Err, kInterrupted);
        EXPECT_EQ(outcome.Out, output);
    }

    // Unless something fails.
    void repeat(const std::function<void(int round)>& action) {
        for (int round = 0; round < kCommandRounds && !HasFailure(); ++round) {
            SCOPED_TRACE(round);
            action(round);
        }
    }

    // Every command that writes, by turns: to standard output, to a file through the class, to a file through a
    // consumer, to a file after a request with content.
    Texts command(int round, const std::string& url) const {
        const std::vector<Texts> commands = {{"get", "-k", url},
                                             {"save", "-k", url, target()},
                                             {"save", "-k", "--consumer", url, target()},
                                             {"send", "-k", "-o", target(), url}};
        return commands.at(static_cast<std::size_t>(round) % commands.size());
    }
    std::string target() const { return Folder.file("target"); }

private:
    TemporaryFolder Folder;
};

// What the limit is worth: without it a program that does not end would hold the test instead of failing it.
TEST(InterruptedProgram, IsKilledWhereItDoesNotEnd) {
    Program silent({}, {.Executable = "/bin/cat"}); // nothing is typed
    EXPECT_EQ(silent.waitAtMost(std::chrono::milliseconds(1)).Status, -1);
    Program ending({"-c", "exit 7"}, {.Executable = "/bin/sh"});
    EXPECT_EQ(ending.waitAtMost(kPatience).Status, 7);
}

struct Phase {
    const char* Name;
    Script Before; // what the server does before Ctrl-C
    const char* Scheme = "http";
    bool ByProxy = false; // the server is a proxy
};

Script sending(const std::string& answer) {
    return {step::expectHead(), step::send(answer)};
}

const Phase kPhases[] = {
    {"WithinTheHead", sending("HTTP/1.1 200 OK\r\nContent-Le")},
    {"AfterAnInterimHead", sending("HTTP/1.1 103 Early Hints\r\n\r\n")},
    {"AfterTheHead", sending("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n")},
    {"WithinAChunk", sending("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nff\r\n")},
    {"WithinAHandshakeThatGetsNoAnswer", {step::discard(100)}, "https"},
    {"WithinAHandshakeThatAProxyHasOpened",
     {step::expectHead(), step::send("HTTP/1.1 200 Connection established\r\n\r\n"), step::discard(100)},
     "https",
     true},
};

class InterruptedPhase : public InterruptedCommand, public testing::WithParamInterface<Phase> {};

TEST_P(InterruptedPhase, EndsEveryCommand) {
    const Phase& phase = GetParam();
    repeat([&](int round) {
        Script script = phase.Before;
        script.insert(script.end(), {step::signal("reached"), step::awaitPeerEnd()});
        ScriptedServer server(script);
        Texts words = command(round, std::string(phase.Scheme) + "://" +
                                         (phase.ByProxy ? "origin.test" : server.authority()) + "/");
        if (phase.ByProxy) {
            words.insert(words.end(), {"-x", server.authority()});
        }
        Program program(words);
        server.waitFor("reached");
        interrupt(program);
        EXPECT_TRUE(server.waitUntilDone().PeerEnded);
    });
}

INSTANTIATE_TEST_SUITE_P(Phases, InterruptedPhase, testing::ValuesIn(kPhases),
                         [](const auto& info) { return info.param.Name; });

// No server sees when connecting begins; the program's trace shows it.
TEST_F(InterruptedCommand, WhileConnecting) {
    const SilentPort silent;
    for (const std::string scheme : {"http", "https"}) {
        repeat([&](int round) {
            Texts words = command(round, scheme + "://127.0.0.1:" + std::to_string(silent.port()) + "/");
            words.insert(words.end(), {"-v", "--color", "never", "--no-progress"});
            Program program(words, {.Terminal = true}); // output and errors in one
            program.waitForOutput("Trying 127.0.0.1");
            EXPECT_THAT(stop(program).Out, testing::HasSubstr("netrove: NETROVE:cli:Interrupted: interrupted"));
        });
    }
}

// The name server never answers. libcurl asks it on a thread of its own, which cannot be stopped.
TEST_F(InterruptedCommand, WithinALookUpOfTheName) {
    repeat([&](int round) {
        const std::string scheme = round < 4 ? "http" : "https";
        Program program(command(round, scheme + "://held.test/"),
                        {.Environment = integrationtest::heldLookupEnvironment()});
        program.waitForOutput("looking up\n");
        interrupt(program, "looking up\n");
    });
}

} // namespace
