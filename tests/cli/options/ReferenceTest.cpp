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

// A long name with its hyphens as roff writes them.
std::string roffName(std::string_view name) {
    std::string text = "\\-\\-";
    for (const char c : name) {
        text += c == '-' ? std::string("\\-") : std::string(1, c);
    }
    return text;
}

TEST(Reference, EveryOptionIsInEveryForm) {
    const std::string all = helpTopic("all");
    const std::string man = manPage();
    const std::string bash = bashCompletion();
    const std::string zsh = zshCompletion();
    const std::string fish = fishCompletion();
    for (const OptionRow& row : optionTable()) {
        const std::string name(row.LongName);
        EXPECT_THAT(all, HasSubstr("--" + name));
        EXPECT_THAT(man, HasSubstr("\\fB" + roffName(name) + "\\fR"));
        EXPECT_THAT(bash, HasSubstr("--" + name));
        if ((row.Commands & ~unsigned{kProgram}) != 0) {
            EXPECT_THAT(zsh, HasSubstr("*--" + name + "["));
        }
        EXPECT_THAT(fish, HasSubstr(" -l " + name));
    }
}

TEST(Reference, EveryCommandExitStatusVariableAndExampleIsInTheManPage) {
    const std::string man = manPage();
    for (const CommandRow& row : commandTable()) {
        EXPECT_THAT(man, HasSubstr("\\fB" + std::string(row.Name) + "\\fR\n"));
    }
    for (const ExitMeaning& row : exitMeanings()) {
        EXPECT_THAT(man, HasSubstr("\\fB" + std::to_string(row.Status) + "\\fR\n"));
    }
    for (const EnvironmentRow& row : environmentTable()) {
        EXPECT_THAT(man, HasSubstr("\\fB" + std::string(row.Name) + "\\fR\n"));
    }
    EXPECT_FALSE(exampleTable().empty());
}

// Groups of the table and topics of the help are two lists.
TEST(Reference, EveryGroupOfOptionsHasATopic) {
    const std::string all = helpTopic("all");
    const std::vector<std::string> topics = topicNames();
    for (const OptionRow& row : optionTable()) {
        const std::string beginning = std::string(row.Group) + "\n\n";
        const auto topic = std::find_if(topics.begin(), topics.end(), [&](const std::string& name) {
            return name != "all" && helpTopic(name).starts_with(beginning);
        });
        ASSERT_NE(topic, topics.end()) << row.Group;
        EXPECT_THAT(helpTopic(*topic), HasSubstr("--" + std::string(row.LongName)));
        EXPECT_THAT(all, HasSubstr(helpTopic(*topic)));
    }
}

TEST(Reference, ShellsAcceptTheirCompletions) {
    const testsupport::TemporaryFolder folder;
    testsupport::writeFile(folder.file("netrove.bash"), bashCompletion());
    // What a person would see behind "netrove send --co" and a press of the key.
    testsupport::writeFile(folder.file("try"), ". ./netrove.bash\n"
                                               "COMP_WORDS=(netrove send --co); COMP_CWORD=2; _netrove\n"
                                               "printf '%s\\n' \"${COMPREPLY[@]}\" > options\n"
                                               "COMP_WORDS=(netrove send --color a); COMP_CWORD=3; _netrove\n"
                                               "printf '%s\\n' \"${COMPREPLY[@]}\" > values\n"
                                               "COMP_WORDS=(netrove get --auth d); COMP_CWORD=3; _netrove\n"
                                               "printf '%s\\n' \"${COMPREPLY[@]}\" > scheme\n"
                                               "COMP_WORDS=(netrove get --auth basic,n); COMP_CWORD=3; _netrove\n"
                                               "printf '%s\\n' \"${COMPREPLY[@]}\" > schemes\n"
                                               "COMP_WORDS=(netrove help e); COMP_CWORD=2; _netrove\n"
                                               "printf '%s\\n' \"${COMPREPLY[@]}\" > topics\n"
                                               "COMP_WORDS=(netrove d); COMP_CWORD=1; _netrove\n"
                                               "printf '%s\\n' \"${COMPREPLY[@]}\" > commands\n");
    ASSERT_EQ(std::system(("cd " + folder.path() + " && bash try").c_str()), 0);
    EXPECT_EQ(testsupport::readFile(folder.file("options")), "--consumer\n--connect-timeout\n--color\n");
    EXPECT_EQ(testsupport::readFile(folder.file("values")), "auto\nalways\n");
    EXPECT_EQ(testsupport::readFile(folder.file("scheme")), "digest\n");
    EXPECT_EQ(testsupport::readFile(folder.file("schemes")), "basic,ntlm\nbasic,negotiate\n");
    EXPECT_EQ(testsupport::readFile(folder.file("topics")), "exit\nenvironment\nexamples\n");
    EXPECT_EQ(testsupport::readFile(folder.file("commands")), "describe\ndemo\n");
}

TEST(Reference, TopicsSchemesAndOptionsInFrontOfACommandAreOffered) {
    const std::string fish = fishCompletion();
    const std::string zsh = zshCompletion();
    EXPECT_THAT(fish, HasSubstr("-n '__fish_seen_subcommand_from help' -a 'get save"));
    EXPECT_THAT(fish, HasSubstr("-l auth -x -a 'basic digest ntlm negotiate'"));
    for (const char* name : {"version", "json-errors", "color"}) {
        EXPECT_THAT(fish, ContainsRegex("not __fish_seen_subcommand_from [a-z ]*' -l " + std::string(name)));
    }
    EXPECT_THAT(zsh, HasSubstr("'1:topic:(get save"));
    EXPECT_THAT(zsh, HasSubstr(":LIST:_values -s , scheme basic digest ntlm negotiate'"));
    const std::string words = fish.substr(fish.rfind(" -a "));
    for (const std::string& topic : topicNames()) {
        EXPECT_THAT(words, HasSubstr(" " + topic));
    }
}

TEST(Help, TopicsAreListedAndExplained) {
    const testsupport::Outcome list = testsupport::run({"help"});
    EXPECT_EQ(list.Status, 0);
    EXPECT_THAT(list.Out, HasSubstr("  exit          exit statuses\n"));
    EXPECT_THAT(testsupport::run({"help", "exit"}).Out, HasSubstr("  130  interrupted (Ctrl-C)\n"));
    EXPECT_THAT(testsupport::run({"help", "tls"}).Out, HasSubstr("--ca-file FILE"));
    EXPECT_EQ(testsupport::run({"help", "save"}).Out, testsupport::run({"save", "--help"}).Out);
}

TEST(Help, UnknownTopicNamesThoseThereAre) {
    const testsupport::Outcome outcome = testsupport::run({"help", "nonsense"});
    EXPECT_EQ(outcome.Status, 2);
    EXPECT_THAT(outcome.Err, HasSubstr("no help on 'nonsense'; the topics are the commands and request, response"));
}

TEST(Help, NoSecretIsInAnyExample) {
    for (const ExampleRow& row : exampleTable()) {
        EXPECT_THAT(std::string(row.Line), Not(HasSubstr("password")));
    }
}

} // namespace
