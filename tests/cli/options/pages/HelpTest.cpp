#include "cli/options/pages/Help.h"

#include "cli/options/pages/Layout.h"
#include "cli/options/pages/Reference.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace netrove::cli;
using testing::HasSubstr;
using testing::Not;

constexpr std::size_t kWidths[] = {60, 80, 200};

// Every page of help that is wrapped.
std::vector<std::string> pages(std::size_t columns) {
    std::vector<std::string> texts = {programHelp(columns), topicList(columns), helpTopic("all", columns)};
    for (const CommandRow& command : commandTable()) {
        texts.push_back(commandHelp(command, columns, false));
        texts.push_back(commandHelp(command, columns, true));
    }
    return texts;
}

// Without the backslashes that continue a long command line.
std::vector<std::string> wordsOf(const std::string& page) {
    std::istringstream words(page);
    std::vector<std::string> found;
    for (std::string word; words >> word;) {
        if (word != "\\") {
            found.push_back(word);
        }
    }
    return found;
}

std::size_t longestLine(const std::string& text) {
    std::istringstream lines(text);
    std::size_t longest = 0;
    for (std::string line; std::getline(lines, line);) {
        longest = std::max(longest, line.size());
    }
    return longest;
}

TEST(Help, KeepsWithinTheColumnsAndBreaksNoWord) {
    const std::vector<std::string> widest = pages(100'000);
    for (const std::size_t columns : kWidths) {
        SCOPED_TRACE(columns);
        const std::vector<std::string> texts = pages(columns);
        for (std::size_t i = 0; i < texts.size(); ++i) {
            EXPECT_EQ(wordsOf(texts[i]), wordsOf(widest[i]));
            EXPECT_LE(longestLine(texts[i]), columns) << texts[i];
            // It uses what there is.
            const std::size_t room = std::min(columns, longestLine(widest[i]));
            EXPECT_TRUE(texts[i].size() < 2000 || longestLine(texts[i]) > room - 12) << texts[i];
        }
    }
}

TEST(Help, OfACommandIsShortUnlessAllIsAskedFor) {
    for (const CommandRow& command : commandTable()) {
        const std::string few = commandHelp(command, 80, false);
        const std::string all = commandHelp(command, 80, true);
        EXPECT_LE(std::ranges::count(few, '\n'), 60) << command.Name;
        EXPECT_THAT(few, HasSubstr("netrove " + std::string(command.Name) + " --help all"));
        for (const OptionRow& row : optionTable()) {
            const auto named = HasSubstr("--" + std::string(row.LongName));
            if ((row.Traits.Common & row.Commands & command.Set) != 0) {
                EXPECT_THAT(few, named);
            }
            if ((row.Commands & command.Set) != 0) {
                EXPECT_THAT(all, named);
            }
        }
    }
    EXPECT_LE(std::ranges::count(programHelp(80), '\n'), 40);
    for (const CommandRow& command : commandTable()) {
        EXPECT_THAT(programHelp(80), HasSubstr("\n  " + std::string(command.Name) + " "));
    }
    EXPECT_THAT(programHelp(80), Not(HasSubstr("--proxy-user")));
}

TEST(Help, ContinuesLongCommandLines) {
    EXPECT_EQ(commandLines("netrove get URL", 15, 2), "netrove get URL");
    EXPECT_EQ(commandLines("netrove get -o file URL", 18, 2), "netrove get -o \\\n  file URL");
}

} // namespace
