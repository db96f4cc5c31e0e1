// A batch where a person looks on.
#include "tests/cli/batch/BatchFixture.h"
#include "tests/support/process/Screen.h"

namespace {

using namespace batchtest;
using testing::Each;

class BatchOnATerminal : public BatchFixture {
protected:
    Surroundings terminal(int columns) const { return {.Folder = Folder.path(), .Terminal = true, .Columns = columns}; }
    static Words batchWords() { return {"batch", "list", "--color", "never", "-j", "2"}; }
};

TEST_F(BatchOnATerminal, ShowsWhatRunsInPlaceOfResults) {
    for (const int columns : {60, 80, 200}) {
        const std::string path = "/slow/" + std::to_string(columns) + "/" + std::string(150, 'x');
        write(Server.url("/a") + " a\n" + Server.url(path) + " b\n");
        Server.hold(path);
        Program program(batchWords() + Words{"--no-journal", "--force"}, terminal(columns));
        program.waitForOutput("1 done, 0 failed, 1 running");
        Server.release(path);
        const Outcome outcome = program.wait();
        EXPECT_THAT(outcome,
                    ended(0, AllOf(HasSubstr("1 of 2"), HasSubstr("  127.0.0.1:"), Not(HasSubstr("\"result\"")))));
        const auto end = outcome.Out.find("netrove: note: ");
        EXPECT_LT(Screen(outcome.Out.substr(0, end)).Widest, static_cast<std::size_t>(columns));
        EXPECT_THAT(Screen(outcome.Out).Lines, Each(StartsWith("netrove: note: "))) << "something is left";
        EXPECT_THAT(outcome.Out.substr(end), StartsWith("netrove: note: 2 done; "));
    }
}

TEST_F(BatchOnATerminal, TheDisplayFollowsTheTerminalsWidth) {
    const std::string path = "/slow/" + std::string(100, 'x');
    write(Server.url(path) + " b\n");
    Server.hold(path);
    Program program(batchWords(), terminal(200));
    program.waitForOutput(path);
    program.resize(60);
    program.waitForOutput("...x");
    Server.release(path);
    const Outcome outcome = program.wait();
    EXPECT_EQ(outcome.Status, 0);
    const auto narrow = outcome.Out.rfind("\r[", outcome.Out.find("...x"));
    ASSERT_NE(narrow, std::string::npos);
    EXPECT_LT(Screen(outcome.Out.substr(narrow, outcome.Out.find("netrove: note") - narrow)).Widest, 60U);
    EXPECT_THAT(Screen(outcome.Out).Lines, Each(StartsWith("netrove: note: "))) << "something is left";
}

TEST_F(BatchOnATerminal, FailuresStandAboveTheDisplay) {
    Server.answer("/gone", {{.Status = 404}});
    Server.hold("/gone");
    Server.hold("/slow");
    write(Server.url("/slow") + " slow\n" + Server.url("/gone") + " gone\n");
    Program program(batchWords(), terminal(80));
    program.waitForOutput("2 running");
    Server.release("/gone");
    program.waitForOutput("1 failed, 1 running");
    Server.release("/slow");
    const Outcome outcome = program.wait();
    EXPECT_EQ(outcome.Status, 22);
    EXPECT_THAT(outcome.Out, HasSubstr("\r\033[Jnetrove: line 2: NETROVE:cli:StatusError: "));
    EXPECT_THAT(outcome.Out, HasSubstr("netrove: note: 1 failed: 1 x the server answered 404 Not Found\r\n"));
}

TEST_F(BatchOnATerminal, ShowsResultsAsLinesWhereTheyAreAskedFor) {
    for (const bool both : {false, true}) {
        Server.hold("/slow");
        write(Server.url("/a") + " a\n" + Server.url("/slow") + " slow\n");
        const Words words = Words{"--format", "json", "--no-journal", "--force"};
        Program program(batchWords() + words + (both ? Words{"--progress"} : Words{}), terminal(100));
        program.waitForOutput(both ? "1 running" : "\"result\":\"done\"");
        Server.release("/slow");
        const Outcome outcome = program.wait();
        EXPECT_EQ(outcome.Status, 0);
        EXPECT_EQ(outcome.Out.find("1 running") != std::string::npos, both) << outcome.Out;
        const std::string first = both ? "\r\033[J" : "\r\n";
        EXPECT_THAT(outcome.Out, HasSubstr(first + "{\"id\":"));
    }
}

TEST_F(BatchOnATerminal, FailuresOfOneCauseAreToldTenTimes) {
    std::string text;
    for (int i = 0; i < 30; ++i) {
        Server.answer("/" + std::to_string(i), {{.Status = 500}});
        text += Server.url("/" + std::to_string(i)) + " f" + std::to_string(i) + "\n";
    }
    write(text);
    const Outcome onTerminal = run(batchWords() + Words{"--no-progress"}, terminal(80));
    const auto told = [](const std::string& shown) {
        std::size_t count = 0;
        for (auto at = shown.find("NETROVE:cli:StatusError"); at != shown.npos;
             at = shown.find("NETROVE:cli:StatusError", at + 1)) {
            ++count;
        }
        return count;
    };
    EXPECT_EQ(told(onTerminal.Out), 10U);
    EXPECT_THAT(onTerminal.Out, HasSubstr("30 failed: 30 x the server answered 500 Internal Server Error"));
    const Outcome inFiles = batch({"list"});
    EXPECT_EQ(told(inFiles.Err), 30U);
    EXPECT_EQ(results(inFiles).size(), 30U);
}

} // namespace
