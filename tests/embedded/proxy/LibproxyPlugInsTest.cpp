#include "embedded/proxy/LibproxyPlugIns.h"

#include "tests/support/process/TemporaryFolder.h"

#include <gtest/gtest.h>

using vantik::detail::readsMoreThanEnvironment;

TEST(LibproxyPlugIns, OnlyThoseForSettingsCount) {
    const testsupport::TemporaryFolder folder;
    const std::string none = folder.file("none");
    testsupport::writeFile(folder.file("pacrunner_some.so"), "");
    EXPECT_FALSE(readsMoreThanEnvironment(folder.path(), none));
    EXPECT_TRUE(readsMoreThanEnvironment(folder.path(), folder.file("pacrunner_some.so"))) << "a file of settings";
    testsupport::writeFile(folder.file("config_desktop.so"), "");
    EXPECT_TRUE(readsMoreThanEnvironment(folder.path(), none));
}

TEST(LibproxyPlugIns, FolderThatIsMissingProvesNothing) {
    EXPECT_TRUE(readsMoreThanEnvironment("/no/such/folder", "/no/such/file"));
}
