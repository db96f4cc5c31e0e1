// Content saved to a file.
#include "tests/exchange/ExchangeFixture.h"

#include <csignal>
#include <sys/resource.h>

namespace {

using namespace testsupport;

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

class SaveFile : public ExchangeFixture {
protected:
    const std::string Path = Folder.file("h\u00f6 \u4e2d.txt");
    std::string save(const Object& connection, const std::string& path) {
        return outcomeOf([&] { connection.call("copyContentToFile", {path}); });
    }
    static std::string diskFailure(const ScriptedServer& server) {
        return "VANTIK:webservices:CopyContentToDataStreamError(Error saving to local data stream., " +
               server.url("/") + ")";
    }
};

TEST_F(SaveFile, HoldsExactlyTheContentAndTheConsumerGetsItToo) {
    for (const std::size_t size : {0U, 1U, 16384U, 100000U}) {
        const std::string body = patternedBytes(size);
        const ScriptedConsumer consumer = makeScriptedConsumer(host());
        const Object connection = open(serve(answers(response(body))).url("/"));
        connection.set("Consumer", consumer);
        writeFile(Path, std::string(200000, 'o')); // older and longer
        EXPECT_EQ(save(connection, Path), "nothing");
        EXPECT_EQ(difference(readFile(Path), body), "");
        EXPECT_EQ(difference(consumer->content(), body), "");
    }
}

TEST_F(SaveFile, FolderIsNotAFile) {
    ScriptedServer& server = serve(answers(response("x")));
    EXPECT_EQ(save(open(server.url("/")), Folder.path()), "VANTIK:webservices:InvalidFilename(" + Folder.path() + ")");
    EXPECT_EQ(server.connectionCount(), 0U) << "the file is opened before anything is sent";
}

// The stream's state is looked at after the transfer, and before the close.
TEST_F(SaveFile, FullDiskIsFoundAtTheEndOfTheTransfer) {
    const std::string body = patternedBytes(100000);
    ScriptedServer& server = serve(answers(response(body)));
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    const Object connection = open(server.url("/"));
    connection.set("Consumer", consumer);
    EXPECT_EQ(save(connection, "/dev/full"), diskFailure(server));
    EXPECT_EQ(difference(consumer->content(), body), "") << "the consumer has seen everything";
    EXPECT_EQ(consumer->Calls.back(), "close");
}

// It fails under the URL and not as a file that cannot be written. The file keeps what fitted, and the same object is
// good for the next save.
TEST_F(SaveFile, WriteThatFailsOnTheWayLeavesWhatHadFitted) {
    const std::string body = patternedBytes(100000);
    ScriptedServer& server = serve(answers(response(body)) + answers(response(body)));
    const Object connection = open(server.url("/"));
    {
        const FileSizeLimit limit(50000);
        EXPECT_EQ(save(connection, Path), diskFailure(server));
    }
    EXPECT_EQ(difference(readFile(Path), body.substr(0, 50000)), "");
    connection.call("closeConnection");
    connection.call("openConnection");
    EXPECT_EQ(save(connection, Path), "nothing");
    EXPECT_EQ(difference(readFile(Path), body), "");
}

TEST_F(SaveFile, OfATransferThatFailsKeepsNoMoreThanWhatCame) {
    ScriptedServer& server = serve(answers(kPart) + Script{step::reset()});
    EXPECT_TRUE(save(open(server.url("/")), Path).starts_with("VANTIK:webservices:ConnectionRefused("));
    const std::string kept = readFile(Path);
    EXPECT_EQ(kept, std::string("part").substr(0, kept.size()));
}

} // namespace
