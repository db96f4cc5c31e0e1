// Help by topic, man page and completions: everything in the tables is in them.
#include "cli/options/pages/Reference.h"

#include "cli/failures/ExitStatus.h"
#include "cli/options/table/OptionTable.h"
#include "tests/support/process/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using namespace netrove::cli;
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
        EXPECT_THAT(helpTopic("all", 80), HasSubstr("--" + name));
        EXPECT_THAT(manPage(), HasSubstr("\\fB" + roffName(name) + "\\fR"));
        EXPECT_THAT(bashCompletion(), HasSubstr("--" + name));
        if ((row.Commands & ~unsigned{kProgram}) != 0) {
            EXPECT_THAT(zshCompletion(), HasSubstr("*--" + name + (row.ValueName.empty() ? "[" : "=[")));
        }
        EXPECT_THAT(fishCompletion(), HasSubstr(" -l " + name));
    }
}

TEST(Reference, EveryCommandExitStatusAndVariableIsInTheManPage) {
    const auto expectInManPage = [](std::string_view name) {
        EXPECT_THAT(manPage(), HasSubstr("\\fB" + std::string(name) + "\\fR\n"));
    };
    for (const CommandRow& row : commandTable()) {
        expectInManPage(row.Name);
    }
    for (const ExitMeaning& row : exitMeanings()) {
        expectInManPage(std::to_string(row.Status));
    }
    for (const EnvironmentRow& row : environmentTable()) {
        expectInManPage(row.Name);
    }
    EXPECT_FALSE(exampleTable().empty());
    for (const ExampleRow& row : exampleTable()) {
        EXPECT_THAT(std::string(row.Line), Not(HasSubstr("password")));
    }
}

TEST(Reference, EveryCommandHasAPageOfItsOwn) {
    for (const CommandRow& command : commandTable()) {
        SCOPED_TRACE(command.Name);
        const std::string page = manPage(command);
        EXPECT_EQ(helpTopic("man-" + std::string(command.Name), 80), page);
        std::size_t from = 0;
        for (const char* title : {"NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "EXIT STATUS", "ENVIRONMENT", "FILES",
                                  "EXAMPLES", "SEE ALSO"}) {
            const auto at = page.find("\n.SH " + std::string(title) + "\n", from);
            ASSERT_NE(at, page.npos) << title;
            EXPECT_NE(page.substr(page.find('\n', at + 1), 4), "\n.SH") << title << " is empty";
            from = at;
        }
        for (const OptionRow& row : optionTable()) {
            const auto named = HasSubstr("\\fB" + roffName(row.LongName) + "\\fR");
            if ((row.Commands & command.Set) != 0) {
                EXPECT_THAT(page, named);
            } else {
                EXPECT_THAT(page, Not(named));
            }
        }
        EXPECT_THAT(manPage(), HasSubstr("\\fBnetrove\\-" + std::string(command.Name) + "\\fR(1)"));
    }
}

TEST(Reference, PagesAreTypesetWithoutAWarning) {
    const testsupport::TemporaryFolder folder;
    const auto warnings = [&](const std::string& page) {
        testsupport::writeFile(folder.file("page.1"), page);
        const std::string command = "cd " + folder.path() + " && groff -ww -man -Tutf8 -z page.1 2> warnings";
        EXPECT_EQ(std::system(command.c_str()), 0);
        return readFile(folder.file("warnings"));
    };
    EXPECT_EQ(warnings(manPage()), "");
    for (const CommandRow& command : commandTable()) {
        EXPECT_EQ(warnings(manPage(command)), "") << command.Name;
    }
    EXPECT_NE(warnings(".TH X 1\n.nonsense\n"), "");
}

// Groups of the table and topics of the help are two lists.
TEST(Reference, EveryGroupOfOptionsHasATopic) {
    const std::vector<std::string> topics = topicNames();
    for (const OptionRow& row : optionTable()) {
        const auto topic = std::ranges::find_if(topics, [&](const std::string& name) {
            return name != "all" && helpTopic(name, 80).starts_with(std::string(row.Group) + "\n\n");
        });
        ASSERT_NE(topic, topics.end()) << row.Group;
        EXPECT_THAT(helpTopic(*topic, 80), HasSubstr("--" + std::string(row.LongName)));
        EXPECT_THAT(helpTopic("all", 80), HasSubstr(helpTopic(*topic, 80)));
    }
}

} // namespace
