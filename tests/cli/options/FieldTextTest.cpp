#include "cli/options/FieldText.h"

#include "vantik/Failure.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace {

using namespace std::string_literals;
using namespace netrove::cli;

// The text of the usage failure that an operation raises; empty where it raises none.
std::string usageText(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const vantik::Failure& failure) {
        EXPECT_EQ(failure.identifier(), "NETROVE:cli:Usage");
        return failure.what();
    }
    return {};
}

TEST(FieldText, NameAndValueAreTakenApart) {
    EXPECT_EQ(parseField("X-One: two three"), (Field{"X-One", "two three"}));
    EXPECT_EQ(parseField("X-One:two"), (Field{"X-One", "two"}));
    EXPECT_EQ(parseField("X-One: \t two\tthree \t"), (Field{"X-One", "two\tthree"}));
    EXPECT_EQ(parseField("X-Time: 12:30:00"), (Field{"X-Time", "12:30:00"}));
    EXPECT_EQ(parseField("Accept:"), (Field{"Accept", ""}));
    EXPECT_EQ(parseField("Accept:  "), (Field{"Accept", ""}));
    EXPECT_EQ(parseField("!#$%&'*+-.^_`|~aZ09: x"), (Field{"!#$%&'*+-.^_`|~aZ09", "x"}));
}

TEST(FieldText, RefusesWhatIsNotAField) {
    const std::string refused[] = {
        "no colon",      ": value",       "",         "X One: v", "X\r\nY: v",      "X: v\r\nEvil: 1",
        "X: v\nEvil: 1", "X: v\rEvil: 1", "X: a\0b"s, "X\0: v"s,  "X: caf\xC3\xA9", "X: \x1b[31m",
        "X(: v",         "X : v",         "X: a\x7F"};
    for (const std::string& text : refused) {
        EXPECT_NE(usageText([&] { parseField(text); }), "") << text;
    }
}

TEST(FieldText, TheTextOfARefusalHoldsNoControlCharacters) {
    for (const std::string& text : {"X\r\n\x1b[31mY: v"s, "\x1b[31m"s, "X: v\r\nEvil: 1"s}) {
        EXPECT_FALSE(hasControlBytes(usageText([&] { parseField(text); }))) << text;
    }
}

TEST(FieldText, ARefusalRepeatsNoCredential) {
    for (const std::string& text :
         {"Authorization Bearer hush"s, "Cookie s=hush:x"s, "Authorization: hush\x01"s, "hush"s}) {
        EXPECT_EQ(usageText([&] { parseField(text); }).find("hush"), std::string::npos) << text;
    }
}

TEST(FieldText, LinesOfAFileAreFields) {
    EXPECT_EQ(parseFieldLines("A: 1\r\n\n \t\nB:two\nA: 3", "file"),
              (std::vector<Field>{{"A", "1"}, {"B", "two"}, {"A", "3"}}));
    EXPECT_EQ(parseFieldLines("", "file"), std::vector<Field>{});
    EXPECT_EQ(parseFieldLines("\n", "file"), std::vector<Field>{});
    EXPECT_EQ(usageText([] { parseFieldLines("A: 1\n\nBearer hush\n", "to\nken"); }),
              "to ken:3: a header field is written 'Name: value'; this one has no colon");
    EXPECT_NE(usageText([] { parseFieldLines("A: 1\0B: 2"s, "file"); }), "");
}

TEST(FieldText, MethodsAreTokens) {
    for (const char* method : {"GET", "post", "M-SEARCH", "X_1"}) {
        EXPECT_EQ(usageText([&] { checkMethod(method); }), "") << method;
    }
    for (const std::string& method : {""s, "GET /"s, "GET\r\n"s, "G\0T"s, "GÉT"s, "GET "s}) {
        EXPECT_NE(usageText([&] { checkMethod(method); }), "") << method;
    }
}

TEST(FieldText, UserNamesAndPasswordsHoldNoControlCharacters) {
    EXPECT_EQ(usageText([] { checkUserName("J\xC3\xBCrgen Example"); }), "");
    for (const std::string& name : {"a\nb"s, "a\rb"s, "a\0b"s, "a:b"s}) {
        EXPECT_NE(usageText([&] { checkUserName(name); }), "") << name;
    }
    EXPECT_EQ(usageText([] { checkPassword("with: everything"); }), "");
    const std::string text = usageText([] { checkPassword("hush\nhush"); });
    EXPECT_NE(text, "");
    EXPECT_EQ(text.find("hush"), std::string::npos) << "the password is repeated";
}

TEST(FieldText, ComparisonIgnoresTheCaseOfAsciiLettersOnly) {
    EXPECT_TRUE(equalsIgnoringCase("Content-Type", "cONTENT-tYPE"));
    EXPECT_FALSE(equalsIgnoringCase("Content-Type", "Content-Typ"));
    EXPECT_FALSE(equalsIgnoringCase("\xC3\x84", "\xC3\xA4"));
    EXPECT_FALSE(equalsIgnoringCase("[", "{"));
}

TEST(FieldText, FieldsWithCredentialsAreKnown) {
    EXPECT_TRUE(isSecretField("authorization"));
    EXPECT_TRUE(isSecretField("Cookie"));
    EXPECT_TRUE(isSecretField("Proxy-Authorization"));
    EXPECT_TRUE(isSecretField("set-cookie"));
    EXPECT_FALSE(isSecretField("Accept"));
}

} // namespace
