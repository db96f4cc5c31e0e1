#include "http/HttpSyntax.h"

#include "tests/support/host/PropertyTexts.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <locale>
#include <vector>

using namespace netrove;

namespace {

using Field = std::pair<std::string, std::string>;

TEST(HttpSyntax, NamesAreComparedWithoutCaseAndInFullLength) {
    EXPECT_TRUE(equalIgnoringCase("", ""));
    EXPECT_TRUE(equalIgnoringCase("Content-Type", "CONTENT-TYPE"));
    EXPECT_TRUE(equalIgnoringCase("a-1_", "A-1_"));
    EXPECT_FALSE(equalIgnoringCase("Content-Type", "Content-Typ"));
    EXPECT_FALSE(equalIgnoringCase("Content-Typ", "Content-Type"));
    EXPECT_FALSE(equalIgnoringCase("a", ""));
    EXPECT_FALSE(equalIgnoringCase("[", "{")); // differ in the bit that letters differ in
    EXPECT_FALSE(equalIgnoringCase(std::string_view("a\0b", 3), std::string_view("a\0c", 3)));
}

// A capital letter and a space that ASCII lacks.
class Letters : public std::ctype<char> {
protected:
    char do_toupper(char c) const override { return c == '\xE4' ? '\xC4' : std::ctype<char>::do_toupper(c); }
    static const mask* table() {
        static const std::vector<mask> masks = [] {
            std::vector<mask> all(classic_table(), classic_table() + table_size);
            all[0xA0] = space;
            return all;
        }();
        return masks.data();
    }

public:
    Letters() : std::ctype<char>(table()) {}
};

TEST(HttpSyntax, DefaultLocaleHasTheLettersAndSpaces) {
    EXPECT_FALSE(equalIgnoringCase("n\xE4me", "N\xC4ME"));
    EXPECT_EQ(trimmed(" \t\xA0\v\f\r\n"), "\xA0");
    EXPECT_EQ(trimmed("a b"), "a b");
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Letters));
    EXPECT_TRUE(equalIgnoringCase("n\xE4me", "N\xC4ME"));
    EXPECT_EQ(trimmed(" \t\xA0\v"), "");
    std::locale::global(before);
}

TEST(HttpSyntax, FieldLinesAreSplitAtTheFirstColon) {
    EXPECT_EQ(Field(viewFieldLine("X-A: b")), Field("X-A", "b"));
    EXPECT_EQ(Field(viewFieldLine("X-A:b")), Field("X-A", "b"));
    EXPECT_EQ(Field(viewFieldLine("X-A:   b  ")), Field("X-A", "b  "));
    EXPECT_EQ(Field(viewFieldLine("X-A: b:c")), Field("X-A", "b:c"));
    EXPECT_EQ(Field(viewFieldLine("X-A: \tb")), Field("X-A", "\tb")); // blanks only
    EXPECT_EQ(Field(viewFieldLine("X-A:  ")), Field("X-A", ""));
    EXPECT_EQ(Field(viewFieldLine("X-A")), Field("X-A", ""));
    EXPECT_EQ(Field(viewFieldLine(":")), Field("", ""));
    EXPECT_EQ(Field(viewFieldLine("")), Field("", ""));
}

TEST(HttpSyntax, ReasonComesAfterTheSecondBlank) {
    EXPECT_EQ(reasonPhraseOf("HTTP/1.1 404 Not Found"), "Not Found");
    EXPECT_EQ(reasonPhraseOf("HTTP/1.1 200  OK "), " OK ");
    EXPECT_EQ(reasonPhraseOf("HTTP/1.1  200 OK"), "200 OK");
    EXPECT_EQ(reasonPhraseOf("HTTP/1.1 200 "), "");
    EXPECT_EQ(reasonPhraseOf("HTTP/1.1 200"), "");
    EXPECT_EQ(reasonPhraseOf("HTTP/1.1"), "");
    EXPECT_EQ(reasonPhraseOf(""), "");
    EXPECT_EQ(reasonPhraseOf("  x"), "x");
}

RC_GTEST_PROP(HttpSyntax, NameAndValueComeBack, ()) {
    std::string name = *propertytexts::anyText();
    std::erase(name, ':');
    const std::string value = *propertytexts::anyText();
    const std::size_t start = value.find_first_not_of(' ');
    const Field expected(name, start == std::string::npos ? "" : value.substr(start));
    RC_ASSERT(Field(viewFieldLine(name + ": " + value)) == expected);
    RC_ASSERT(Field(viewFieldLine(name + ":" + value)) == expected);
    RC_ASSERT(Field(viewFieldLine(name)) == Field(name, ""));
}

} // namespace
