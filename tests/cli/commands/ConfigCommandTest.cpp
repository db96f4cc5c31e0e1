// Where the configuration file is looked for, and what a run says of it.
#include "tests/cli/ProgramFixture.h"

#include <filesystem>

namespace {

using namespace clitest;

TEST(ConfigCommand, ReadsTheFileOfTheUser) {
    const TemporaryFolder folder;
    std::filesystem::create_directories(folder.file(".config/netrove"));
    testsupport::writeFile(folder.file(".config/netrove/config"), "json-errors\n");
    const Words wrong = {"get", "http://a b/"};
    const auto json = ended(3, "", StartsWith("{"));
    const auto text = ended(3, "", StartsWith("netrove: "));
    EXPECT_THAT(run(wrong, {.Environment = {{"HOME", folder.path()}}}), json);
    EXPECT_THAT(run(wrong, {.Environment = {{"XDG_CONFIG_HOME", folder.file(".config")}}}), json);
    EXPECT_THAT(run(wrong, {.Environment = {{"HOME", folder.path()}, {"XDG_CONFIG_HOME", folder.file("none")}}}), text);
    EXPECT_THAT(run(wrong + Words{"--no-config"}, {.Environment = {{"HOME", folder.path()}}}), text);
    EXPECT_THAT(run(wrong), text);
}

TEST(ConfigCommand, WarnsOfSecretsThatOthersCanRead) {
    const TemporaryFolder folder;
    testsupport::writeFile(folder.file("mine"), "user = me:secret\n");
    const auto reading = [&](std::filesystem::perms mode) {
        std::filesystem::permissions(folder.file("mine"), mode);
        return run({"get", "--config", folder.file("mine"), "http://a b/"});
    };
    using std::filesystem::perms;
    const auto warned = StartsWith("netrove: warning: NETROVE:cli:ReadableSecret: " + folder.file("mine") + " ");
    EXPECT_THAT(reading(perms::owner_read | perms::group_read),
                ended(3, "", AllOf(warned, Not(HasSubstr("secret\n")))));
    EXPECT_THAT(reading(perms::owner_read), ended(3, "", StartsWith("netrove: VANTIK:webservices:MalformedURL: ")));
}

} // namespace
