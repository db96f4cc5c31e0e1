// What is different where a person looks on.
#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/UnreachablePorts.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace testsupport;

Script answer(const std::string& text) {
    return {step::expectHead(), step::send(text), step::awaitPeerEnd()};
}

Surroundings onTerminal(const std::string& folder = "") {
    Surroundings around;
    around.Terminal = true;
    around.Folder = folder;
    return around;
}

TEST(Terminal, TextIsShown) {
    ScriptedServer server(answer(response("line one\nline two\n")));
    const Outcome outcome = run({"get", server.url()}, onTerminal());
    EXPECT_EQ(outcome.Status, 0);
    EXPECT_EQ(outcome.Out, "line one\r\nline two\r\n"); // the terminal's own line ends
}

TEST(Terminal, ContentThatWouldControlItIsRefused) {
    for (const std::string& content : {std::string("\x1b[2Jgone"), std::string("\x7f"
                                                                               "ELF\0\0",
                                                                               6)}) {
        ScriptedServer server(answer(response(content)));
        const Outcome outcome = run({"get", "--color", "never", server.url()}, onTerminal());
        EXPECT_EQ(outcome.Status, 23);
        EXPECT_EQ(outcome.Out.find("netrove: NETROVE:cli:BinaryToTerminal: "), 0u) << outcome.Out;
        EXPECT_EQ(outcome.Out.find('\x1b'), std::string::npos);
    }
}

TEST(Terminal, ContentThatWouldControlItIsRefusedWhereverItIsCut) {
    ScriptedServer server({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhi\xC2"),
                           step::await("shown"),
                           step::send("\x9B"
                                      "31mred"),
                           step::awaitPeerEnd()});
    Program program({"get", "--color", "never", server.url()}, onTerminal());
    program.waitForOutput("hi");
    server.raise("shown");
    const Outcome outcome = program.wait();
    EXPECT_EQ(outcome.Status, 23);
    EXPECT_NE(outcome.Out.find("NETROVE:cli:BinaryToTerminal: "), std::string::npos) << outcome.Out;
    EXPECT_EQ(outcome.Out.find('\x9B'), std::string::npos);
}

TEST(Terminal, ADashShowsItAllTheSame) {
    ScriptedServer server(answer(response("\x1b[2Jgone")));
    const Outcome outcome = run({"get", "-o", "-", server.url()}, onTerminal());
    EXPECT_EQ(outcome.Status, 0);
    EXPECT_EQ(outcome.Out, "\x1b[2Jgone");
}

TEST(Terminal, AnIncludedHeadIsMadeHarmless) {
    ScriptedServer server(answer("HTTP/1.1 200 OK\r\nX-Evil: \x1b[31mred\r\nContent-Length: 2\r\n\r\nok"));
    const Outcome outcome = run({"get", "-i", server.url()}, onTerminal());
    EXPECT_EQ(outcome.Status, 0);
    EXPECT_EQ(outcome.Out, "HTTP/1.1 200 OK\r\nX-Evil: \\x1B[31mred\r\nContent-Length: 2\r\n\r\nok");
}

TEST(Terminal, AReasonThatTurnsTheLineAroundIsMadeHarmless) {
    const TemporaryFolder folder;
    ScriptedServer server(answer(response("x", {"X-Evil: \u202Egpj.exe"}, "404 \u202EdnuoF toN")));
    const Outcome outcome =
        run({"save", "-v", "--color", "never", server.url("/file"), "file"}, onTerminal(folder.path()));
    EXPECT_EQ(outcome.Status, 0) << outcome.Out;
    EXPECT_EQ(outcome.Out.find("\u202E"), std::string::npos) << outcome.Out;
    EXPECT_NE(outcome.Out.find("404 \\xE2\\x80\\xAEdnuoF toN; file holds that response"), std::string::npos)
        << outcome.Out;
}

TEST(Terminal, TheTraceIsMadeHarmless) {
    ScriptedServer server(answer("HTTP/1.1 200 OK\r\nX-Evil: \x1b[31mred\r\nContent-Length: 2\r\n\r\nok"));
    const Outcome outcome = run({"get", "-v", "--color", "never", server.url()}, onTerminal());
    EXPECT_EQ(outcome.Status, 0);
    EXPECT_EQ(outcome.Out.find('\x1b'), std::string::npos);
    EXPECT_NE(outcome.Out.find("X-Evil: \\x1B[31mred"), std::string::npos) << outcome.Out;
}

TEST(Terminal, SavingDrawsOneLineAndSaysWhatItSaved) {
    const TemporaryFolder folder;
    ScriptedServer server(answer(response(std::string(4096, 'x'))));
    const Outcome outcome = run({"save", "--color", "never", server.url(), "file"}, onTerminal(folder.path()));
    EXPECT_EQ(outcome.Status, 0);
    EXPECT_NE(outcome.Out.find("\rreceived: [########################] 100%  4.0 KiB of 4.0 KiB"), std::string::npos)
        << outcome.Out;
    EXPECT_TRUE(outcome.Out.ends_with("netrove: note: saved file (4.0 KiB)\r\n")) << outcome.Out;
}

TEST(Terminal, AnUnknownLengthIsNotMadeUp) {
    const TemporaryFolder folder;
    ScriptedServer server(
        answer("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + chunked(std::string(2048, 'x'), 100)));
    const Outcome outcome = run({"save", "--color", "never", server.url(), "file"}, onTerminal(folder.path()));
    EXPECT_NE(outcome.Out.find("\rreceived: 2.0 KiB"), std::string::npos) << outcome.Out;
    EXPECT_EQ(outcome.Out.find('%'), std::string::npos);
}

TEST(Terminal, ProgressCanBeSwitchedOff) {
    const TemporaryFolder folder;
    ScriptedServer server(answer(response("x")));
    EXPECT_EQ(run({"save", "--no-progress", server.url(), "file"}, onTerminal(folder.path())).Out, "");
}

TEST(Terminal, FailuresAreInColourUnlessTheUserObjects) {
    const RefusingPort port;
    const std::string red = "\x1b[1;31mnetrove: ";
    EXPECT_EQ(run({"get", port.url()}, onTerminal()).Out.find(red), 0u);
    EXPECT_EQ(run({"get", "--color", "never", port.url()}, onTerminal()).Out.find("netrove: "), 0u);
    Surroundings around = onTerminal();
    around.Environment["NO_COLOR"] = "1";
    EXPECT_EQ(run({"get", port.url()}, around).Out.find("netrove: "), 0u);
    EXPECT_EQ(run({"get", "--color", "always", port.url()}).Err.find(red), 0u);
    EXPECT_EQ(run({"get", port.url()}).Err.find("netrove: "), 0u);
}

TEST(Terminal, ABatchDrawsNoBarBetweenItsResultsUnlessAskedTo) {
    for (const bool asked : {false, true}) {
        const TemporaryFolder folder;
        ScriptedServer server(answer(response("x")));
        writeFile(folder.file("list"), server.url() + " file\n");
        std::vector<std::string> arguments = {"batch", "list", "--color", "never"};
        if (asked) {
            arguments.push_back("--progress");
        }
        const Outcome outcome = run(arguments, onTerminal(folder.path()));
        EXPECT_EQ(outcome.Status, 0) << outcome.Out;
        EXPECT_NE(outcome.Out.find("\"result\":\"done\""), std::string::npos) << outcome.Out;
        EXPECT_EQ(outcome.Out.find("\033[K") != std::string::npos, asked) << outcome.Out;
    }
}

} // namespace
