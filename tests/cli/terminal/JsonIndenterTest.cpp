#include "cli/terminal/JsonIndenter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

using netrove::cli::JsonIndenter;

std::string indented(std::string_view text, std::size_t piece, bool colored = false) {
    std::string shown;
    JsonIndenter indenter([&](std::string_view more) { shown += more; }, colored);
    for (std::size_t at = 0; at < text.size(); at += piece) {
        indenter.take(text.substr(at, piece));
    }
    indenter.finish();
    return shown;
}

struct JsonRow {
    std::string Text;
    std::string Shown;
};

TEST(JsonIndenter, IndentsWhatIsJsonAndNothingElse) {
    const JsonRow rows[] = {
        {R"({"b":1,"a":[true,null,{}],"b":[]})",
         "{\n  \"b\": 1,\n  \"a\": [\n    true,\n    null,\n    {}\n  ],\n  \"b\": []\n}\n"},
        {" [ 1 ,\r\n\t2 ] ", "[\n  1,\n  2\n]\n"},
        // Digits that no number type has room for, and blanks, escapes and brackets within texts.
        {"[123456789012345678901234567890,-0.10e+007,0]",
         "[\n  123456789012345678901234567890,\n  -0.10e+007,\n  0\n]\n"},
        {R"(["a  b\"]\u00e9\\", "{,}"])", "[\n  \"a  b\\\"]\\u00e9\\\\\",\n  \"{,}\"\n]\n"},
        {"\"Gr\xC3\xBC\xC3\x9F\x65\"", "\"Gr\xC3\xBC\xC3\x9F\x65\"\n"},
        {"12", "12\n"},
        {"false\n", "false\n"},
        {"{\"a\":1}\n{\"a\":2}\n", "{\n  \"a\": 1\n}\n{\n  \"a\": 2\n}\n"},
        {"", ""},
        {" \n", " \n"},
    };
    for (const JsonRow& row : rows) {
        for (const std::size_t piece : {std::size_t{1}, std::size_t{3}, std::size_t{1000}}) {
            EXPECT_EQ(indented(row.Text, piece), row.Shown) << piece;
        }
    }
}

TEST(JsonIndenter, LeavesWhatIsNotJsonAsItCame) {
    for (const std::string text : {"<html>",
                                   "{\"a\" 1}",
                                   "{\"a\":1,}",
                                   "[1,]",
                                   "[01]",
                                   "[1.]",
                                   "[1e]",
                                   "[-]",
                                   "[.5]",
                                   "[+1]",
                                   "[tru]",
                                   "[nulL]",
                                   "[\"\\x\"]",
                                   "[\"\\u12g4\"]",
                                   "[\"a\nb\"]",
                                   "[1}",
                                   "{1:2}",
                                   "{,}",
                                   "[,]",
                                   "[\"never closed",
                                   "{\"a\":",
                                   "[1",
                                   "\xEF\xBB\xBF[]",
                                   "12x",
                                   "-",
                                   "{\"a\":1 \"b\":2}"}) {
        for (const std::size_t piece : {std::size_t{1}, std::size_t{1000}}) {
            EXPECT_EQ(indented(text, piece, true), text) << piece;
        }
    }
    EXPECT_EQ(indented("[]\n  oops", 1000), "[]\n\n  oops");
    const std::string deep(201, '[');
    EXPECT_EQ(indented(deep, 1000), deep);
}

TEST(JsonIndenter, ColoursNamesTextsAndOtherValues) {
    EXPECT_EQ(indented(R"({"a":"b","c":1,"d":null})", 1, true),
              "{\n  \033[1;34m\"a\"\033[0m: \033[32m\"b\"\033[0m,\n  \033[1;34m\"c\"\033[0m: \033[36m1\033[0m,\n  "
              "\033[1;34m\"d\"\033[0m: \033[36mnull\033[0m\n}\n");
}

// What is not shown at once would be held in memory, and one who watches a stream would see nothing of it.
TEST(JsonIndenter, HoldsBackLittleOfALongText) {
    std::size_t shown = 0;
    std::size_t longest = 0;
    JsonIndenter indenter(
        [&](std::string_view more) {
            shown += more.size();
            longest = std::max(longest, more.size());
        },
        false);
    indenter.take("[");
    std::size_t given = 1;
    for (int i = 0; i < 100'000; ++i) {
        indenter.take("1234567,");
        given += 8;
        ASSERT_LE(given, shown + (std::size_t{64} << 10) + 8);
    }
    EXPECT_LE(longest, std::size_t{65} << 10);
}

TEST(JsonIndenter, ALongTextThatFailsGoesOnAsItComes) {
    const std::string text = "[" + std::string(200'000, '1') + "] x";
    std::string expected = "[\n  " + std::string(200'000, '1') + "\n]\n";
    EXPECT_EQ(indented(text, 1000), expected + " x");
    const std::string cut = "[\"" + std::string(200'000, 'a') + "\n\"";
    expected = "[\n  \033[32m\"" + std::string(200'000, 'a') + "\033[0m\n\"";
    EXPECT_EQ(indented(cut, 1000, true), expected);
}

TEST(JsonIndenter, ShowsEachOfSeveralTextsWhenItEnds) {
    std::string shown;
    JsonIndenter indenter([&](std::string_view more) { shown += more; }, false);
    indenter.take("{\"a\":1}");
    EXPECT_EQ(shown, "{\n  \"a\": 1\n}\n");
}

} // namespace
