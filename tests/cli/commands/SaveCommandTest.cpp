#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace {

using namespace testsupport;

Script answer(const std::string& text) {
    return {step::expectHead(), step::send(text), step::awaitPeerEnd()};
}

std::vector<std::string> namesIn(const TemporaryFolder& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

class SaveCommand : public testing::Test {
protected:
    TemporaryFolder Folder;

    Outcome save(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "save");
        Surroundings around;
        around.Folder = Folder.path();
        return run(std::move(arguments), around);
    }
    using Names = std::vector<std::string>;
};

TEST_F(SaveCommand, TheFileHoldsTheContent) {
    const std::string content = patternedBytes(3'000'000);
    ScriptedServer server(answer(response(content)));
    const Outcome outcome = save({server.url(), "file.bin"});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(outcome.Out, "");
    EXPECT_EQ(outcome.Err, "");
    EXPECT_EQ(difference(readFile(Folder.file("file.bin")), content), "");
    EXPECT_EQ(namesIn(Folder), Names{"file.bin"});
}

TEST_F(SaveCommand, ThroughAConsumerItHoldsTheSame) {
    const std::string content = patternedBytes(300'000);
    ScriptedServer server(answer(response(content)));
    const Outcome outcome = save({"--consumer", server.url(), "file.bin"});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(difference(readFile(Folder.file("file.bin")), content), "");
}

TEST_F(SaveCommand, TheNameComesFromTheUrl) {
    ScriptedServer server(std::vector<Script>{answer(response("a")), answer(response("b")), answer(response("c"))});
    EXPECT_EQ(save({server.url("/x/re%20port.txt?v=1")}).Status, 0);
    EXPECT_EQ(save({server.url("/%2e%2e%2fescape")}).Status, 0);
    EXPECT_EQ(save({server.url("/other"), Folder.path()}).Status, 0);
    EXPECT_EQ(namesIn(Folder), (Names{"_escape", "other", "re port.txt"}));
}

TEST_F(SaveCommand, AnEmptyContentMakesAnEmptyFile) {
    ScriptedServer server(answer(response("")));
    EXPECT_EQ(save({server.url(), "empty"}).Status, 0);
    EXPECT_EQ(readFile(Folder.file("empty")), "");
}

TEST_F(SaveCommand, AFileThatIsThereStaysUnlessForced) {
    writeFile(Folder.file("old"), "old");
    ScriptedServer server(answer(response("new")));
    const Outcome refused = save({server.url(), "old"});
    EXPECT_EQ(refused.Status, 23);
    EXPECT_EQ(refused.Err, "netrove: NETROVE:cli:FileExists: old exists; use --force to replace it\n");
    EXPECT_EQ(server.connectionCount(), 0u) << "a request was made in vain";
    EXPECT_EQ(readFile(Folder.file("old")), "old");

    EXPECT_EQ(save({"--force", server.url(), "old"}).Status, 0);
    EXPECT_EQ(readFile(Folder.file("old")), "new");
    EXPECT_EQ(namesIn(Folder), Names{"old"});
}

TEST_F(SaveCommand, APipeIsNotReplacedEvenWhereForced) {
    ASSERT_EQ(mkfifo(Folder.file("pipe").c_str(), 0600), 0);
    std::filesystem::create_symlink("pipe", Folder.file("link"));
    ScriptedServer server(answer(response("new")));
    for (const std::string target : {"pipe", "link"}) {
        const Outcome outcome = save({"--force", server.url(), target});
        EXPECT_EQ(outcome.Status, 23) << target;
        EXPECT_EQ(outcome.Err, "netrove: NETROVE:cli:FileNotWritten: " + target + ": not a regular file\n");
    }
    EXPECT_TRUE(std::filesystem::is_fifo(Folder.file("pipe")));
    EXPECT_EQ(server.connectionCount(), 0u) << "a request was made in vain";
}

TEST_F(SaveCommand, AMissingFolderIsNamed) {
    ScriptedServer server(answer(response("x")));
    const Outcome outcome = save({server.url(), "no/such/file"});
    EXPECT_EQ(outcome.Status, 23);
    EXPECT_EQ(
        outcome.Err,
        "netrove: NETROVE:cli:FileNotWritten: no/such/file: No such file or directory. Hint: create the folder first.\n");
}

TEST_F(SaveCommand, ContentCutShortIsAFailureAndLeavesNothing) {
    for (const bool consumer : {false, true}) {
        ScriptedServer server(
            {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nonly this"), step::close()});
        std::vector<std::string> arguments = {server.url(), "file"};
        if (consumer) {
            arguments.push_back("--consumer");
        }
        const Outcome outcome = save(arguments);
        EXPECT_EQ(outcome.Status, 18) << outcome.Err;
        EXPECT_EQ(outcome.Err.find("netrove: VANTIK:webservices:PartialFileWarning: "), 0u) << outcome.Err;
        EXPECT_EQ(namesIn(Folder), Names{});
    }
}

TEST_F(SaveCommand, AnErrorPageCutShortIsAFailureToo) {
    ScriptedServer server(
        {step::expectHead(), step::send("HTTP/1.1 500 Oh\r\nContent-Length: 100\r\n\r\nonly this"), step::close()});
    const Outcome outcome = save({server.url(), "file"});
    EXPECT_EQ(outcome.Status, 18) << outcome.Err;
    EXPECT_EQ(lastLine(outcome.Err).find("netrove: VANTIK:webservices:PartialFileWarning: "), 0u) << outcome.Err;
    EXPECT_NE(outcome.Err.find("9 of 100 bytes"), std::string::npos) << outcome.Err;
    EXPECT_EQ(namesIn(Folder), Names{});
}

TEST_F(SaveCommand, ABrokenChunkIsAFailureAndLeavesTheOldFile) {
    writeFile(Folder.file("file"), "old");
    ScriptedServer server({step::expectHead(),
                           step::send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\nzz\r\n"),
                           step::close()});
    const Outcome outcome = save({"--force", server.url(), "file"});
    EXPECT_NE(outcome.Status, 0);
    EXPECT_EQ(readFile(Folder.file("file")), "old");
    EXPECT_EQ(namesIn(Folder), Names{"file"});
}

TEST_F(SaveCommand, AStatusUnderFailLeavesNothing) {
    ScriptedServer server(answer(response("sorry", {}, "404 Not Found")));
    EXPECT_EQ(save({"-f", server.url(), "file"}).Status, 22);
    EXPECT_EQ(namesIn(Folder), Names{});
}

TEST_F(SaveCommand, AStatusWithoutFailIsSavedAndSaid) {
    ScriptedServer server(answer(response("sorry", {}, "404 Not Found")));
    const Outcome outcome = save({server.url(), "file"});
    EXPECT_EQ(outcome.Status, 0);
    EXPECT_EQ(outcome.Err, "netrove: note: the server answered 404 Not Found; file holds that response\n");
    EXPECT_EQ(readFile(Folder.file("file")), "sorry");
}

TEST_F(SaveCommand, ProgressIsShownWhereAsked) {
    ScriptedServer server(answer(response(std::string(2048, 'x'))));
    const Outcome outcome = save({"--progress", server.url(), "file"});
    EXPECT_EQ(outcome.Status, 0);
    EXPECT_EQ(lastLine(outcome.Err).find("received: [########################] 100%  2.0 KiB of 2.0 KiB"), 0u)
        << outcome.Err;
}

TEST_F(SaveCommand, AnInterruptLeavesNothing) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        ScriptedServer server(
            {step::expectHead(),
             step::send("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n" + patternedBytes(50'000)),
             step::signal("half"), step::awaitPeerEnd()});
        Surroundings around;
        around.Folder = Folder.path();
        Program program({"save", server.url(), "file"}, around);
        server.waitFor("half");
        program.signal(number);
        const Outcome outcome = program.wait();
        EXPECT_EQ(outcome.Status, 128 + number) << outcome.Err;
        EXPECT_EQ(outcome.Err, "netrove: NETROVE:cli:Interrupted: interrupted\n");
        EXPECT_EQ(namesIn(Folder), Names{});
        EXPECT_TRUE(server.waitUntilDone().PeerEnded);
    }
}

TEST_F(SaveCommand, AHangUpThatIsIgnoredStaysIgnored) {
    ScriptedServer server({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 11\r\n\r\nfirst"),
                           step::signal("half"), step::await("hung up"), step::send(", rest"), step::awaitPeerEnd()});
    Surroundings around;
    around.Folder = Folder.path();
    around.Executable = "/usr/bin/nohup";
    Program program({programFile(), "save", server.url(), "file"}, around);
    server.waitFor("half");
    program.signal(SIGHUP);
    server.raise("hung up");
    const Outcome outcome = program.wait();
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(readFile(Folder.file("file")), "first, rest");
}

} // namespace
