#include "cli/options/FieldText.h"

#include "tests/support/host/HostFixture.h"

#include <gmock/gmock.h>

#include <functional>
#include <string>

namespace {

using namespace std::string_literals;
using namespace netrove;
using namespace netrove::cli;
using testing::HasSubstr;
using testing::Not;
using FieldList = std::vector<Field>;

// The text of the usage failure that an operation raises; it shows neither a control character nor the secret "hush".
std::string refusal(const std::function<void()>& operation) {
    const vantik::Message message = testsupport::failureOf(operation);
    EXPECT_EQ(message.identifier(), "NETROVE:cli:Usage");
    EXPECT_FALSE(hasControls(message.Text));
    EXPECT_THAT(message.Text, Not(HasSubstr("hush")));
    return message.Text;
}

TEST(FieldText, NameAndValueAreTakenApart) {
    const std::pair<const char*, Field> rows[] = {
        {"X-One: two three", {"X-One", "two three"}},
        {"X-One:two", {"X-One", "two"}},
        {"X-One: \t two\tthree \t", {"X-One", "two\tthree"}},
        {"X-Time: 12:30:00", {"X-Time", "12:30:00"}},
        {"Accept:", {"Accept", ""}},
        {"Accept:  ", {"Accept", ""}},
        {"!#$%&'*+-.^_`|~aZ09: x", {"!#$%&'*+-.^_`|~aZ09", "x"}},
    };
    for (const auto& [text, field] : rows) {
        EXPECT_EQ(parseField(text), field) << text;
    }
}

TEST(FieldText, RefusesWhatIsNotAField) {
    for (const std::string& text : {"no colon"s,
                                    ": value"s,
                                    ""s,
                                    "X One: v"s,
                                    "X\r\nY: v"s,
                                    "X: v\r\nEvil: 1"s,
                                    "X: v\nEvil: 1"s,
                                    "X: v\rEvil: 1"s,
                                    "X: a\0b"s,
                                    "X\0: v"s,
                                    "X: caf\xC3\xA9"s,
                                    "X: \x1b[31m"s,
                                    "X(: v"s,
                                    "X : v"s,
                                    "X: a\x7F"s,
                                    "\x1b[31m"s,
                                    "X\r\n\x1b[31mY: v"s,
                                    "Authorization Bearer hush"s,
                                    "Cookie s=hush:x"s,
                                    "Authorization: hush\x01"s,
                                    "hush"s}) {
        SCOPED_TRACE(text);
        refusal([&] { parseField(text); });
    }
}

TEST(FieldText, LinesOfAFileAreFields) {
    EXPECT_EQ(parseFieldLines("A: 1\r\n\n \t\nB:two\nA: 3", "file"), (FieldList{{"A", "1"}, {"B", "two"}, {"A", "3"}}));
    EXPECT_EQ(parseFieldLines("", "file"), FieldList{});
    EXPECT_EQ(parseFieldLines("\n", "file"), FieldList{});
    EXPECT_EQ(refusal([] { parseFieldLines("A: 1\n\nBearer hush\n", "to\nken"); }),
              "to ken:3: a header field is written 'Name: value'; this one has no colon");
    refusal([] { parseFieldLines("A: 1\0B: 2"s, "file"); });
}

TEST(FieldText, MethodsUserNamesAndPasswordsAreChecked) {
    for (const char* method : {"GET", "post", "M-SEARCH", "X_1"}) {
        EXPECT_NO_THROW(checkMethod(method)) << method;
    }
    for (const std::string& method : {""s, "GET /"s, "GET\r\n"s, "G\0T"s, "GÉT"s, "GET "s}) {
        refusal([&] { checkMethod(method); });
    }
    EXPECT_NO_THROW(checkUserName("J\xC3\xBCrgen Example"));
    for (const std::string& name : {"a\nb"s, "a\rb"s, "a\0b"s, "a:b"s}) {
        refusal([&] { checkUserName(name); });
    }
    EXPECT_NO_THROW(checkPassword("with: everything"));
    refusal([] { checkPassword("hush\nhush"); });
}

TEST(FieldText, ComparisonIgnoresTheCaseOfAsciiLettersOnly) {
    EXPECT_TRUE(equalsIgnoringCase("Content-Type", "cONTENT-tYPE"));
    EXPECT_FALSE(equalsIgnoringCase("Content-Type", "Content-Typ"));
    EXPECT_FALSE(equalsIgnoringCase("\xC3\x84", "\xC3\xA4"));
    EXPECT_FALSE(equalsIgnoringCase("[", "{"));
}

TEST(FieldText, FieldsWithCredentialsAreKnown) {
    for (const char* name : {"authorization", "Cookie", "Proxy-Authorization", "set-cookie"}) {
        EXPECT_TRUE(isSecretField(name)) << name;
    }
    EXPECT_FALSE(isSecretField("Accept"));
}

} // namespace
