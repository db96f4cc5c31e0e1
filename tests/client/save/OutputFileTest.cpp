#include "tests/client/ErrorOf.h"
#include "tests/client/save/DiskCalls.h"
#include "tests/support/host/HostFixture.h"
#include "tests/support/process/TemporaryFolder.h"

#include <netrove/error.h>
#include <netrove/outputfile.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <span>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using clienttest::errorOf;

namespace fs = std::filesystem;
using netrove::OutputFile;
using testsupport::readFile;
using testsupport::writeFile;

unsigned permissions(const std::string& path) {
    struct stat facts {};
    EXPECT_EQ(stat(path.c_str(), &facts), 0) << path;
    return facts.st_mode & 07777u;
}

void put(OutputFile& file, const std::string& text) {
    file.write(std::as_bytes(std::span(text)));
}
void save(const std::string& target) {
    OutputFile file(target, true);
    put(file, "content");
    file.keep();
}

class OutputFileTest : public testing::Test {
protected:
    std::string path(const std::string& name) const { return Folder.file(name); }
    std::size_t entries() const {
        const auto range = fs::directory_iterator(Folder.path());
        return static_cast<std::size_t>(std::distance(begin(range), end(range)));
    }
    std::string refusalOf(const std::string& target, bool replace) const {
        return errorOf([&] { OutputFile file(target, replace); }).identifier();
    }

    const testsupport::TemporaryFolder Folder;
    const diskcalls::Scope Calls;
};

TEST_F(OutputFileTest, ReplacesNoFileUnlessAsked) {
    writeFile(path("old"), "old");
    fs::create_symlink("nowhere", path("dangling"));
    EXPECT_EQ(refusalOf(path("old"), false), "NETROVE:client:FileExists");
    EXPECT_EQ(refusalOf(path("dangling"), false), "NETROVE:client:FileExists");
    EXPECT_EQ(readFile(path("old")), "old");
}

TEST_F(OutputFileTest, RefusesWhatIsNotARegularFile) {
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    for (const bool replace : {false, true}) {
        for (const std::string& target : {path("pipe"), std::string("/dev/null"), path("no/such"), std::string()}) {
            EXPECT_EQ(refusalOf(target, replace), "NETROVE:client:FileNotWritten") << target;
        }
    }
    EXPECT_EQ(refusalOf(Folder.path(), true), "NETROVE:client:FileNotWritten");
    EXPECT_EQ(entries(), 1u);
    EXPECT_TRUE(netrove::isSpecialFile("/dev/null"));
    EXPECT_FALSE(netrove::isSpecialFile(Folder.path()) || netrove::isSpecialFile(path("missing")));
    EXPECT_TRUE(netrove::isFolder(Folder.path()));
    EXPECT_FALSE(netrove::isFolder(path("missing")));
}

TEST_F(OutputFileTest, TemporaryNamesDifferAndAreKnown) {
    diskcalls::FilesWithoutNames = false;
    const OutputFile one(path("x"), false);
    const OutputFile two(path("x"), false);
    EXPECT_NE(one.temporaryName(), two.temporaryName());
    EXPECT_TRUE(netrove::isTemporaryName(one.temporaryName()));
    EXPECT_TRUE(netrove::isTemporaryName(OutputFile(path(std::string(255, 'n')), false).temporaryName()));
    for (const char* other :
         {"", ".part", "x.part", ".x.abc.part", ".x.abcdefghijklmno9.part", "x.abcdefghijklmnop.part",
          ".x.abcdefghijklmnop.par", ".abcdefghijklmnop.part/x", ".xabcdefghijklmnop.part"}) {
        EXPECT_FALSE(netrove::isTemporaryName(other)) << other;
    }
}

// Whether or not the file system makes files without a name.
class OutputFileOnDisk : public OutputFileTest, public testing::WithParamInterface<bool> {
protected:
    OutputFileOnDisk() { diskcalls::FilesWithoutNames = nameless(); }
    static bool nameless() { return GetParam(); }
};

INSTANTIATE_TEST_SUITE_P(Disks, OutputFileOnDisk, testing::Bool(),
                         [](const auto& info) { return info.param ? "WithoutAName" : "ByATemporaryName"; });

TEST_P(OutputFileOnDisk, AppearsWithTheWholeContent) {
    const std::string name(255, 'n'); // a long name still has a temporary one
    {
        OutputFile file(path(name), false);
        put(file, "content");
        EXPECT_EQ(file.size(), 7u);
        EXPECT_FALSE(fs::exists(path(name)));
        EXPECT_EQ(fs::path(file.temporaryName()).parent_path().string(), nameless() ? "" : Folder.path());
        file.keep();
    }
    EXPECT_EQ(readFile(path(name)), "content");
    EXPECT_EQ(entries(), 1u);
}

TEST_P(OutputFileOnDisk, LeavesNothingWhereItIsNotKept) {
    {
        OutputFile file(path("page"), false);
        put(file, "half");
        EXPECT_EQ(entries(), nameless() ? 0u : 1u);
        EXPECT_EQ(fs::exists(file.temporaryName()), !nameless());
    }
    EXPECT_EQ(entries(), 0u);
}

const std::string kLeftover = ".page.abcdefghijklmnop.part";

TEST_P(OutputFileOnDisk, RemovesWhatKilledProgramsLeftOfTheSameTarget) {
    writeFile(path("page"), "old");
    const std::vector<std::string> others = {".page.part",
                                             ".page.abc.part",
                                             ".pages.abcdefghijklmnop.part",
                                             ".page.x.abcdefghijklmnop.part",
                                             "page.abcdefghijklmnop.part",
                                             ".page.abcdefghijklmno9.part",
                                             "page.part"};
    for (const std::string& name : others) {
        writeFile(path(name), "theirs");
    }
    fs::create_symlink("page", path(".page.bbbbbbbbbbbbbbbb.part"));
    fs::create_directory(path(".page.cccccccccccccccc.part"));
    ASSERT_EQ(mkfifo(path(".page.dddddddddddddddd.part").c_str(), 0600), 0);
    const std::size_t before = entries();
    writeFile(path(kLeftover), "half");
    writeFile(path(".page.ponmlkjihgfedcba.part"), "half");
    ASSERT_EQ(chmod(path(kLeftover).c_str(), 0400), 0);
    OutputFile file(path("page"), true);
    EXPECT_EQ(entries(), before + (nameless() ? 2 : 3)); // nothing by itself
    file.removeLeftovers();
    EXPECT_EQ(entries(), before + (nameless() ? 0 : 1));
    put(file, "new");
    file.keep();
    EXPECT_EQ(entries(), before);
    EXPECT_EQ(readFile(path("page")), "new");
    for (const std::string& name : others) {
        EXPECT_EQ(readFile(path(name)), "theirs") << name;
    }
}

TEST_P(OutputFileOnDisk, LeavesTheFilesOfRunningPrograms) {
    writeFile(path("page"), "old");
    OutputFile first(path("page"), true);
    put(first, "first");
    OutputFile second(path("page"), true);
    second.removeLeftovers();
    first.removeLeftovers();
    put(second, "second");
    second.keep();
    EXPECT_EQ(readFile(path("page")), "second");
    first.keep();
    EXPECT_EQ(readFile(path("page")), "first");
    EXPECT_EQ(entries(), 1u);
}

TEST_P(OutputFileOnDisk, LeavesWhatItCannotLock) {
    writeFile(path("page"), "old");
    writeFile(path(kLeftover), "half");
    diskcalls::Lock = [](int) { return ENOLCK; };
    OutputFile file(path("page"), true);
    file.removeLeftovers();
    put(file, "new");
    file.keep();
    EXPECT_EQ(readFile(path("page")), "new");
    EXPECT_EQ(readFile(path(kLeftover)), "half");
}

// Another program sees the file before it is locked.
TEST_F(OutputFileTest, MakesAnotherFileWhereItIsTakenForALeftover) {
    diskcalls::FilesWithoutNames = false;
    for (const bool removed : {false, true}) {
        int calls = 0;
        std::string taken;
        diskcalls::Lock = [&](int descriptor) {
            if (++calls > 1) {
                return 0;
            }
            taken = fs::read_symlink("/proc/self/fd/" + std::to_string(descriptor)).string();
            EXPECT_TRUE(!removed || fs::remove(taken));
            return removed ? 0 : EWOULDBLOCK;
        };
        OutputFile file(path("page"), true);
        EXPECT_EQ(calls, 2);
        EXPECT_NE(file.temporaryName(), taken);
        EXPECT_TRUE(fs::exists(file.temporaryName()));
        EXPECT_EQ(entries(), removed ? 2u : 1u); // and the page of the first time
        put(file, "content");
        file.keep();
        EXPECT_EQ(readFile(path("page")), "content");
        EXPECT_EQ(entries(), 1u);
    }
}

TEST_P(OutputFileOnDisk, ReplacesNoFileThatCameMeanwhile) {
    OutputFile file(path("page"), false);
    put(file, "mine");
    writeFile(path("page"), "theirs");
    EXPECT_EQ(errorOf([&] { file.keep(); }).identifier(), "NETROVE:client:FileExists");
    EXPECT_EQ(readFile(path("page")), "theirs");
}

// Somebody who may write in the folder puts a link where our file is, or will be.
// Nobody knows the name that a file without one gets for a moment.
TEST_F(OutputFileTest, IsNotWrittenThroughALinkInThePlaceOfTheTemporaryFile) {
    diskcalls::FilesWithoutNames = false;
    for (const bool replace : {false, true}) {
        writeFile(path("other"), "precious");
        if (replace) {
            writeFile(path("page"), "old");
        }
        OutputFile file(path("page"), replace);
        fs::remove(file.temporaryName());
        fs::create_symlink("other", file.temporaryName());
        put(file, "mine");
        const netrove::Error failure = errorOf([&] { file.keep(); });
        EXPECT_EQ(failure.identifier(), "NETROVE:client:FileNotWritten");
        EXPECT_TRUE(std::string_view(failure.what()).ends_with("/page: somebody replaced its temporary file"));
        EXPECT_TRUE(!replace || readFile(path("page")) == "old");
        fs::remove(file.temporaryName());
        EXPECT_EQ(readFile(path("other")), "precious");
        EXPECT_FALSE(fs::is_symlink(path("page")));
    }
}

TEST_P(OutputFileOnDisk, StaysInTheFolderOfTheBeginning) {
    fs::create_directory(path("in"));
    fs::create_directory(path("other"));
    writeFile(path("other/page"), "precious");
    OutputFile file(path("in/page"), true);
    put(file, "mine");
    fs::rename(path("in"), path("moved"));
    fs::create_directory_symlink("other", path("in"));
    file.keep();
    EXPECT_EQ(readFile(path("moved/page")), "mine");
    EXPECT_EQ(readFile(path("other/page")), "precious");
}

TEST_P(OutputFileOnDisk, KeepsALinkThatItIsNamedBy) {
    writeFile(path("real"), "old");
    fs::create_symlink("real", path("link"));
    OutputFile file(path("link"), true);
    put(file, "new");
    EXPECT_EQ(readFile(path("real")), "old");
    file.keep();
    EXPECT_TRUE(fs::is_symlink(path("link")));
    EXPECT_EQ(readFile(path("real")), "new");
}

// Until it is kept nobody else may read it, not even as far as an open, which lasts longer than the permissions that
// allowed it. What would run as its owner does not any more.
TEST_P(OutputFileOnDisk, KeepsThePermissionsOfTheFileThatItReplaces) {
    for (const unsigned mode : {0600u, 0644u, 0640u, 0400u, 06755u}) {
        writeFile(path("secret"), "old");
        ASSERT_EQ(chmod(path("secret").c_str(), mode), 0);
        OutputFile file(path("secret"), true);
        EXPECT_EQ(permissions("/proc/self/fd/" + std::to_string(file.descriptor())), 0600u);
        file.keep();
        EXPECT_EQ(permissions(path("secret")), mode & 0777u);
        fs::remove(path("secret"));
    }
}

TEST_F(OutputFileTest, IsOnTheDiskBeforeItHasItsName) {
    std::vector<std::uintmax_t> sizes;
    diskcalls::Sync = [&](int descriptor) {
        sizes.push_back(fs::file_size("/proc/self/fd/" + std::to_string(descriptor)));
        EXPECT_FALSE(fs::exists(path("page")));
        return 0;
    };
    save(path("page"));
    EXPECT_EQ(sizes, std::vector<std::uintmax_t>{7});
    EXPECT_EQ(readFile(path("page")), "content");
}

TEST_F(OutputFileTest, AsksTheDiskAgainAfterASignalAndNotWhereNobodyCanAskIt) {
    int calls = 0;
    diskcalls::Sync = [&](int) { return ++calls < 3 ? EINTR : EINVAL; };
    save(path("page"));
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(readFile(path("page")), "content");
}

} // namespace
