#include "cli/system/BodySource.h"

#include "tests/support/host/HostFixture.h"
#include "tests/support/process/TemporaryFolder.h"

#include <fcntl.h>
#include <filesystem>
#include <string>
#include <unistd.h>

namespace {

using netrove::cli::BodySource;
using testsupport::failureOf;
using testsupport::writeFile;

std::string readAll(const vantik::ContentProvider& provider, std::uint64_t wanted = 100) {
    std::string content;
    for (;;) {
        const vantik::Array piece = provider.read(wanted);
        if (piece.empty()) {
            return content;
        }
        EXPECT_LE(piece.size(), wanted);
        content += piece.byteText();
    }
}

class BodySourceTest : public testing::Test {
protected:
    vantik::Host Host; // array values belong to a host
    const testsupport::TemporaryFolder Folder;

    std::string file(const std::string& content) const {
        writeFile(Folder.file("body"), content);
        return Folder.file("body");
    }
};

TEST_F(BodySourceTest, ReadsAFileInPiecesAndAgainForEachRequest) {
    BodySource source(file("0123456789"), std::nullopt);
    EXPECT_EQ(source.length(), 10u);
    std::uint64_t given = 0;
    source.onRead([&](std::uint64_t count) { given = count; });
    const auto provider = source.provider();
    for (int request = 0; request < 2; ++request) {
        source.beginRequest();
        provider.rewind();
        EXPECT_EQ(readAll(provider, 3), "0123456789");
        EXPECT_EQ(given, 10u);
    }
    EXPECT_EQ(source.failure(), std::nullopt);
}

TEST_F(BodySourceTest, RefusesARewindWithinARequest) {
    BodySource source(file("content"), std::nullopt);
    const auto provider = source.provider();
    provider.rewind();
    provider.read(3);
    EXPECT_EQ(failureOf(provider.rewind).identifier(), "NETROVE:cli:ContentNotRewound");
    ASSERT_TRUE(source.failure());
    EXPECT_EQ(source.failure()->identifier(), "NETROVE:cli:ContentNotRewound");
}

TEST_F(BodySourceTest, KeepsAPromisedLengthWhateverBecomesOfTheFile) {
    const std::string name = file("0123456789");
    BodySource longer(name, std::nullopt);
    longer.promiseLength();
    BodySource shorter(name, std::nullopt);
    shorter.promiseLength();
    writeFile(name, "0123456789 and more");
    EXPECT_EQ(readAll(longer.provider()), "0123456789");
    std::filesystem::resize_file(name, 4);
    EXPECT_EQ(failureOf([&] { readAll(shorter.provider()); }).identifier(), "NETROVE:cli:ContentChanged");
}

TEST_F(BodySourceTest, APipeHasNoLengthIsReadOnceAndGivenUpWhenTheTimeIsOver) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const std::string name = "/dev/fd/" + std::to_string(ends[0]);
    BodySource silent(name, netrove::cli::Clock::now());
    const auto provider = silent.provider();
    EXPECT_THROW(provider.read(10), vantik::Interrupted);
    ASSERT_EQ(write(ends[1], "piped", 5), 5);
    close(ends[1]);
    BodySource source(name, std::nullopt);
    EXPECT_EQ(source.length(), std::nullopt);
    EXPECT_EQ(readAll(source.provider()), "piped");
    EXPECT_EQ(failureOf([&] { source.beginRequest(); }).identifier(), "NETROVE:cli:ContentNotRewound");
    close(ends[0]);
}

TEST_F(BodySourceTest, RefusesWhatCannotBeRead) {
    for (const std::string& name : {Folder.file("missing"), Folder.path()}) {
        EXPECT_EQ(failureOf([&] { BodySource source(name, std::nullopt); }).identifier(), "NETROVE:cli:FileNotRead");
    }
}

TEST_F(BodySourceTest, ReadsAWholeFileAsText) {
    EXPECT_EQ(netrove::cli::readWhole(file("all of it")), "all of it");
    EXPECT_EQ(netrove::cli::readWhole(file("")), "");
}

} // namespace
