#include "cli/system/OutputFile.h"

#include "tests/cli/system/DiskCalls.h"
#include "tests/support/process/TemporaryFolder.h"
#include "vantik/Failure.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using netrove::cli::OutputFile;
using testsupport::readFile;
using testsupport::TemporaryFolder;
using testsupport::writeFile;

std::size_t entries(const TemporaryFolder& folder) {
    const auto range = std::filesystem::directory_iterator(folder.path());
    return static_cast<std::size_t>(std::distance(begin(range), end(range)));
}

std::string identifierOf(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const vantik::Failure& failure) {
        return failure.identifier();
    }
    return {};
}

unsigned permissions(const std::string& path) {
    struct stat facts {};
    EXPECT_EQ(stat(path.c_str(), &facts), 0) << path;
    return facts.st_mode & 07777u;
}

unsigned permissions(const OutputFile& file) {
    struct stat facts {};
    EXPECT_EQ(fstat(file.descriptor(), &facts), 0);
    return facts.st_mode & 07777u;
}

void put(const OutputFile& file, const std::string& text) {
    ASSERT_EQ(write(file.descriptor(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

// Whether or not the file system makes files without a name.
class OutputFileRoad : public testing::TestWithParam<bool> {
protected:
    OutputFileRoad() { diskcalls::FilesWithoutNames = GetParam(); }
    bool nameless() const { return GetParam(); }
    const TemporaryFolder folder;

private:
    const diskcalls::Scope Calls;
};

INSTANTIATE_TEST_SUITE_P(Roads, OutputFileRoad, testing::Bool(),
                         [](const auto& info) { return info.param ? "WithoutAName" : "ByATemporaryName"; });

TEST_P(OutputFileRoad, TheNameAppearsWithTheWholeContent) {
    const std::string target = folder.file("page.html");
    {
        OutputFile file(target, false);
        put(file, "content");
        EXPECT_EQ(file.size(), 7u);
        EXPECT_FALSE(std::filesystem::exists(target));
        EXPECT_EQ(std::filesystem::path(file.temporaryName()).parent_path().string(), folder.path());
        file.keep();
    }
    EXPECT_EQ(readFile(target), "content");
    EXPECT_EQ(entries(folder), 1u);
}

TEST_P(OutputFileRoad, WhatIsNotKeptLeavesNothing) {
    {
        OutputFile file(folder.file("page.html"), false);
        put(file, "half");
        EXPECT_EQ(entries(folder), nameless() ? 0u : 1u);
        EXPECT_EQ(std::filesystem::exists(file.temporaryName()), !nameless());
    }
    EXPECT_EQ(entries(folder), 0u);
}

TEST(OutputFile, TemporaryNamesDiffer) {
    const TemporaryFolder folder;
    const OutputFile one(folder.file("x"), false);
    const OutputFile two(folder.file("x"), false);
    EXPECT_NE(one.temporaryName(), two.temporaryName());
}

TEST(OutputFile, AFileThatIsThereIsNotReplacedUnasked) {
    const TemporaryFolder folder;
    writeFile(folder.file("old"), "old");
    EXPECT_EQ(identifierOf([&] { OutputFile file(folder.file("old"), false); }), "NETROVE:cli:FileExists");
    std::filesystem::create_symlink("nowhere", folder.file("dangling"));
    EXPECT_EQ(identifierOf([&] { OutputFile file(folder.file("dangling"), false); }), "NETROVE:cli:FileExists");
    EXPECT_EQ(readFile(folder.file("old")), "old");
}

TEST_P(OutputFileRoad, AFileThatCameMeanwhileIsNotReplacedEither) {
    OutputFile file(folder.file("page"), false);
    put(file, "mine");
    writeFile(folder.file("page"), "theirs");
    EXPECT_EQ(identifierOf([&] { file.keep(); }), "NETROVE:cli:FileExists");
    EXPECT_EQ(readFile(folder.file("page")), "theirs");
}

// Somebody who may write in the folder puts a link where our file is, or will be.
TEST_P(OutputFileRoad, ALinkInThePlaceOfTheTemporaryFileIsNotWrittenThrough) {
    for (const bool replace : {false, true}) {
        writeFile(folder.file("other"), "precious");
        if (replace) {
            writeFile(folder.file("page"), "old");
        }
        {
            OutputFile file(folder.file("page"), replace);
            std::filesystem::remove(file.temporaryName());
            std::filesystem::create_symlink("other", file.temporaryName());
            put(file, "mine");
            if (nameless() && !replace) {
                file.keep();
                EXPECT_EQ(readFile(folder.file("page")), "mine");
            } else {
                EXPECT_EQ(identifierOf([&] { file.keep(); }), "NETROVE:cli:FileNotWritten");
            }
            EXPECT_TRUE(!replace || readFile(folder.file("page")) == "old");
            std::filesystem::remove(file.temporaryName());
        }
        EXPECT_EQ(readFile(folder.file("other")), "precious");
        EXPECT_FALSE(std::filesystem::is_symlink(folder.file("page")));
    }
}

TEST_P(OutputFileRoad, TheFolderIsTheOneOfTheBeginning) {
    std::filesystem::create_directory(folder.file("in"));
    std::filesystem::create_directory(folder.file("other"));
    writeFile(folder.file("other/page"), "precious");
    OutputFile file(folder.file("in/page"), true);
    put(file, "mine");
    std::filesystem::rename(folder.file("in"), folder.file("moved"));
    std::filesystem::create_directory_symlink("other", folder.file("in"));
    file.keep();
    EXPECT_EQ(readFile(folder.file("moved/page")), "mine");
    EXPECT_EQ(readFile(folder.file("other/page")), "precious");
}

TEST(OutputFile, TemporaryNamesAreKnown) {
    const TemporaryFolder folder;
    EXPECT_TRUE(netrove::cli::isTemporaryName(OutputFile(folder.file("x"), false).temporaryName()));
    EXPECT_TRUE(netrove::cli::isTemporaryName(OutputFile(folder.file(std::string(255, 'n')), false).temporaryName()));
    for (const char* other :
         {"", ".part", "x.part", ".x.abc.part", ".x.abcdefghijklmno9.part", "x.abcdefghijklmnop.part",
          ".x.abcdefghijklmnop.par", ".abcdefghijklmnop.part/x", ".xabcdefghijklmnop.part"}) {
        EXPECT_FALSE(netrove::cli::isTemporaryName(other)) << other;
    }
}

TEST_P(OutputFileRoad, ReplacingKeepsThePermissionsAndTheLink) {
    writeFile(folder.file("real"), "old");
    ASSERT_EQ(chmod(folder.file("real").c_str(), 0640), 0);
    std::filesystem::create_symlink("real", folder.file("link"));
    OutputFile file(folder.file("link"), true);
    put(file, "new");
    EXPECT_EQ(readFile(folder.file("real")), "old");
    file.keep();
    EXPECT_TRUE(std::filesystem::is_symlink(folder.file("link")));
    EXPECT_EQ(readFile(folder.file("real")), "new");
    EXPECT_EQ(permissions(folder.file("real")), 0640u);
}

TEST_P(OutputFileRoad, ReplacingMakesNothingThatRunsAsItsOwner) {
    writeFile(folder.file("tool"), "old");
    ASSERT_EQ(chmod(folder.file("tool").c_str(), 06755), 0);
    OutputFile file(folder.file("tool"), true);
    file.keep();
    EXPECT_EQ(permissions(folder.file("tool")), 0755u);
}

TEST_P(OutputFileRoad, NobodyElseReadsWhatReplacesASecretFileMeanwhile) {
    // Not even as far as an open, which lasts longer than the permissions that allowed it; hence one that will be
    // readable again.
    for (const unsigned mode : {0600u, 0644u, 0400u}) {
        writeFile(folder.file("secret"), "old");
        ASSERT_EQ(chmod(folder.file("secret").c_str(), mode), 0);
        OutputFile file(folder.file("secret"), true);
        EXPECT_EQ(permissions(file), 0600u);
        file.keep();
        EXPECT_EQ(permissions(folder.file("secret")), mode);
        std::filesystem::remove(folder.file("secret"));
    }
}

TEST(OutputFile, DevicesAndPipesAreRefused) {
    const TemporaryFolder folder;
    ASSERT_EQ(mkfifo(folder.file("pipe").c_str(), 0600), 0);
    for (const bool replace : {false, true}) {
        EXPECT_EQ(identifierOf([&] { OutputFile file(folder.file("pipe"), replace); }), "NETROVE:cli:FileNotWritten");
        EXPECT_EQ(identifierOf([&] { OutputFile file("/dev/null", replace); }), "NETROVE:cli:FileNotWritten");
    }
    EXPECT_EQ(entries(folder), 1u);
}

TEST(OutputFile, FoldersAndMissingFoldersAreRefused) {
    const TemporaryFolder folder;
    EXPECT_EQ(identifierOf([&] { OutputFile file(folder.path(), true); }), "NETROVE:cli:FileNotWritten");
    EXPECT_EQ(identifierOf([&] { OutputFile file(folder.file("no/such"), false); }), "NETROVE:cli:FileNotWritten");
    EXPECT_EQ(identifierOf([&] { OutputFile file("", false); }), "NETROVE:cli:FileNotWritten");
}

TEST_P(OutputFileRoad, ALongNameStillHasATemporaryOne) {
    OutputFile file(folder.file(std::string(255, 'n')), false);
    file.keep();
    EXPECT_TRUE(std::filesystem::exists(folder.file(std::string(255, 'n'))));
}

TEST(OutputFile, KindsOfTargetsAreTold) {
    const TemporaryFolder folder;
    EXPECT_TRUE(netrove::cli::isSpecialFile("/dev/null"));
    EXPECT_FALSE(netrove::cli::isSpecialFile(folder.path()));
    EXPECT_FALSE(netrove::cli::isSpecialFile(folder.file("missing")));
    EXPECT_TRUE(netrove::cli::isFolder(folder.path()));
    EXPECT_FALSE(netrove::cli::isFolder(folder.file("missing")));
}

} // namespace
