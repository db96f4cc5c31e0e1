#include "cli/system/RealNames.h"

#include "tests/support/process/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {

using netrove::cli::RealNames;

TEST(RealNames, WhatIsNotThereIsTakenAsItIsWritten) {
    const std::string here = std::filesystem::current_path().string();
    RealNames names;
    EXPECT_EQ(names.of("not-there"), here + "/not-there");
    EXPECT_EQ(names.of("not/there/../either"), here + "/not/either");
    EXPECT_EQ(names.of("not//there/"), here + "/not/there/");
    EXPECT_EQ(names.of("/"), "/");
    EXPECT_EQ(names.of("/not-there"), "/not-there");
    EXPECT_EQ(names.of(""), here);
    EXPECT_EQ(names.of(".."), std::filesystem::path(here).parent_path().string());
}

TEST(RealNames, ALinkAtTheEndIsFollowedWhereAsked) {
    const testsupport::TemporaryFolder folder;
    testsupport::writeFile(folder.file("file"), "");
    std::filesystem::create_symlink("file", folder.file("link"));
    RealNames names;
    EXPECT_EQ(names.of(folder.file("link")), names.of(folder.file("file")));
    EXPECT_NE(names.ofEntry(folder.file("link")), names.ofEntry(folder.file("file")));
}

TEST(RealNames, WhatCannotBeAskedForHasAName) {
    const testsupport::TemporaryFolder folder;
    const std::string loop = (std::filesystem::canonical(folder.path()) / "loop").string();
    std::filesystem::create_symlink("loop", loop);
    RealNames names;
    EXPECT_EQ(names.of(loop), loop);
    EXPECT_EQ(names.of(loop + "/a"), loop + "/a");
    const std::string tooLong(5000, 'x');
    EXPECT_EQ(names.of("/" + tooLong + "/a"), "/" + tooLong + "/a");
    EXPECT_EQ(names.of("/\xFF/a"), "/\xFF/a");
}

} // namespace
