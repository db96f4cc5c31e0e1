// Ctrl-C and its kin, wherever the program is: what it says, its status, and what it leaves. Of `batch`:
// BatchResumeTest.cpp.
#include "tests/cli/ProgramFixture.h"

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

using namespace clitest;
using testing::ContainsRegex;

class Signals : public ProgramFixture {
protected:
    void expectInterrupted(Program& program, int number = SIGINT) const {
        program.signal(number);
        EXPECT_THAT(program.wait(), ended(128 + number, _, "netrove: NETROVE:cli:Interrupted: interrupted\n"));
    }
};

TEST_F(Signals, EndTheProgramWhileTheServerIsSilent) {
    for (const auto& [number, name] : {std::pair(SIGINT, "SIGINT"), {SIGTERM, "SIGTERM"}, {SIGHUP, "SIGHUP"}}) {
        const ScriptedServer server({step::expectHead(), step::signal("asked"), step::awaitPeerEnd()});
        Program program({"get", "--json-errors", server.url()});
        server.waitFor("asked");
        program.signal(number);
        EXPECT_THAT(program.wait(),
                    ended(128 + number, "",
                          "{\"identifier\":\"NETROVE:cli:Interrupted\",\"message\":\"interrupted\",\"arguments\":[\"" +
                              std::string(name) + "\"],\"exit\":" + std::to_string(128 + number) + "}\n"));
        EXPECT_TRUE(server.waitUntilDone().PeerEnded);
    }
}

TEST_F(Signals, EndTheProgramWhileContentArrivesAndLeaveNoFile) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        const ScriptedServer server({step::expectHead(),
                                     step::send(kOk + "Content-Length: 1000000\r\n\r\n" + patternedBytes(50'000)),
                                     step::signal("half"), step::awaitPeerEnd()});
        Program program({"save", server.url(), "file"}, here());
        server.waitFor("half");
        expectInterrupted(program, number);
        EXPECT_EQ(names(), Words{});
        EXPECT_TRUE(server.waitUntilDone().PeerEnded);
    }
}

TEST_F(Signals, EndTheProgramWhileABodyGoesOut) {
    writeFile(file("body"), patternedBytes(20'000'000));
    ScriptedServer server({step::expectHead(), step::signal("sending"), step::await("end"), step::awaitPeerEnd()});
    Program program({"send", server.url(), "-T", file("body")});
    server.waitFor("sending");
    expectInterrupted(program);
    server.raise("end");
}

TEST_F(Signals, EndTheProgramWhileStandardInputIsSilent) {
    const ScriptedServer server(
        {step::expectHead(), step::expectBody(10), step::signal("sending"), step::awaitPeerEnd()});
    Program program({"send", server.url(), "-T", "-"});
    program.type("first");
    server.waitFor("sending");
    expectInterrupted(program);
}

TEST_F(Signals, EndTheProgramWhileItWaitsForItsNextTry) {
    const ScriptedServer server({step::expectHead(),
                                 step::send("HTTP/1.1 503 Busy\r\nRetry-After: 250\r\nContent-Length: 0\r\n\r\n"),
                                 step::awaitPeerEnd()});
    Program program({"get", server.url(), "--retry", "3"}, {.Terminal = true});
    program.waitForOutput(", in 4 min 10 s");
    program.signal(SIGINT);
    const Outcome outcome = program.wait();
    EXPECT_EQ(outcome.Status, 130);
    EXPECT_THAT(outcome.Out, testing::ContainsRegex("; next try at [0-2][0-9]:[0-5][0-9]:[0-5][0-9], in 4 min 10 s"));
}

TEST_F(Signals, EndTheProgramWhileNobodyReadsItsOutput) {
    const ScriptedServer server(answering(response(patternedBytes(5'000'000))));
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    Program program({"get", server.url()}, {.OutDescriptor = ends[1]});
    program.awaitCondition([&] { return isFull(ends[1]); }, "its output is full"); // then it can only wait
    expectInterrupted(program);
    close(ends[0]);
    close(ends[1]);
}

// The first content breaks off, so that there is some to lose; the second answer asks for a wait.
TEST_F(Signals, EndTheProgramWhileItWaitsForTheNextTry) {
    const std::string tag = "ETag: \"a\"\r\nAccept-Ranges: bytes\r\n";
    const Script broken = {step::expectHead(), step::send(kOk + tag + "Content-Length: 5\r\n\r\nhel"), step::close()};
    const Script busy = answering("HTTP/1.1 503 Busy\r\nRetry-After: 200\r\nContent-Length: 0\r\n\r\n");
    struct {
        Words Arguments;
        Words Left;
    } const rows[] = {
        {{"get", "URL/f"}, {}},
        {{"get", "-o", "f", "URL/f"}, {}},
        {{"save", "URL/f"}, {}},
        {{"save", "-C", "-", "URL/f"}, {"f.part", "f.part.json"}},
        {{"send", "-X", "PUT", "-d", "x", "-o", "f", "URL/f"}, {}},
    };
    for (const auto& [words, left] : rows) {
        for (const int number : {SIGINT, SIGTERM}) {
            SCOPED_TRACE(words.at(0));
            const ScriptedServer server({broken, busy});
            Program program(withUrl(words, server) + Words{"--retry", "3", "--retry-delay", "1ms", "--color", "never"},
                            onTerminal());
            program.waitForOutput("netrove: note: the server answered 503 Busy for " + server.url("/f") +
                                  "; next try at ");
            program.signal(number);
            const Outcome ran = program.wait();
            EXPECT_EQ(ran.Status, 128 + number);
            EXPECT_THAT(ran.Out, ContainsRegex("next try at [0-9]{2}:[0-9]{2}:[0-9]{2}, in 3 min 20 s\r\n"
                                               "netrove: NETROVE:cli:Interrupted: interrupted\r\n$"));
            EXPECT_EQ(names(), left);
            EXPECT_EQ(server.connectionCount(), 2U);
            for (const std::string& name : left) {
                std::filesystem::remove(file(name));
            }
        }
    }
}

TEST_F(Signals, AHangUpThatIsIgnoredStaysIgnored) {
    ScriptedServer server({step::expectHead(), step::send(kOk + "Content-Length: 11\r\n\r\nfirst"),
                           step::signal("half"), step::await("hung up"), step::send(", rest"), step::awaitPeerEnd()});
    Program program({programFile(), "save", server.url(), "file"},
                    {.Folder = Folder.path(), .Executable = "/usr/bin/nohup"});
    server.waitFor("half");
    program.signal(SIGHUP);
    server.raise("hung up");
    EXPECT_THAT(program.wait(), ended(0));
    EXPECT_EQ(readFile(file("file")), "first, rest");
}

} // namespace
