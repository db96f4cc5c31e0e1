#include "cli/options/OptionTable.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

namespace {

using namespace netrove::cli;

std::map<std::string, char> optionsOf(unsigned set) {
    std::map<std::string, char> result;
    for (const OptionRow& row : optionTable()) {
        if ((row.Commands & set) != 0) {
            result[std::string(row.LongName)] = row.ShortName;
        }
    }
    return result;
}

// What people know, and what the manual says: long names with their letters.
TEST(OptionTable, SendHasEveryOptionItPromises) {
    const std::map<char, std::string> letters = {
        {'X', "method"},   {'H', "field"},     {'d', "body"},   {'T', "stream-file"}, {'o', "output"},
        {'i', "include"},  {'L', "location"},  {'f', "fail"},   {'u', "user"},        {'x', "proxy"},
        {'m', "max-time"}, {'k', "no-verify"}, {'v', "verbose"}};
    std::map<std::string, char> expected;
    for (const auto& [letter, name] : letters) {
        expected[name] = letter;
    }
    for (const char* name :
         {"remove-field",   "body-file",        "buffer-size",  "chunked",         "simple",  "consumer",
          "no-decode",      "follow",           "no-follow",    "password",        "auth",    "proxy-user",
          "proxy-password", "proxy-auth",       "data-timeout", "connect-timeout", "ca-file", "no-verify-name",
          "progress",       "response-timeout", "no-progress",  "debug",           "json",    "json-errors",
          "color"}) {
        expected[name] = 0;
    }
    EXPECT_EQ(optionsOf(kSend), expected);
}

TEST(OptionTable, GetAndSaveSendNoBody) {
    for (const unsigned set : {kGet, kSave}) {
        for (const char* name : {"method", "body", "body-file", "stream-file", "buffer-size", "chunked"}) {
            EXPECT_FALSE(optionsOf(set).contains(name)) << name;
        }
    }
    EXPECT_FALSE(optionsOf(kSave).contains("output"));
    EXPECT_TRUE(optionsOf(kSave).contains("force"));
}

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
        EXPECT_TRUE(optionsOf(command.Set).contains("json-errors")) << command.Name;
        EXPECT_FALSE(command.Summary.empty()) << command.Name;
    }
}

} // namespace
