#include "cli/failures/Hints.h"

#include "cli/failures/ExitStatus.h"
#include "cli/options/OptionTable.h"

#include <gmock/gmock.h>

#include <map>
#include <string>
#include <vector>

namespace {

using namespace netrove::cli;

vantik::Message messageOf(const HintRow& row) {
    const std::string identifier(row.Identifier);
    const auto colon = identifier.rfind(':');
    vantik::Message message;
    message.Catalogue = identifier.substr(0, colon);
    message.Key = identifier.substr(colon + 1);
    message.Arguments.assign(static_cast<std::size_t>(row.Argument) + 1, "");
    message.Arguments.back() = row.Lacks ? "something else" : "before " + std::string(row.Needle) + " after";
    return message;
}

TEST(Hints, EachRowIsTheFirstThatFitsItsOwnWordsAndPartOfASentence) {
    for (const HintRow& row : hintTable()) {
        EXPECT_EQ(hintFor(messageOf(row)), row.Hint) << row.Identifier << ": " << row.Needle;
        EXPECT_FALSE(row.Hint.empty());
        EXPECT_FALSE(row.Hint.ends_with('.')) << row.Hint;
        EXPECT_EQ(row.Hint.find('\n'), row.Hint.npos);
    }
}

TEST(Hints, OtherFailuresHaveNone) {
    const vantik::Message rows[] = {
        {"VANTIK:webservices", "UnknownHost", {"a b", "wrong version number"}, "wrong version number"},
        {"VANTIK:webservices", "Timeout", {"http://h/", "1", "reason", "the system"}, "a text"},
        // The catalogue's text speaks of certificates, and has blanks, whatever the reason is.
        {"VANTIK:webservices", "MalformedURL", {"http://h:99999/"}, "Not a usable URL: http://h:99999/."},
        {"VANTIK:webservices",
         "SSLConnectionSystemFailure",
         {"https://h/", "unexpected eof while reading"},
         "No secure connection with the certificates of this system"},
        // An argument that is missing, and a number.
        {"VANTIK:webservices", "MalformedURL", {}, "a b"},
        {"NETROVE:cli", "StatusError", {std::int64_t{404}}, "answered 401"}};
    for (const vantik::Message& message : rows) {
        EXPECT_EQ(hintFor(message), "") << message.identifier();
    }
    EXPECT_NE(hintFor({"NETROVE:cli", "StatusError", {std::int64_t{401}}, "it said so"}), "");
}

TEST(NearestWord, IsAtMostTwoLettersAwayAndOneWhereItIsShort) {
    const std::vector<std::string> known = {"save", "send", "batch", "describe", "get", "--version"};
    const std::map<std::string, std::vector<const char*>> rows = {
        {"get", {"gte", "gat", "fetch"}}, // and what other programs say
        {"send", {"sned"}},
        {"describe", {"discribe", "describes", "decsribed"}},
        {"batch", {"batsh"}},
        {"--version", {"version", "-V"}},
        {"", {"beach", "gut!", "x", ""}},
    };
    for (const auto& [nearest, words] : rows) {
        for (const char* word : words) {
            EXPECT_EQ(nearestWord(word, known), nearest) << word;
        }
    }
    EXPECT_EQ(nearestWord("upload", std::vector<std::string>{"batch", "get"}), "");
}

} // namespace
