#include "cli/system/BodySource.h"

#include "tests/support/process/TemporaryFolder.h"
#include "vantik/Host.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <string>
#include <unistd.h>

namespace {

using netrove::cli::BodySource;
using testsupport::TemporaryFolder;
using testsupport::writeFile;

std::string identifierOf(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const vantik::Failure& failure) {
        return failure.identifier();
    }
    return {};
}

std::string readAll(const vantik::ContentProvider& provider, std::uint64_t wanted) {
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
    TemporaryFolder Folder;

    std::string file(const std::string& content) {
        writeFile(Folder.file("body"), content);
        return Folder.file("body");
    }
};

TEST_F(BodySourceTest, AFileIsGivenInPiecesToItsEnd) {
    BodySource source(file("0123456789"), std::nullopt);
    EXPECT_EQ(source.length(), 10u);
    std::uint64_t given = 0;
    source.onRead([&](std::uint64_t count) { given = count; });
    const auto provider = source.provider();
    provider.rewind();
    EXPECT_EQ(readAll(provider, 3), "0123456789");
    EXPECT_EQ(given, 10u);
    EXPECT_EQ(source.failure(), std::nullopt);
}

TEST_F(BodySourceTest, ASecondRequestReadsTheFileAgain) {
    BodySource source(file("content"), std::nullopt);
    const auto provider = source.provider();
    source.beginRequest();
    provider.rewind();
    EXPECT_EQ(readAll(provider, 100), "content");
    source.beginRequest();
    provider.rewind();
    EXPECT_EQ(readAll(provider, 100), "content");
}

TEST_F(BodySourceTest, ARewindWithinARequestFailsClearly) {
    BodySource source(file("content"), std::nullopt);
    const auto provider = source.provider();
    provider.rewind();
    provider.read(3);
    EXPECT_EQ(identifierOf(provider.rewind), "NETROVE:cli:ContentNotRewound");
    ASSERT_TRUE(source.failure());
    EXPECT_EQ(source.failure()->identifier(), "NETROVE:cli:ContentNotRewound");
}

TEST_F(BodySourceTest, APromisedLengthIsKeptWhateverBecomesOfTheFile) {
    const std::string name = file("0123456789");
    BodySource longer(name, std::nullopt);
    longer.promiseLength();
    BodySource shorter(name, std::nullopt);
    shorter.promiseLength();
    writeFile(name, "0123456789 and more");
    EXPECT_EQ(readAll(longer.provider(), 100), "0123456789");
    std::filesystem::resize_file(name, 4);
    EXPECT_EQ(identifierOf([&] { readAll(shorter.provider(), 100); }), "NETROVE:cli:ContentChanged");
}

TEST_F(BodySourceTest, APipeHasNoLengthAndCannotBeReadTwice) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    ASSERT_EQ(write(ends[1], "piped", 5), 5);
    close(ends[1]);
    BodySource source("/dev/fd/" + std::to_string(ends[0]), std::nullopt);
    EXPECT_EQ(source.length(), std::nullopt);
    EXPECT_EQ(readAll(source.provider(), 100), "piped");
    EXPECT_EQ(identifierOf([&] { source.beginRequest(); }), "NETROVE:cli:ContentNotRewound");
    close(ends[0]);
}

TEST_F(BodySourceTest, ASilentPipeIsGivenUpWhenTheTimeIsOver) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    BodySource source("/dev/fd/" + std::to_string(ends[0]), netrove::cli::Clock::now());
    const auto provider = source.provider();
    EXPECT_THROW(provider.read(10), vantik::Interrupted);
    close(ends[0]);
    close(ends[1]);
}

TEST_F(BodySourceTest, WhatCannotBeReadIsNamed) {
    EXPECT_EQ(identifierOf([&] { BodySource source(Folder.file("missing"), std::nullopt); }),
              "NETROVE:cli:FileNotRead");
    EXPECT_EQ(identifierOf([&] { BodySource source(Folder.path(), std::nullopt); }), "NETROVE:cli:FileNotRead");
}

TEST_F(BodySourceTest, AWholeFileComesAsText) {
    EXPECT_EQ(netrove::cli::readWhole(file("all of it")), "all of it");
    EXPECT_EQ(netrove::cli::readWhole(file("")), "");
}

} // namespace
