#include "cli/Hints.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "cli/ExitStatus.h"
#include "cli/OptionTable.h"

namespace {

using namespace netrove::cli;

vantik::Message messageOf(const HintRow& row) {
    const std::string identifier(row.Identifier);
    const auto colon = identifier.rfind(':');
    vantik::Message message;
    message.Catalogue = identifier.substr(0, colon);
    message.Key = identifier.substr(colon + 1);
    message.Text = "before " + std::string(row.Needle) + " behind";
    return message;
}

TEST(Hints, EachRowIsTheFirstThatFitsItsOwnWords) {
    for (const HintRow& row : hintTable())
        EXPECT_EQ(hintFor(messageOf(row)), row.Hint) << row.Identifier << ": " << row.Needle;
}

TEST(Hints, AreAPartOfASentence) {
    for (const HintRow& row : hintTable()) {
        EXPECT_FALSE(row.Hint.empty());
        EXPECT_FALSE(row.Hint.ends_with('.')) << row.Hint;
        EXPECT_EQ(row.Hint.find('\n'), row.Hint.npos);
    }
}

TEST(Hints, OtherFailuresHaveNone) {
    vantik::Message message;
    message.Catalogue = "VANTIK:webservices";
    message.Key = "UnknownHost";
    message.Text = "wrong version number";
    EXPECT_EQ(hintFor(message), "");
}

TEST(NearestWord, IsAtMostTwoLettersAway) {
    const std::vector<std::string> known = {"get", "save", "send", "describe"};
    EXPECT_EQ(nearestWord("gte", known), "get");
    EXPECT_EQ(nearestWord("sned", known), "send");
    EXPECT_EQ(nearestWord("discribe", known), "describe");
    EXPECT_EQ(nearestWord("describes", known), "describe");
    EXPECT_EQ(nearestWord("fetch", known), "");
    EXPECT_EQ(nearestWord("x", known), "");
    EXPECT_EQ(nearestWord("", known), "");
}

} // namespace
