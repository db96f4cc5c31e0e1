#include "cli/options/parser/ConfigFile.h"

#include "cli/options/parser/OptionParser.h"
#include "tests/support/host/HostFixture.h"
#include "tests/support/process/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <string>
#include <sys/stat.h>
#include <vector>

namespace {

using namespace netrove::cli;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Words = std::vector<std::string>;

class ConfigFile : public testing::Test {
protected:
    ParseResult parse(const std::string& config, const Words& words, mode_t mode = 0600) {
        testsupport::writeFile(Folder.file("config"), config);
        chmod(Folder.file("config").c_str(), mode);
        std::vector<const char*> argv = {"netrove"};
        for (const std::string& word : words) {
            argv.push_back(word.c_str());
        }
        return parseCommandLine(static_cast<int>(argv.size()), argv.data(), Folder.file("config"));
    }

    std::string refusal(const std::string& config, const Words& words = {"get", "http://h/"}) {
        const std::string text = testsupport::failureOf([&] { parse(config, words); }).Text;
        return text.starts_with(Folder.path() + "/") ? text.substr(Folder.path().size() + 1) : text;
    }

    testsupport::TemporaryFolder Folder;
};

TEST_F(ConfigFile, HasOptionsByNameForAllCommandsOrForOne) {
    const std::string config = "# what we always want\n"
                               "\n"
                               "  max-time = 2m \r\n"
                               "location\n"
                               "header = X-Team: core\n"
                               "jobs=9\n"
                               "[save]\n"
                               "force\n"
                               "max-time = 1h\n"
                               "[send]\n"
                               "method = \"PATCH\"\n";
    const Settings get = parse(config, {"get", "http://h/"}).Settings;
    EXPECT_EQ(get.MaxTime, 120);
    EXPECT_EQ(get.redirectLimit(), 20);
    EXPECT_THAT(get.Fields, ElementsAre(netrove::Field{"X-Team", "core"}));
    EXPECT_FALSE(get.Force);
    const Settings save = parse(config, {"save", "http://h/a"}).Settings;
    EXPECT_EQ(save.MaxTime, 3600);
    EXPECT_TRUE(save.Force);
    EXPECT_EQ(parse(config, {"send", "http://h/"}).Settings.Method, "PATCH");
    EXPECT_EQ(parse(config, {"batch", "list"}).Settings.Batch.Jobs, 9);
    // What a command does not have is not for it.
    EXPECT_EQ(parse(config, {"describe"}).Settings.Fields.size(), 0u);
}

TEST_F(ConfigFile, GivesWayToTheCommandLine) {
    const std::string config = "max-time = 5\nno-follow\nprogress\n";
    const Settings settings = parse(config, {"get", "-m", "7", "--follow", "3", "http://h/"}).Settings;
    EXPECT_EQ(settings.MaxTime, 7);
    EXPECT_EQ(settings.redirectLimit(), 3);
    EXPECT_EQ(settings.Progress, true);
    EXPECT_EQ(parse("nonsense\n", {"get", "--no-config", "http://h/"}).Settings.MaxTime, std::nullopt);
}

TEST_F(ConfigFile, IsAnotherOneWhereThatIsNamed) {
    testsupport::writeFile(Folder.file("other"), "max-time = 8\n");
    for (const char* option : {"--config", "-K"}) {
        EXPECT_EQ(parse("max-time = 5\n", {"get", "http://h/", option, Folder.file("other")}).Settings.MaxTime, 8);
    }
    EXPECT_EQ(testsupport::failureOf([&] {
                  parse("", {"get", "http://h/", "-K", Folder.file("none")});
              }).Key,
              "FileNotRead");
    unlink(Folder.file("other").c_str());
    const char* argv[] = {"netrove", "get", "http://h/"};
    EXPECT_EQ(parseCommandLine(3, argv, Folder.file("other")).Settings.Url, "http://h/");
}

TEST_F(ConfigFile, IsRefusedByFileAndLine) {
    const std::pair<const char*, const char*> rows[] = {
        {"\nouput = x\n", "config:2: unknown option 'ouput'; did you mean output?"},
        {"[gett]\n", "config:1: there is no command '[gett]'; did you mean [get]?"},
        {"[get]\njobs = 3\n", "config:2: 'jobs' cannot be set here"},
        {"config = x\n", "config:1: 'config' cannot be set here"},
        {"http2 = x\n",
         "config:1: unknown option 'http2'; leave it out: HTTP/2 is used where server and proxy offer it over TLS, "
         "otherwise HTTP/1.1"},
        {"location = yes\n", "config:1: 'location' takes no value; write the name alone"},
        {"max-time\n", "config:1: 'max-time' needs a value: max-time = S"},
        {"#\n#\nfollow = many\n",
         "config:3: 'many' is not a valid value for --follow; it takes a whole number from 0 to 1000"},
        // What is for other commands is checked too.
        {"[batch]\njops = 3\n", "config:2: unknown option 'jops'; did you mean jobs?"},
    };
    for (const auto& [config, text] : rows) {
        EXPECT_EQ(refusal(config), text);
    }
}

TEST_F(ConfigFile, WithSecretsIsForItsOwnerOnly) {
    const Words get = {"get", "http://h/"};
    EXPECT_THAT(parse("user = me:secret\n", get, 0600).Warnings, IsEmpty());
    EXPECT_THAT(parse("user = me:secret\n", get, 0644).Warnings, ElementsAre(HasSubstr("chmod 600")));
    EXPECT_THAT(parse("header = Authorization: Bearer t\n", get, 0640).Warnings, ElementsAre(HasSubstr("chmod 600")));
    EXPECT_THAT(parse("user = me\nheader = Accept: a\n", get, 0644).Warnings, IsEmpty());
}

} // namespace
