// That each option is there, with its letter and for its commands: ReferenceTest.cpp, which holds the pages made of the
// table.
#include "cli/options/table/OptionTable.h"

#include "cli/options/table/ForeignOptions.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <string>

namespace {

using namespace netrove::cli;

TEST(OptionTable, EveryRowIsUniqueAndExplained) {
    std::set<std::string_view> names;
    std::set<std::string> otherNames;
    std::set<char> letters;
    for (const OptionRow& row : optionTable()) {
        EXPECT_TRUE(names.insert(row.LongName).second) << row.LongName;
        std::istringstream others{std::string(row.Traits.OtherNames)};
        for (std::string other; others >> other;) {
            EXPECT_TRUE(otherNames.insert(other).second) << other;
        }
        EXPECT_TRUE(row.ShortName == 0 || letters.insert(row.ShortName).second) << row.ShortName;
        EXPECT_FALSE(row.Help.empty() || row.Group.empty()) << row.LongName;
        EXPECT_TRUE(row.Commands != 0 && row.Apply != nullptr) << row.LongName;
    }
    for (const std::string& other : otherNames) {
        EXPECT_FALSE(names.contains(other)) << other;
    }
    for (const CommandRow& command : commandTable()) {
        EXPECT_TRUE(std::ranges::any_of(optionTable(), [&](const OptionRow& row) {
            return (row.Commands & command.Set) != 0 && row.LongName == "json-errors";
        })) << command.Name;
        EXPECT_FALSE(command.Summary.empty()) << command.Name;
    }
}

// Whether an option of the table has that name, as it is typed.
bool isOurs(std::string_view name, unsigned commands) {
    return std::ranges::any_of(
        optionTable(), [&](const OptionRow& row) { return isNamed(row, name) && (row.Commands & commands) != 0; });
}

// What is said of an option that has been added since would never be read.
TEST(ForeignOptions, AreNotInTheTableAndNameThoseThatAre) {
    for (const ForeignOption& row : foreignOptions()) {
        std::istringstream names{std::string(row.Names)};
        for (std::string name; names >> name;) {
            EXPECT_FALSE(isOurs(name, row.Commands)) << name;
            EXPECT_EQ(insteadOf(name, row.Commands), row.Instead) << name << " is in two rows";
        }
        std::istringstream words{std::string(row.Instead)};
        for (std::string word; words >> word;) {
            word.erase(word.find_last_not_of(",:") + 1);
            EXPECT_TRUE(!word.starts_with("--") || isOurs(word, kAll)) << word;
        }
    }
}

} // namespace
