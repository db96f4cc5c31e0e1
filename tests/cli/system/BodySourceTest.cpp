#include "cli/system/BodySource.h"

#include "tests/support/host/HostFixture.h"
#include "tests/support/process/TemporaryFolder.h"

#include <netrove/error.h>

#include <fcntl.h>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using netrove::cli::streamedContent;
using testsupport::failureOf;
using testsupport::writeFile;

std::string readAll(const netrove::Body& body, std::size_t wanted = 100) {
    const auto reader = body.open();
    std::vector<std::byte> room(wanted);
    std::string content;
    while (const std::size_t count = reader->read(room)) {
        content.append(reinterpret_cast<const char*>(room.data()), count);
    }
    return content;
}

class BodySourceTest : public testing::Test {
protected:
    const testsupport::TemporaryFolder Folder;

    std::string file(const std::string& content) const {
        writeFile(Folder.file("body"), content);
        return Folder.file("body");
    }
};

TEST_F(BodySourceTest, ReadsAFileInPiecesAndAgainForEachRequest) {
    const netrove::Body body = streamedContent(file("0123456789"), true, std::nullopt);
    EXPECT_EQ(body.length(), 10u);
    EXPECT_TRUE(body.repeatable());
    EXPECT_EQ(readAll(body, 3), "0123456789");
    EXPECT_EQ(readAll(body, 100), "0123456789");
    EXPECT_EQ(streamedContent(file("0123456789"), false, std::nullopt).length(), std::nullopt);
}

TEST_F(BodySourceTest, KeepsAPromisedLengthWhateverBecomesOfTheFile) {
    const std::string name = file("0123456789");
    const netrove::Body body = streamedContent(name, true, std::nullopt);
    writeFile(name, "0123456789 and more");
    EXPECT_EQ(readAll(body), "0123456789");
    std::filesystem::resize_file(name, 4);
    EXPECT_EQ(failureOf([&] { readAll(body); }).identifier(), "NETROVE:cli:ContentChanged");
}

TEST_F(BodySourceTest, APipeHasNoLengthIsReadOnceAndGivenUpWhenTheTimeIsOver) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const std::string name = "/dev/fd/" + std::to_string(ends[0]);
    EXPECT_THROW(readAll(streamedContent(name, true, netrove::cli::Clock::now())), vantik::Interrupted);
    ASSERT_EQ(write(ends[1], "piped", 5), 5);
    close(ends[1]);
    const netrove::Body body = streamedContent(name, true, std::nullopt);
    EXPECT_EQ(body.length(), std::nullopt);
    EXPECT_FALSE(body.repeatable());
    EXPECT_EQ(readAll(body), "piped");
    EXPECT_THROW(body.open(), netrove::Error);
    close(ends[0]);
}

TEST_F(BodySourceTest, RefusesWhatCannotBeRead) {
    for (const std::string& name : {Folder.file("missing"), Folder.path()}) {
        EXPECT_EQ(failureOf([&] { streamedContent(name, true, std::nullopt); }).identifier(),
                  "NETROVE:cli:FileNotRead");
    }
}

TEST_F(BodySourceTest, ReadsAWholeFileAsText) {
    EXPECT_EQ(netrove::cli::readWhole(file("all of it")), "all of it");
    EXPECT_EQ(netrove::cli::readWhole(file("")), "");
}

} // namespace
