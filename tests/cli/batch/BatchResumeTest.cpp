// A run that goes on where another one stopped, with the help of its journal. What a journal's lines mean:
// BatchJournalTest.cpp. A run that was killed: BatchDiskTest.cpp.
#include "tests/cli/batch/BatchFixture.h"

#include <csignal>

namespace {

using namespace batchtest;

class BatchResume : public BatchFixture {
protected:
    // A run that has done lines 1 and 2 and is in the middle of line 3.
    Program stoppedAtThree() {
        writeList(5);
        Server.hold("/n/3");
        return Program({"batch", "list", "-j", "1"}, here());
    }
    // Runs it again, and expects so many lines to be skipped and done.
    Outcome again(std::ptrdiff_t skipped, std::ptrdiff_t done, const Words& more = {}) const {
        const Outcome outcome = batch(Words{"list"} + more);
        EXPECT_EQ(outcome.Status, 0) << outcome.Err << outcome.Out;
        EXPECT_EQ(count(outcome, "skipped"), skipped);
        EXPECT_EQ(count(outcome, "done"), done);
        return outcome;
    }
};

TEST_F(BatchResume, ASecondRunHasNothingToDo) {
    writeList(5);
    again(0, 5);
    const Outcome outcome = again(5, 0);
    EXPECT_EQ(Server.allRequests(), 5u);
    expectMembers(results(outcome).at(0), {{"status", 200}, {"bytes", BatchServer::contentOf("/n/1").size()}});
    EXPECT_THAT(outcome.Err, StartsWith("netrove: note: 0 done, 5 done before; "));
}

TEST_F(BatchResume, AnInterruptedRunGoesOnWhereItStopped) {
    std::size_t runs = 0;
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        Program program = stoppedAtThree();
        Server.waitForRequest("/n/3", ++runs);
        program.signal(number);
        const Outcome outcome = program.wait();
        EXPECT_THAT(outcome, ended(128 + number, _, HasSubstr(", 3 left")));
        EXPECT_EQ(count(outcome, "done") + count(outcome, "skipped"), 2);
        EXPECT_EQ(lastLine(outcome.Err), "netrove: NETROVE:cli:Interrupted: interrupted");
        EXPECT_EQ(files(), (Words{"1", "2"}));
    }
    Server.release("/n/3");
    again(2, 3);
    expectFiles(5);
}

TEST_F(BatchResume, AnInterruptReachesEveryJob) {
    writeList(6);
    const Words paths = {"/n/1", "/n/2", "/n/3"};
    std::ranges::for_each(paths, [this](const std::string& path) { Server.hold(path); });
    Program program({"batch", "list", "-j", "3"}, here());
    std::ranges::for_each(paths, [this](const std::string& path) { Server.waitForRequest(path); });
    program.signal(SIGINT);
    EXPECT_EQ(program.wait().Status, 130);
    EXPECT_EQ(files(), Words{});
    EXPECT_EQ(Server.allRequests(), 3u);
}

TEST_F(BatchResume, AFileWithoutItsContentIsNotDone) {
    writeList(3);
    again(0, 3, {"-j", "1"});
    // As a power cut could leave it where a file system had the name before the content.
    const std::string whole = journal();
    writeFile(file("list.journal"), whole.substr(0, whole.rfind('\n', whole.size() - 2) + 1));
    std::filesystem::resize_file(file("3"), 0);
    EXPECT_THAT(batch({"list"}), ended(23, HasSubstr("NETROVE:cli:FileExists")));
    again(2, 1, {"--force"});
    expectFiles(3);
}

TEST_F(BatchResume, ADamagedLineOfTheJournalIsReportedAndTheRestCounts) {
    writeList(3);
    again(0, 3);
    writeFile(file("list.journal"),
              journal() + R"({"key":"=3","line":"0","state":"started","temporary":"#zz","device":1,"inode":1})" + "\n");
    EXPECT_THAT(again(3, 0).Err, StartsWith("netrove: note: 1 line of the journal cannot be read and is ignored\n"));
}

TEST_F(BatchResume, WhatChangedOrFailedOrIsGoneIsDoneAgain) {
    writeList(3);
    again(0, 3);
    Server.answer("/n/2?new", {{404, {}, ""}, {200, {}, "at last"}});
    write(Server.url("/n/1") + " 1\n" + Server.url("/n/2?new") + " 2\n" + Server.url("/n/3") + " 3\n");
    EXPECT_EQ(batch({"list", "--force"}).Status, 22);
    std::filesystem::remove(file("3"));
    again(1, 2, {"--force"});
    EXPECT_EQ(readFile(file("2")), "at last");
    EXPECT_EQ(Server.requests("/n/1"), 1u);
    EXPECT_EQ(Server.requests("/n/3"), 2u);
}

TEST_F(BatchResume, RequestsWithoutAFileAreMadeOnceEach) {
    const std::string line = json("/ping", R"("method":"POST","target":null)");
    write(line + line);
    again(0, 2);
    write(line + line + line);
    again(2, 1);
    EXPECT_EQ(Server.requests("/ping"), 3u);
}

TEST_F(BatchResume, WithoutAJournalNothingIsRemembered) {
    writeList(1);
    again(0, 1, {"--no-journal"});
    EXPECT_EQ(names(), (Words{"1", "list"}));
    again(0, 1, {"--no-journal", "--force"});
}

TEST_F(BatchResume, TwoRunsDoNotShareAJournalAndNoOtherFileBecomesOne) {
    Program program = stoppedAtThree();
    Server.waitForRequest("/n/3");
    EXPECT_THAT(batch({"list"}),
                ended(23, "", "netrove: NETROVE:cli:JournalInUse: another run is using list.journal\n"));
    writeFile(file("list.other"), "important\n");
    EXPECT_EQ(batch({"list", "--journal", "list.other"}).Status, 23);
    EXPECT_EQ(readFile(file("list.other")), "important\n");
    EXPECT_EQ(Server.allRequests(), 3u);
}

// Long content that breaks off is kept for the next attempt, as long as there is a line that makes one.
TEST_F(BatchResume, LongContentGoesOnAndIsRemovedOnceNobodyWantsIt) {
    const std::string content(std::size_t{3} << 20, 'x');
    const std::map<std::string, std::string> tag = {{"ETag", "\"1\""}};
    Server.answer("/a", {{200, tag, content, true}});
    Server.answer("/b", {{200, tag, content, true}});
    write(Server.url("/a") + " a\n" + Server.url("/b") + " b\n");
    EXPECT_EQ(batch({"list"}).Status, 18);
    EXPECT_EQ(files(), (Words{"a.part", "a.part.json", "b.part", "b.part.json"}));

    write(Server.url("/a") + " a\n");
    const std::string place = std::to_string(content.size());
    Server.answer("/a", {{206, {{"ETag", "\"1\""}, {"Content-Range", "bytes " + place + "-" + place + "/*"}}, "y"}});
    const Outcome outcome = batch({"list"});
    EXPECT_EQ(Server.seen("/a").at(1).Fields.at("range"), "bytes=" + place + "-");
    EXPECT_TRUE(readFile(file("a")) == content + "y");
    EXPECT_THAT(outcome.Err, HasSubstr("removed what had come of a file that is no longer in the list"));
    EXPECT_EQ(files(), Words{"a"});
}

} // namespace
