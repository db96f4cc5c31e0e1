// Help by topic, man page and completions: everything in the tables is in them.
#include "cli/options/Reference.h"

#include "cli/failures/ExitStatus.h"
#include "cli/options/OptionTable.h"
#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using namespace netrove::cli;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using testsupport::readFile;

// A long name with its hyphens as roff writes them.
std::string roffName(std::string_view name) {
    std::string text = "\\-\\-";
    for (const char c : name) {
        text += c == '-' ? std::string("\\-") : std::string(1, c);
    }
    return text;
}

TEST(Reference, EveryOptionIsInEveryForm) {
    for (const OptionRow& row : optionTable()) {
        const std::string name(row.LongName);
        EXPECT_THAT(helpTopic("all"), HasSubstr("--" + name));
        EXPECT_THAT(manPage(), HasSubstr("\\fB" + roffName(name) + "\\fR"));
        EXPECT_THAT(bashCompletion(), HasSubstr("--" + name));
        if ((row.Commands & ~unsigned{kProgram}) != 0) {
            EXPECT_THAT(zshCompletion(), HasSubstr("*--" + name + "["));
        }
        EXPECT_THAT(fishCompletion(), HasSubstr(" -l " + name));
    }
}

TEST(Reference, EveryCommandExitStatusAndVariableIsInTheManPage) {
    std::vector<std::string> names;
    for (const CommandRow& row : commandTable()) {
        names.emplace_back(row.Name);
    }
    for (const ExitMeaning& row : exitMeanings()) {
        names.push_back(std::to_string(row.Status));
    }
    for (const EnvironmentRow& row : environmentTable()) {
        names.emplace_back(row.Name);
    }
    for (const std::string& name : names) {
        EXPECT_THAT(manPage(), HasSubstr("\\fB" + name + "\\fR\n"));
    }
    EXPECT_FALSE(exampleTable().empty());
    for (const ExampleRow& row : exampleTable()) {
        EXPECT_THAT(std::string(row.Line), Not(HasSubstr("password")));
    }
}

// Groups of the table and topics of the help are two lists.
TEST(Reference, EveryGroupOfOptionsHasATopic) {
    const std::vector<std::string> topics = topicNames();
    for (const OptionRow& row : optionTable()) {
        const auto topic = std::ranges::find_if(topics, [&](const std::string& name) {
            return name != "all" && helpTopic(name).starts_with(std::string(row.Group) + "\n\n");
        });
        ASSERT_NE(topic, topics.end()) << row.Group;
        EXPECT_THAT(helpTopic(*topic), HasSubstr("--" + std::string(row.LongName)));
        EXPECT_THAT(helpTopic("all"), HasSubstr(helpTopic(*topic)));
    }
}

TEST(Reference, BashCompletesWhatAPersonTypes) {
    const testsupport::TemporaryFolder folder;
    testsupport::writeFile(folder.file("netrove.bash"), bashCompletion());
    const std::pair<std::string, std::string> rows[] = {
        {"send --co", "--consumer\n--connect-timeout\n--color\n"},
        {"send --color a", "auto\nalways\n"},
        {"get --auth d", "digest\n"},
        {"get --auth basic,n", "basic,ntlm\nbasic,negotiate\n"},
        {"help e", "exit\nenvironment\nexamples\n"},
        {"d", "describe\ndemo\n"},
    };
    std::string script = ". ./netrove.bash\n";
    std::string expected;
    for (const auto& [typed, offered] : rows) {
        script += "COMP_WORDS=(netrove " + typed +
                  "); COMP_CWORD=" + std::to_string(1 + std::ranges::count(typed, ' ')) +
                  "; _netrove; printf '%s\\n' \"${COMPREPLY[@]}\"\n";
        expected += offered;
    }
    testsupport::writeFile(folder.file("try"), script);
    ASSERT_EQ(std::system(("cd " + folder.path() + " && bash try > offered").c_str()), 0);
    EXPECT_EQ(readFile(folder.file("offered")), expected);
}

TEST(Reference, OtherShellsAreOfferedTopicsSchemesAndOptionsOfTheProgram) {
    const std::string fish = fishCompletion();
    const std::string zsh = zshCompletion();
    EXPECT_THAT(fish, HasSubstr("-n '__fish_seen_subcommand_from help' -a 'get save"));
    EXPECT_THAT(fish, HasSubstr("-l auth -x -a 'basic digest ntlm negotiate'"));
    for (const char* name : {"version", "json-errors", "color"}) {
        EXPECT_THAT(fish, ContainsRegex("not __fish_seen_subcommand_from [a-z ]*' -l " + std::string(name)));
    }
    EXPECT_THAT(zsh, HasSubstr("'1:topic:(get save"));
    EXPECT_THAT(zsh, HasSubstr(":LIST:_values -s , scheme basic digest ntlm negotiate'"));
    for (const std::string& topic : topicNames()) {
        EXPECT_THAT(fish.substr(fish.rfind(" -a ")), HasSubstr(" " + topic));
    }
}

// The manual page and the completions that packages carry are those that the program prints. Where one differs, the
// target `reference_pages` writes them anew.
TEST(ReferencePages, AreWhatTheProgramPrints) {
    const std::pair<std::string, std::string> pages[] = {{"man", "netrove.1"},
                                                         {"bash", "completions/netrove.bash"},
                                                         {"zsh", "completions/_netrove"},
                                                         {"fish", "completions/netrove.fish"}};
    for (const auto& [topic, name] : pages) {
        const testsupport::Outcome outcome = testsupport::run({"help", topic});
        EXPECT_EQ(outcome.Status, 0) << outcome.Err;
        EXPECT_GT(outcome.Out.size(), 500u);
        const bool same = outcome.Out == readFile(NETROVE_PACKAGING_FOLDER "/" + name);
        EXPECT_TRUE(same) << name << " differs; build the target reference_pages";
    }
}

} // namespace
