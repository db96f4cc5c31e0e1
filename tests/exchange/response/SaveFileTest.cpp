// Content saved to a file.
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <sys/resource.h>

namespace {

using namespace testsupport;
using vantik::Object;

// No file of this process grows beyond `bytes` while it lives: writing fails, as on a full disk.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        getrlimit(RLIMIT_FSIZE, &Before);
        const rlimit now{bytes, Before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &now);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &Before);
        std::signal(SIGXFSZ, Handler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit Before{};
    void (*Handler)(int) = std::signal(SIGXFSZ, SIG_IGN);
};

class SaveFile : public HostFixture {
protected:
    TemporaryFolder Folder;
};

TEST_F(SaveFile, HoldsExactlyTheContent) {
    for (const std::size_t size : {0U, 1U, 16384U, 100000U}) {
        const std::string body = patternedBytes(size);
        ScriptedServer& server = serve({step::expectHead(), step::send(response(body))});
        const Object connection = open(server.url("/"));
        const std::string path = Folder.file("saved-" + std::to_string(size));
        connection.call("copyContentToFile", {path});
        EXPECT_EQ(difference(readFile(path), body), "");
        expectScopeUsable(connection);
    }
}

TEST_F(SaveFile, ReplacesAnExistingFile) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("new"))});
    const std::string path = Folder.file("h\u00f6 \u4e2d.txt");
    writeFile(path, "older and longer");
    const Object connection = open(server.url("/"));
    connection.call("copyContentToFile", {path});
    EXPECT_EQ(readFile(path), "new");
    expectScopeUsable(connection);
}

TEST_F(SaveFile, ReportsProgressUpToTheLength) {
    const std::string body = patternedBytes(300000);
    ScriptedServer& server = serve({step::expectHead(), step::send(response(body))});
    const ScriptedReporter reporter = makeScriptedReporter(host());
    const Object connection = open(server.url("/"));
    connection.set("ProgressReporter", reporter);
    connection.call("copyContentToFile", {Folder.file("saved")});
    ASSERT_FALSE(reporter->Counts.empty());
    EXPECT_TRUE(std::is_sorted(reporter->Counts.begin(), reporter->Counts.end()));
    EXPECT_EQ(reporter->Counts.back(), body.size());
    EXPECT_EQ(std::filesystem::file_size(Folder.file("saved")), body.size());
    expectScopeUsable(connection);
}

TEST_F(SaveFile, GivesAConsumerTheContentToo) {
    const std::string body = patternedBytes(20000);
    ScriptedServer& server = serve({step::expectHead(), step::send(response(body))});
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    const Object connection = open(server.url("/"));
    connection.set("Consumer", consumer);
    connection.call("copyContentToFile", {Folder.file("saved")});
    EXPECT_EQ(difference(readFile(Folder.file("saved")), body), "");
    EXPECT_EQ(difference(consumer->content(), body), "");
    expectScopeUsable(connection);
}

TEST_F(SaveFile, OnAClosedConnectionTheFileIsEmptied) {
    writeFile(Folder.file("saved"), "old");
    const Object connection = makeAdapter();
    connection.call("copyContentToFile", {Folder.file("saved")});
    EXPECT_EQ(readFile(Folder.file("saved")), "");
    expectScopeUsable(connection);
}

TEST_F(SaveFile, FolderIsNoFile) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("x"))});
    const Object connection = open(server.url("/"));
    EXPECT_EQ(describe(failureOf([&] { connection.call("copyContentToFile", {Folder.path()}); })),
              "VANTIK:webservices:InvalidFilename(" + Folder.path() + ")");
    EXPECT_EQ(server.connectionCount(), 0U) << "the file is opened before anything is sent";
    expectScopeUsable(connection);
}

// The stream's state is looked at after the transfer, and before the close.
TEST_F(SaveFile, FullDiskIsFoundAtTheEndOfTheTransfer) {
    const std::string body = patternedBytes(100000);
    ScriptedServer& server = serve({step::expectHead(), step::send(response(body))});
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    const Object connection = open(server.url("/"));
    connection.set("Consumer", consumer);
    EXPECT_EQ(describe(failureOf([&] { connection.call("copyContentToFile", {"/dev/full"}); })),
              "VANTIK:webservices:CopyContentToDataStreamError(Error saving to local data stream., " + server.url("/") +
                  ")");
    EXPECT_EQ(difference(consumer->content(), body), "") << "the consumer has seen everything";
    EXPECT_EQ(consumer->Calls.back(), "close");
    expectScopeUsable(connection);
}

// It fails under the URL and not as a file that cannot be written. The file keeps what fitted, and the same object is
// good for the next save.
TEST_F(SaveFile, WriteThatFailsOnTheWayLeavesWhatHadFitted) {
    const std::string body = patternedBytes(100000);
    ScriptedServer& server =
        serve({step::expectHead(), step::send(response(body)), step::expectHead(), step::send(response(body))});
    const Object connection = open(server.url("/"));
    const std::string path = Folder.file("saved");
    {
        const FileSizeLimit limit(50000);
        EXPECT_EQ(describe(failureOf([&] { connection.call("copyContentToFile", {path}); })),
                  "VANTIK:webservices:CopyContentToDataStreamError(Error saving to local data stream., " +
                      server.url("/") + ")");
    }
    EXPECT_EQ(difference(readFile(path), body.substr(0, 50000)), "");
    connection.call("closeConnection");
    connection.call("openConnection");
    connection.call("copyContentToFile", {path});
    EXPECT_EQ(difference(readFile(path), body), "");
    expectScopeUsable(connection);
}

TEST_F(SaveFile, FailedTransferLeavesWhatHadCome) {
    ScriptedServer& server =
        serve({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\npart"), step::reset()});
    const Object connection = open(server.url("/"));
    EXPECT_EQ(failureOf([&] { connection.call("copyContentToFile", {Folder.file("saved")}); }).identifier(),
              "VANTIK:webservices:ConnectionRefused");
    EXPECT_TRUE(std::filesystem::exists(Folder.file("saved")));
    expectScopeUsable(connection);
}

} // namespace
