// Ctrl-C at the command line in each phase of a request: it ends with the status for that, and leaves no file.
#include "tests/support/ProgramRun.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/UnreachablePorts.h"
#include "tests/support/WireText.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>

#include <fcntl.h>
#include <sys/ioctl.h>

namespace {

using namespace testsupport;

using Texts = std::vector<std::string>;

const std::string Interrupted = "netrove: NETROVE:cli:Interrupted: interrupted\n";
constexpr std::size_t Much = 30'000'000; // more than all buffers on the way hold

class InterruptedCommand : public testing::Test {
protected:
    // Presses Ctrl-C and looks at what is left. How long it takes is told with the test and asserted by nobody.
    void interrupt(Program& program, const std::string& output = {}) {
        const auto start = std::chrono::steady_clock::now();
        program.signal(SIGINT);
        const Outcome outcome = program.wait();
        const auto elapsed = std::chrono::steady_clock::now() - start;
        Longest = std::max(Longest, std::chrono::duration_cast<std::chrono::milliseconds>(elapsed));
        RecordProperty("milliseconds", static_cast<int>(Longest.count()));
        EXPECT_EQ(outcome.Status, 130);
        EXPECT_EQ(outcome.Err, Interrupted);
        EXPECT_EQ(outcome.Out, output);
        EXPECT_TRUE(std::filesystem::is_empty(Folder.path())) << "something is left of the file";
    }

    // Every command that writes: to standard output, to a file through the class, to a file through a consumer.
    std::vector<Texts> commands(const std::string& url) const {
        return {{"get", "-k", url},
                {"save", "-k", url, target()},
                {"save", "-k", "--consumer", url, target()},
                {"send", "-k", "-o", target(), url}};
    }
    std::string target() const { return Folder.file("target"); }

    // With the URL in its place, where it was not known before.
    static Texts filled(Texts command, const std::string& url) {
        std::replace(command.begin(), command.end(), std::string(), url);
        return command;
    }
    std::string folder() const { return Folder.path(); }

private:
    TemporaryFolder Folder;
    std::chrono::milliseconds Longest{0};
};

// Something that a program does which a server can see, in turn with what it then waits for.
struct Phase {
    const char* Name;
    Script (*Play)();
};

Script beforeTheHead() {
    return {step::expectHead(), step::signal("reached"), step::awaitPeerEnd()};
}
Script withinTheHead() {
    return {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Le"), step::signal("reached"),
            step::awaitPeerEnd()};
}
Script behindAnInterimHead() {
    return {step::expectHead(), step::send("HTTP/1.1 103 Early Hints\r\n\r\n"), step::signal("reached"),
            step::awaitPeerEnd()};
}
Script behindTheHead() {
    return {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n"), step::signal("reached"),
            step::awaitPeerEnd()};
}
Script withinAChunk() {
    return {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nff\r\n"),
            step::signal("reached"), step::awaitPeerEnd()};
}

class InterruptedPhase : public InterruptedCommand, public testing::WithParamInterface<Phase> {};

TEST_P(InterruptedPhase, EndsEveryCommand) {
    for (const Texts& command : commands("")) {
        SCOPED_TRACE(command.front() + " " + command.at(2));
        ScriptedServer server(GetParam().Play());
        Program program(filled(command, server.url()));
        server.waitFor("reached");
        interrupt(program);
        EXPECT_TRUE(server.waitUntilDone().PeerEnded);
    }
}

INSTANTIATE_TEST_SUITE_P(Phases, InterruptedPhase,
                         testing::Values(Phase{"BeforeTheHead", beforeTheHead}, Phase{"WithinTheHead", withinTheHead},
                                         Phase{"BehindAnInterimHead", behindAnInterimHead},
                                         Phase{"BehindTheHead", behindTheHead}, Phase{"WithinAChunk", withinAChunk}),
                         [](const auto& info) { return std::string(info.param.Name); });

TEST_F(InterruptedCommand, WithinTheContent) {
    for (const Texts& command : commands("")) {
        SCOPED_TRACE(command.front() + " " + command.at(2));
        ScriptedServer server({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\npart"),
                               step::signal("reached"), step::awaitPeerEnd()});
        Program program(filled(command, server.url()));
        server.waitFor("reached");
        if (command.front() == "get") {
            program.waitForOutput("part");
        }
        interrupt(program, command.front() == "get" ? "part" : "");
    }
}

// A server that answers nothing but takes every byte, and one that takes none once the buffers are full.
TEST_F(InterruptedCommand, WhileContentIsSent) {
    const TemporaryFolder source;
    writeFile(source.file("content"), patternedBytes(Much));
    for (const char* option : {"-T", "--body-file"}) {
        for (const bool reads : {true, false}) {
            SCOPED_TRACE(std::string(option) + (reads ? ", somebody reads" : ", nobody reads"));
            ScriptedServer server({step::expectHead(), step::discard(reads ? Much / 2 : 1), step::signal("reached"),
                                   reads ? step::awaitPeerEnd() : step::await("the end")});
            Program program({"send", "-X", "PUT", option, source.file("content"), "-o", target(), server.url()});
            server.waitFor("reached");
            interrupt(program);
            server.raise("the end");
        }
    }
}

TEST_F(InterruptedCommand, WhileStandardInputIsSilent) {
    ScriptedServer server({step::expectHead(), step::signal("reached"), step::awaitPeerEnd()});
    Program program({"send", "-T", "-", "-o", target(), server.url()});
    program.type("first");
    server.waitFor("reached");
    interrupt(program);
}

// A consumer that waits for its own output, which nobody reads.
TEST_F(InterruptedCommand, WhileAConsumerWaitsForAFullPipe) {
    ScriptedServer server({step::expectHead(), step::send(response(patternedBytes(5'000'000))), step::awaitPeerEnd()});
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const SocketHandle read(ends[0]);
    const SocketHandle write(ends[1]);
    const int capacity = fcntl(write.get(), F_GETPIPE_SZ);
    Surroundings around;
    around.OutDescriptor = write.get();
    Program program({"get", "--consumer", server.url()}, around);
    for (int filled = 0; filled < capacity;) {
        ASSERT_EQ(ioctl(read.get(), FIONREAD, &filled), 0);
    }
    interrupt(program);
}

// Connecting, and what comes before and behind it. No server sees when that begins; the program's trace tells.

class InterruptedConnect : public InterruptedCommand, public testing::WithParamInterface<const char*> {};

TEST_P(InterruptedConnect, EndsEveryCommand) {
    const SilentPort silent;
    const std::string url = std::string(GetParam()) + "://127.0.0.1:" + std::to_string(silent.port()) + "/";
    for (Texts command : commands(url)) {
        SCOPED_TRACE(command.front());
        command.insert(command.end(), {"-v", "--color", "never", "--no-progress"});
        Program program(command, {.Terminal = true}); // output and errors in one
        program.waitForOutput("Trying 127.0.0.1");
        program.signal(SIGINT);
        const Outcome outcome = program.wait();
        EXPECT_EQ(outcome.Status, 130);
        EXPECT_THAT(outcome.Out, testing::HasSubstr("netrove: NETROVE:cli:Interrupted: interrupted"));
        EXPECT_TRUE(std::filesystem::is_empty(folder()));
    }
}

INSTANTIATE_TEST_SUITE_P(Schemes, InterruptedConnect, testing::Values("http", "https"),
                         [](const auto& info) { return std::string(info.param); });

TEST_F(InterruptedCommand, WithinAHandshakeThatGetsNoAnswer) {
    for (const Texts& command : commands("")) {
        SCOPED_TRACE(command.front() + " " + command.at(2));
        ScriptedServer server({step::discard(100), step::signal("reached"), step::awaitPeerEnd()});
        Program program(filled(command, "https://" + server.authority() + "/"));
        server.waitFor("reached");
        interrupt(program);
    }
}

TEST_F(InterruptedCommand, WithinAHandshakeThatAProxyHasOpened) {
    ScriptedServer proxy({step::expectHead(), step::send("HTTP/1.1 200 Connection established\r\n\r\n"),
                          step::discard(100), step::signal("reached"), step::awaitPeerEnd()});
    Program program({"get", "-x", proxy.authority(), "https://origin.test/"});
    proxy.waitFor("reached");
    interrupt(program);
}

// The name server never answers. libcurl asks it on a thread of its own, which cannot be stopped.
TEST_F(InterruptedCommand, WithinALookUpOfTheName) {
    const char* sanitizer = std::getenv("ASAN_OPTIONS");
    const std::map<std::string, std::string> environment = {
        {"LD_PRELOAD", NETROVE_HELD_LOOKUP},
        // A sanitizer wants to be the first library in a program.
        {"ASAN_OPTIONS",
         (sanitizer == nullptr ? std::string() : std::string(sanitizer) + ":") + "verify_asan_link_order=0"}};
    for (const char* scheme : {"http", "https"}) {
        for (const Texts& command : commands(std::string(scheme) + "://held.test/")) {
            SCOPED_TRACE(command.front() + " " + command.at(2));
            Program program(command, {.Environment = environment});
            program.waitForOutput("looking up\n");
            interrupt(program, "looking up\n");
        }
    }
}

} // namespace
