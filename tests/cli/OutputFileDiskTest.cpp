// What is asked of the disk, and when: the system's own operation is replaced for this program.
#include "cli/OutputFile.h"

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "vantik/Failure.h"

#include "tests/support/TemporaryFolder.h"

namespace {

std::function<int(int descriptor)> theDisk; // gives an error number; 0: done

} // namespace

extern "C" int fdatasync(int descriptor) {
    if (!theDisk)
        return static_cast<int>(syscall(SYS_fdatasync, descriptor));
    errno = theDisk(descriptor);
    return errno == 0 ? 0 : -1;
}

namespace {

using netrove::cli::OutputFile;
using testsupport::readFile;
using testsupport::writeFile;

class OutputFileDisk : public testing::Test {
protected:
    testsupport::TemporaryFolder Folder;
    std::string Target = Folder.file("page.html");

    ~OutputFileDisk() override { theDisk = nullptr; }
    void save(const std::string& content) const {
        OutputFile file(Target, true);
        writeFile(file.temporaryName(), content); // by name, as the library does
        file.keep();
    }
    std::size_t entries() const {
        const auto range = std::filesystem::directory_iterator(Folder.path());
        return static_cast<std::size_t>(std::distance(begin(range), end(range)));
    }
};

TEST_F(OutputFileDisk, HasTheContentBeforeTheFileHasItsName) {
    std::vector<off_t> sizes;
    theDisk = [&](int descriptor) {
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
        theDisk = [&](int) { return error; };
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
    theDisk = [&](int) { return ++calls < 3 ? EINTR : EINVAL; };
    save("content");
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(readFile(Target), "content");
}

} // namespace
