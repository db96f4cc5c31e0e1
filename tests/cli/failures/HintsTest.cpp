#include "cli/failures/Hints.h"

#include "cli/failures/ExitStatus.h"
#include "cli/options/OptionTable.h"

#include <gmock/gmock.h>

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
    message.Arguments.back() = row.Lacks ? "something else" : "before " + std::string(row.Needle) + " behind";
    return message;
}

TEST(Hints, EachRowIsTheFirstThatFitsItsOwnWords) {
    for (const HintRow& row : hintTable()) {
        EXPECT_EQ(hintFor(messageOf(row)), row.Hint) << row.Identifier << ": " << row.Needle;
    }
}

TEST(Hints, AreAPartOfASentence) {
    for (const HintRow& row : hintTable()) {
        EXPECT_FALSE(row.Hint.empty());
        EXPECT_FALSE(row.Hint.ends_with('.')) << row.Hint;
        EXPECT_EQ(row.Hint.find('\n'), row.Hint.npos);
    }
}

TEST(Hints, OtherFailuresHaveNone) {
    EXPECT_EQ(hintFor({"VANTIK:webservices", "UnknownHost", {"a b", "wrong version number"}, "wrong version number"}),
              "");
    EXPECT_EQ(hintFor({"VANTIK:webservices", "Timeout", {"http://h/", "1", "reason", "the system"}, "a text"}), "");
}

// The catalogue speaks of certificates, and has blanks, whatever the reason is.
TEST(Hints, TheWordsOfTheCatalogueDoNotCount) {
    EXPECT_EQ(
        hintFor({"VANTIK:webservices", "MalformedURL", {"http://h:99999/"}, "Not a usable URL: http://h:99999/."}), "");
    EXPECT_EQ(hintFor({"VANTIK:webservices",
                       "SSLConnectionSystemFailure",
                       {"https://h/", "unexpected eof while reading"},
                       "No secure connection with the certificates of this system"}),
              "");
}

TEST(Hints, AnArgumentThatIsMissingOrANumberIsNoTrouble) {
    EXPECT_EQ(hintFor({"VANTIK:webservices", "MalformedURL", {}, "a b"}), "");
    EXPECT_EQ(hintFor({"NETROVE:cli", "StatusError", {std::int64_t{404}}, "answered 401"}), "");
    EXPECT_NE(hintFor({"NETROVE:cli", "StatusError", {std::int64_t{401}}, "it said so"}), "");
}

TEST(NearestWord, IsAtMostTwoLettersAwayAndOneWhereItIsShort) {
    const std::vector<std::string> known = {"save", "send", "batch", "describe", "get"};
    EXPECT_EQ(nearestWord("gte", known), "get");
    EXPECT_EQ(nearestWord("sned", known), "send");
    EXPECT_EQ(nearestWord("discribe", known), "describe");
    EXPECT_EQ(nearestWord("describes", known), "describe");
    EXPECT_EQ(nearestWord("beach", known), "");
    EXPECT_EQ(nearestWord("batsh", known), "batch");
    EXPECT_EQ(nearestWord("gat", known), "get");
    EXPECT_EQ(nearestWord("gut!", known), "");
    EXPECT_EQ(nearestWord("decsribed", known), "describe");
    EXPECT_EQ(nearestWord("x", known), "");
    EXPECT_EQ(nearestWord("", known), "");
}

TEST(NearestWord, KnowsWhatOtherProgramsSay) {
    const std::vector<std::string> known = {"batch", "get", "--version"};
    EXPECT_EQ(nearestWord("fetch", known), "get");
    EXPECT_EQ(nearestWord("version", known), "--version");
    EXPECT_EQ(nearestWord("-V", known), "--version");
    EXPECT_EQ(nearestWord("upload", known), "") << "no word of this list";
}

} // namespace
