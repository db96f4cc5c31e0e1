#include "cli/system/RealNames.h"

#include "tests/support/process/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {

using netrove::cli::RealNames;

TEST(RealNames, WhatDoesNotExistIsTakenAsItIsWritten) {
    const std::string here = std::filesystem::current_path().string();
    const std::string above = std::filesystem::path(here).parent_path().string();
    const std::string tooLong = "/" + std::string(5000, 'x') + "/a";
    const std::pair<std::string, std::string> rows[] = {{"not-there", here + "/not-there"},
                                                        {"not/there/../either", here + "/not/either"},
                                                        {"", here},
                                                        {"..", above},
                                                        {"not//there/", here + "/not/there/"},
                                                        {"/", "/"},
                                                        {"/not-there", "/not-there"},
                                                        {"/\xFF/a", "/\xFF/a"},
                                                        {tooLong, tooLong}};
    RealNames names;
    for (const auto& [name, real] : rows) {
        EXPECT_EQ(names.of(name), real) << name;
    }
}

TEST(RealNames, ALinkAtTheEndIsFollowedWhereAsked) {
    const testsupport::TemporaryFolder folder;
    testsupport::writeFile(folder.file("file"), "");
    std::filesystem::create_symlink("file", folder.file("link"));
    RealNames names;
    EXPECT_EQ(names.of(folder.file("link")), names.of(folder.file("file")));
    EXPECT_NE(names.ofEntry(folder.file("link")), names.ofEntry(folder.file("file")));
    // A link that leads nowhere has the name of its own.
    const std::string loop = (std::filesystem::canonical(folder.path()) / "loop").string();
    std::filesystem::create_symlink("loop", loop);
    EXPECT_EQ(names.of(loop), loop);
    EXPECT_EQ(names.of(loop + "/a"), loop + "/a");
}

} // namespace
