// That each option is there, with its letter and for its commands: ReferenceTest.cpp, which holds the pages made of the
// table.
#include "cli/options/OptionTable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

namespace {

using namespace netrove::cli;

TEST(OptionTable, EveryRowIsUniqueAndExplained) {
    std::set<std::string_view> names;
    std::set<char> letters;
    for (const OptionRow& row : optionTable()) {
        EXPECT_TRUE(names.insert(row.LongName).second) << row.LongName;
        EXPECT_TRUE(row.ShortName == 0 || letters.insert(row.ShortName).second) << row.ShortName;
        EXPECT_FALSE(row.Help.empty() || row.Group.empty()) << row.LongName;
        EXPECT_TRUE(row.Commands != 0 && row.Apply != nullptr) << row.LongName;
    }
    for (const CommandRow& command : commandTable()) {
        EXPECT_TRUE(std::ranges::any_of(optionTable(), [&](const OptionRow& row) {
            return (row.Commands & command.Set) != 0 && row.LongName == "json-errors";
        })) << command.Name;
        EXPECT_FALSE(command.Summary.empty()) << command.Name;
    }
}

} // namespace
