#include "tests/cli/batch/BatchFixture.h"

#include <csignal>
#include <string>

namespace {

using namespace batchtest;

class BatchResume : public BatchFixture {
protected:
    // A run that has done lines 1 and 2 and is in the middle of line 3.
    Program stoppedAtThree() {
        writeList(5);
        Server.hold("/n/3");
        return Program({"batch", "list", "-j", "1"}, around());
    }
    void expectTheRest() {
        Server.release("/n/3");
        const Outcome outcome = batch({"list"});
        EXPECT_EQ(outcome.Status, 0) << outcome.Err << outcome.Out;
        EXPECT_EQ(count(outcome, "skipped"), 2u);
        EXPECT_EQ(count(outcome, "done"), 3u);
        expectFiles(5);
        EXPECT_EQ(files(), (Names{"1", "2", "3", "4", "5"}));
        EXPECT_EQ(Server.requests("/n/1"), 1u);
        EXPECT_EQ(Server.requests("/n/2"), 1u);
        EXPECT_EQ(Server.requests("/n/3"), 2u);
    }
    std::string journal() const { return readFile(Folder.file("list.journal")); }
};

TEST_F(BatchResume, ASecondRunHasNothingToDo) {
    writeList(5);
    ASSERT_EQ(batch({"list"}).Status, 0);
    const Outcome outcome = batch({"list"});
    EXPECT_EQ(outcome.Status, 0);
    EXPECT_EQ(count(outcome, "skipped"), 5u);
    EXPECT_EQ(Server.allRequests(), 5u);
    EXPECT_EQ(results(outcome).at(0)["status"], 200);
    EXPECT_EQ(results(outcome).at(0)["bytes"], BatchServer::contentOf("/n/1").size());
    EXPECT_EQ(outcome.Err.find("netrove: note: 0 done, 5 done before; "), 0u) << outcome.Err;
}

TEST_F(BatchResume, AKilledRunGoesOnWhereItStopped) {
    {
        Program program = stoppedAtThree();
        Server.waitForRequest("/n/3");
        program.signal(SIGKILL);
        EXPECT_EQ(program.wait().Status, -1);
    }
    EXPECT_EQ(files(), (Names{"1", "2"})) << "what the killed run had begun has no name";
    expectTheRest();
}

TEST_F(BatchResume, AnInterruptedRunGoesOnWhereItStopped) {
    std::size_t runs = 0;
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        Program program = stoppedAtThree();
        Server.waitForRequest("/n/3", ++runs);
        program.signal(number);
        const Outcome outcome = program.wait();
        EXPECT_EQ(outcome.Status, 128 + number) << outcome.Err;
        EXPECT_EQ(count(outcome, "done") + count(outcome, "skipped"), 2u);
        EXPECT_EQ(testsupport::lastLine(outcome.Err), "netrove: NETROVE:cli:Interrupted: interrupted");
        EXPECT_NE(outcome.Err.find(", 3 left"), outcome.Err.npos) << outcome.Err;
        EXPECT_EQ(files(), (Names{"1", "2"}));
    }
    Server.release("/n/3");
    EXPECT_EQ(batch({"list"}).Status, 0);
    expectFiles(5);
}

TEST_F(BatchResume, EveryJobIsInterrupted) {
    writeList(6);
    for (const char* path : {"/n/1", "/n/2", "/n/3"}) {
        Server.hold(path);
    }
    Program program({"batch", "list", "-j", "3"}, around());
    for (const char* path : {"/n/1", "/n/2", "/n/3"}) {
        Server.waitForRequest(path);
    }
    program.signal(SIGINT);
    EXPECT_EQ(program.wait().Status, 130);
    EXPECT_EQ(files(), Names{});
    EXPECT_EQ(Server.allRequests(), 3u);
}

TEST_F(BatchResume, ALineThatWasNotWrittenToItsEndDoesNotCount) {
    writeList(3);
    ASSERT_EQ(batch({"list", "-j", "1"}).Status, 0);
    const std::string whole = journal();
    const std::size_t last = whole.rfind('\n', whole.size() - 2) + 1;
    for (const std::size_t length : {whole.size() - 1, last + 1, last + 30}) {
        writeFile(Folder.file("list.journal"), whole.substr(0, length));
        const Outcome outcome = batch({"list"});
        EXPECT_EQ(outcome.Status, 0) << outcome.Err << outcome.Out;
        // The file got its name before that line was to be written, and the line before knows it.
        EXPECT_EQ(count(outcome, "skipped"), 3u);
    }
    writeFile(Folder.file("list.journal"), whole.substr(0, last) + std::string("{\"half"));
    std::filesystem::remove(Folder.file("3"));
    const Outcome outcome = batch({"list"});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(count(outcome, "done"), 1u);
    EXPECT_EQ(journal().find("{\"half"), std::string::npos);
}

// As a power cut could leave it where a file system had the name before the content.
TEST_F(BatchResume, AFileWithoutItsContentIsNotDone) {
    writeList(1);
    ASSERT_EQ(batch({"list"}).Status, 0);
    const std::string whole = journal();
    writeFile(Folder.file("list.journal"), whole.substr(0, whole.rfind('\n', whole.size() - 2) + 1));
    std::filesystem::resize_file(Folder.file("1"), 0);
    const Outcome refused = batch({"list"});
    EXPECT_EQ(refused.Status, 23) << refused.Out;
    EXPECT_EQ(results(refused).at(0)["identifier"], "NETROVE:cli:FileExists");
    EXPECT_EQ(batch({"list", "--force"}).Status, 0);
    expectFiles(1);
}

TEST_F(BatchResume, ADamagedLineOfTheJournalIsToldOfAndTheRestCounts) {
    writeList(3);
    ASSERT_EQ(batch({"list"}).Status, 0);
    writeFile(Folder.file("list.journal"),
              journal() + R"({"key":"=3","line":"0","state":"started","temporary":"#zz","device":1,"inode":1})" + "\n");
    const Outcome outcome = batch({"list"});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(count(outcome, "skipped"), 3u);
    EXPECT_EQ(outcome.Err.find("netrove: note: 1 line of the journal cannot be read and is ignored\n"), 0u)
        << outcome.Err;
}

TEST_F(BatchResume, AChangedLineIsDoneAgain) {
    writeList(2);
    ASSERT_EQ(batch({"list"}).Status, 0);
    writeFile(Folder.file("list"), Server.url("/n/1") + " 1\n" + Server.url("/n/2?new") + " 2\n");
    const Outcome outcome = batch({"list", "--force"});
    EXPECT_EQ(outcome.Status, 0);
    EXPECT_EQ(count(outcome, "skipped"), 1u);
    EXPECT_EQ(readFile(Folder.file("2")), BatchServer::contentOf("/n/2?new"));
}

TEST_F(BatchResume, AFileThatIsGoneIsFetchedAgain) {
    writeList(2);
    ASSERT_EQ(batch({"list"}).Status, 0);
    std::filesystem::remove(Folder.file("2"));
    EXPECT_EQ(batch({"list"}).Status, 0);
    EXPECT_EQ(Server.requests("/n/1"), 1u);
    EXPECT_EQ(Server.requests("/n/2"), 2u);
    expectFiles(2);
}

TEST_F(BatchResume, ALineThatFailedIsDoneAgain) {
    Server.answer("/n/1", {{404, {}, ""}, {200, {}, "at last"}});
    writeList(1);
    EXPECT_EQ(batch({"list"}).Status, 22);
    EXPECT_EQ(batch({"list"}).Status, 0);
    EXPECT_EQ(readFile(Folder.file("1")), "at last");
}

TEST_F(BatchResume, RequestsWithoutAFileAreMadeOnceEach) {
    const std::string line = "{\"url\":\"" + Server.url("/ping") + "\",\"method\":\"POST\",\"target\":null}\n";
    writeFile(Folder.file("list"), line + line);
    ASSERT_EQ(batch({"list"}).Status, 0);
    EXPECT_EQ(Server.requests("/ping"), 2u);
    writeFile(Folder.file("list"), line + line + line);
    const Outcome outcome = batch({"list"});
    EXPECT_EQ(count(outcome, "skipped"), 2u);
    EXPECT_EQ(Server.requests("/ping"), 3u);
}

TEST_F(BatchResume, WithoutAJournalNothingIsRemembered) {
    writeList(1);
    ASSERT_EQ(batch({"list", "--no-journal"}).Status, 0);
    EXPECT_FALSE(std::filesystem::exists(Folder.file("list.journal")));
    EXPECT_EQ(batch({"list", "--no-journal", "--force"}).Status, 0);
    EXPECT_EQ(Server.requests("/n/1"), 2u);
}

TEST_F(BatchResume, TwoRunsDoNotShareAJournal) {
    Program program = stoppedAtThree();
    Server.waitForRequest("/n/3");
    const Outcome second = batch({"list"});
    EXPECT_EQ(second.Status, 23);
    EXPECT_EQ(second.Err, "netrove: NETROVE:cli:JournalInUse: another run is using list.journal\n");
}

TEST_F(BatchResume, AFileThatIsNoJournalStaysAsItIs) {
    writeList(1);
    for (const std::string text : {"important\n", "important", "two\nlines", "{\"journal\":\"something else\"}\n"}) {
        writeFile(Folder.file("list.other"), text);
        const Outcome outcome = batch({"list", "--journal", "list.other"});
        EXPECT_EQ(outcome.Status, 23) << text;
        EXPECT_EQ(readFile(Folder.file("list.other")), text);
    }
    EXPECT_EQ(Server.allRequests(), 0u);
}

} // namespace
