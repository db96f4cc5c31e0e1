// What is asked of the disk, and when: the system's own operation is replaced for this program.
#include "cli/system/OutputFile.h"
#include "tests/cli/system/DiskCalls.h"
#include "tests/support/process/TemporaryFolder.h"
#include "vantik/Failure.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using netrove::cli::OutputFile;
using testsupport::readFile;
using testsupport::writeFile;

class OutputFileDisk : public testing::Test {
protected:
    testsupport::TemporaryFolder Folder;
    std::string Target = Folder.file("page.html");

    const diskcalls::Scope Calls;

    void save(const std::string& content) const {
        OutputFile file(Target, true);
        ASSERT_EQ(write(file.descriptor(), content.data(), content.size()), static_cast<ssize_t>(content.size()));
        file.keep();
    }
    std::size_t entries() const {
        const auto range = std::filesystem::directory_iterator(Folder.path());
        return static_cast<std::size_t>(std::distance(begin(range), end(range)));
    }
};

TEST_F(OutputFileDisk, HasTheContentBeforeTheFileHasItsName) {
    std::vector<off_t> sizes;
    diskcalls::Sync = [&](int descriptor) {
        struct stat facts {};
        EXPECT_EQ(fstat(descriptor, &facts), 0);
        sizes.push_back(facts.st_size);
        EXPECT_FALSE(std::filesystem::exists(Target));
        return 0;
    };
    save("content");
    EXPECT_EQ(sizes, std::vector<off_t>{7});
    EXPECT_EQ(readFile(Target), "content");
}

TEST_F(OutputFileDisk, ThatFailsLeavesTheOldFileAndNothingElse) {
    writeFile(Target, "old");
    for (const int error : {EIO, ENOSPC}) {
        diskcalls::Sync = [&](int) { return error; };
        try {
            save("content");
            ADD_FAILURE() << "the failure was not noticed";
        } catch (const vantik::Failure& failure) {
            EXPECT_EQ(failure.identifier(), "NETROVE:cli:FileNotWritten");
        }
        EXPECT_EQ(readFile(Target), "old");
        EXPECT_EQ(entries(), 1u);
    }
}

TEST_F(OutputFileDisk, IsAskedAgainAfterASignalAndNotWhereNobodyCanAskIt) {
    int calls = 0;
    diskcalls::Sync = [&](int) { return ++calls < 3 ? EINTR : EINVAL; };
    save("content");
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(readFile(Target), "content");
}

} // namespace
