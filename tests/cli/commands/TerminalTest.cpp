// What is different where a person looks on.
#include "tests/cli/ProgramFixture.h"
#include "tests/support/process/Screen.h"
#include "tests/support/server/UnreachablePorts.h"

namespace {

using namespace clitest;
using testing::EndsWith;

using Terminal = ProgramFixture;

struct ShownRow {
    const char* Name;
    Words Arguments;
    std::string Answer;
    Text Shown;
    int Status = 0;
};

TEST_F(Terminal, ShowsTextAndNeverObeysTheServer) {
    const std::string evil = "HTTP/1.1 200 OK\r\nX-Evil: \x1b[31mred\r\nContent-Length: 2\r\n\r\nok";
    const auto refused = AllOf(StartsWith("netrove: NETROVE:cli:BinaryToTerminal: "), Not(HasSubstr("\x1b")));
    const ShownRow rows[] = {
        // With the terminal's own line ends.
        {"text", {"get", "URL"}, response("line one\nline two\n"), "line one\r\nline two\r\n"},
        {"an escape sequence", {"get", "URL"}, response("\x1b[2Jgone"), refused, 23},
        {"a binary", {"get", "URL"}, response(std::string("\177ELF\0\0", 6)), refused, 23},
        {"by a dash", {"get", "-o", "-", "URL"}, response("\x1b[2Jgone"), "\x1b[2Jgone"},
        {"a head",
         {"get", "-i", "URL"},
         evil,
         "HTTP/1.1 200 OK\r\nX-Evil: \\x1B[31mred\r\nContent-Length: 2\r\n\r\nok"},
        {"the trace", {"get", "-v", "URL"}, evil, AllOf(HasSubstr("X-Evil: \\x1B[31mred"), Not(HasSubstr("\x1b")))},
        {"a reason that turns the line around",
         {"save", "-v", "--no-fail", "URL", "file"},
         response("x", {"X-Evil: \u202Egpj.exe"}, "404 \u202EdnuoF toN"),
         AllOf(HasSubstr("404 \\xE2\\x80\\xAEdnuoF toN; file holds that response"), Not(HasSubstr("\u202E")))},
        {"what was saved",
         {"save", "--force", "URL", "file"},
         response(std::string(4096, 'x')),
         AllOf(HasSubstr("\rreceived: [########################] 100%  4.0 KiB of 4.0 KiB"),
               EndsWith("netrove: note: saved file (4.0 KiB)\r\n"))},
        {"a length that is unknown",
         {"save", "--force", "URL", "file"},
         kOk + "Transfer-Encoding: chunked\r\n\r\n" + chunked(std::string(2048, 'x'), 100),
         AllOf(HasSubstr("\rreceived: 2.0 KiB"), Not(HasSubstr("%")))},
        {"no progress", {"save", "--force", "--no-progress", "URL", "file"}, response("x"), ""},
    };
    for (const ShownRow& row : rows) {
        SCOPED_TRACE(row.Name);
        EXPECT_THAT(runAgainst(answering(row.Answer), row.Arguments + Words{"--color", "never"}, onTerminal()),
                    ended(row.Status, row.Shown));
    }
}

// Drawn in place, within the terminal; at the end there are one line and the note. A speed limit makes it last.
TEST_F(Terminal, ProgressFitsAndLeavesNothing) {
    const std::string answer = response(std::string(60'000, 'x'));
    const Words slowly = {"--limit-rate", "200k", "--color", "never", "URL"};
    for (const int columns : {60, 80, 200}) {
        for (const Words& words : {Words{"save", "--force"}, {"get", "-o", "download"}}) {
            Surroundings around = onTerminal();
            around.Columns = columns;
            const Outcome ran = runAgainst(answering(answer), words + slowly, around);
            EXPECT_EQ(ran.Status, 0);
            EXPECT_GT(std::count(ran.Out.begin(), ran.Out.end(), '\r'), 3) << "it was drawn more than once";
            const Screen screen(ran.Out);
            EXPECT_LT(screen.Widest, static_cast<std::size_t>(columns));
            EXPECT_THAT(screen.Lines,
                        testing::ElementsAre(AllOf(StartsWith("received: "), HasSubstr("58.6 KiB of 58.6 KiB")),
                                             "netrove: note: saved download (58.6 KiB)"));
        }
    }
}

TEST_F(Terminal, ProgressFollowsTheTerminalsWidth) {
    ScriptedServer server({step::expectHead(),
                           step::send(kOk + "Content-Length: 60000\r\n\r\n" + std::string(30'000, 'x')),
                           step::await("resized"), step::send(std::string(30'000, 'x')), step::awaitPeerEnd()});
    Surroundings around = onTerminal();
    around.Columns = 200;
    Program program({"save", "--limit-rate", "60k", "--color", "never", server.url()}, around);
    program.waitForOutput("received: [");
    program.resize(60);
    server.raise("resized");
    const Outcome ran = program.wait();
    EXPECT_EQ(ran.Status, 0);
    const Screen screen(ran.Out);
    EXPECT_GT(screen.Widest, 60U);
    ASSERT_EQ(screen.Lines.size(), 2U) << ran.Out;
    EXPECT_LT(screen.Lines.front().size(), 60U);
}

TEST_F(Terminal, ShowsJsonIndentedAndHeadsInColour) {
    const std::string json = "{\"b\":1.50,\"a\":[]}";
    const auto answer = [](const std::string& content, const std::string& type) {
        return kOk + "Content-Type: " + type + "\r\nContent-Length: " + std::to_string(content.size()) + "\r\n\r\n" +
               content;
    };
    const std::string plain = "{\n  \"b\": 1.50,\n  \"a\": []\n}\n";
    const std::string shown = "{\r\n  \"b\": 1.50,\r\n  \"a\": []\r\n}\r\n";
    const ShownRow onTerminalRows[] = {
        {"without colour", {"get", "--color", "never", "URL"}, answer(json, "application/problem+json;x=y"), shown},
        {"in colour", {"get", "URL"}, answer("[1]", "application/json"), "[\r\n  \x1b[36m1\x1b[0m\r\n]\r\n"},
        {"a head",
         {"get", "-i", "URL"},
         answer("x", "text/plain"),
         "\x1b[32mHTTP/1.1 200 OK\x1b[0m\r\n\x1b[1mContent-Type\x1b[0m: text/plain\r\n\x1b[1mContent-Length\x1b[0m: "
         "1\r\n\r\nx"},
        {"not asked for",
         {"get", "-i", "--pretty", "never", "URL"},
         answer(json, "application/json"),
         answer(json, "application/json")},
        {"another type", {"get", "URL"}, answer(json, "text/plain"), json},
        {"not JSON", {"get", "URL"}, answer("<html>", "application/json"), "<html>"},
        {"with controls", {"get", "URL"}, answer("[\"\x9B\"]", "application/json"), HasSubstr("BinaryToTerminal"), 23},
        {"cut off",
         {"get", "URL"},
         kOk + "Content-Type: application/json\r\nContent-Length: 9\r\n\r\n[1,2",
         StartsWith("[1,2"),
         18},
    };
    for (const ShownRow& row : onTerminalRows) {
        SCOPED_TRACE(row.Name);
        const Script script = {step::expectHead(), step::send(row.Answer),
                               row.Status == 18 ? step::close() : step::awaitPeerEnd()};
        EXPECT_THAT(runAgainst(script, row.Arguments, onTerminal()), ended(row.Status, row.Shown));
    }
    const std::pair<Words, std::string> elsewhere[] = {
        {{"get", "URL"}, json},
        {{"get", "--pretty", "always", "URL"}, plain},
        {{"get", "--pretty", "always", "-o", "file", "URL"}, ""},
    };
    for (const auto& [words, out] : elsewhere) {
        EXPECT_THAT(runAgainst(answering(answer(json, "text/plain")), words, here()), ended(0, out));
    }
    EXPECT_EQ(readFile(file("file")), json);
}

TEST_F(Terminal, RefusesAControlCharacterThatComesInTwoPieces) {
    ScriptedServer server({step::expectHead(), step::send(kOk + "Content-Length: 9\r\n\r\nhi\xC2"),
                           step::await("shown"), step::send("\23331mred"), step::awaitPeerEnd()});
    Program program({"get", "--color", "never", server.url()}, onTerminal());
    program.waitForOutput("hi");
    server.raise("shown");
    EXPECT_THAT(program.wait(), ended(23, AllOf(HasSubstr("NETROVE:cli:BinaryToTerminal: "), Not(HasSubstr("\x9B")))));
}

TEST_F(Terminal, ShowsFailuresInColourUnlessTheUserObjects) {
    const RefusingPort port;
    const std::string red = "\x1b[1;31mnetrove: ";
    Surroundings noColour = onTerminal();
    noColour.Environment["NO_COLOR"] = "1";
    EXPECT_THAT(run({"get", port.url()}, onTerminal()).Out, StartsWith(red));
    EXPECT_THAT(run({"get", "--color", "never", port.url()}, onTerminal()).Out, StartsWith("netrove: "));
    EXPECT_THAT(run({"get", port.url()}, noColour).Out, StartsWith("netrove: "));
    EXPECT_THAT(run({"get", "--color", "always", port.url()}).Err, StartsWith(red));
    EXPECT_THAT(run({"get", port.url()}).Err, StartsWith("netrove: "));
}

} // namespace
