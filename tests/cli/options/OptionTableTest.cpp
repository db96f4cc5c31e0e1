#include "cli/options/OptionTable.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

namespace {

using namespace netrove::cli;

// What people know, and what the manual says: long names with their letters, by command.
const std::map<std::string, char> kSendOptions = {
    {"method", 'X'},        {"field", 'H'},
    {"remove-field", 0},    {"body", 'd'},
    {"body-file", 0},       {"stream-file", 'T'},
    {"buffer-size", 0},     {"chunked", 0},
    {"simple", 0},          {"output", 'o'},
    {"include", 'i'},       {"consumer", 0},
    {"no-decode", 0},       {"location", 'L'},
    {"follow", 0},          {"no-follow", 0},
    {"fail", 'f'},          {"user", 'u'},
    {"password", 0},        {"auth", 0},
    {"proxy-user", 0},      {"proxy-password", 0},
    {"proxy-auth", 0},      {"proxy", 'x'},
    {"connect-timeout", 0}, {"response-timeout", 0},
    {"data-timeout", 0},    {"max-time", 'm'},
    {"ca-file", 0},         {"no-verify", 'k'},
    {"no-verify-name", 0},  {"progress", 0},
    {"no-progress", 0},     {"verbose", 'v'},
    {"debug", 0},           {"json", 0},
    {"json-errors", 0},     {"color", 0},
};

std::map<std::string, char> optionsOf(unsigned set) {
    std::map<std::string, char> result;
    for (const OptionRow& row : optionTable()) {
        if ((row.Commands & set) != 0) {
            result[std::string(row.LongName)] = row.ShortName;
        }
    }
    return result;
}

TEST(OptionTable, SendHasEveryOptionItPromises) {
    EXPECT_EQ(optionsOf(kSend), kSendOptions);
}

TEST(OptionTable, GetAndSaveSendNoBody) {
    for (const unsigned set : {kGet, kSave}) {
        for (const char* name : {"method", "body", "body-file", "stream-file", "buffer-size", "chunked"}) {
            EXPECT_EQ(optionsOf(set).count(name), 0u) << name;
        }
    }
    EXPECT_EQ(optionsOf(kSave).count("output"), 0u);
    EXPECT_EQ(optionsOf(kSave).count("force"), 1u);
}

TEST(OptionTable, NamesAndLettersAreUniqueAndEveryRowIsExplained) {
    std::set<std::string_view> names;
    std::set<char> letters;
    for (const OptionRow& row : optionTable()) {
        EXPECT_TRUE(names.insert(row.LongName).second) << row.LongName;
        EXPECT_TRUE(row.ShortName == 0 || letters.insert(row.ShortName).second) << row.ShortName;
        EXPECT_FALSE(row.Help.empty()) << row.LongName;
        EXPECT_FALSE(row.Group.empty()) << row.LongName;
        EXPECT_NE(row.Commands, 0u) << row.LongName;
        EXPECT_NE(row.Apply, nullptr) << row.LongName;
    }
}

TEST(OptionTable, EveryCommandReportsFailuresInJsonAndHasASummary) {
    for (const CommandRow& command : commandTable()) {
        EXPECT_EQ(optionsOf(command.Set).count("json-errors"), 1u) << command.Name;
        EXPECT_FALSE(command.Summary.empty()) << command.Name;
    }
}

} // namespace
