#include <gtest/gtest.h>
#include <netrove/text.h>

#include <algorithm>
#include <string>

namespace {

using namespace std::string_literals;
using namespace netrove;

TEST(SafeText, ControlCharactersAreShownAndNotObeyed) {
    EXPECT_EQ(printable("a\x1b[31mred\x07"), "a\\x1B[31mred\\x07");
    EXPECT_EQ(printable("del\x7F nul\0end"s), "del\\x7F nul\\x00end");
    EXPECT_EQ(printable("csi \u009B31m"), "csi \\xC2\\x9B31m");
}

TEST(SafeText, LineEndsAreBlanksWhereOneLineIsWanted) {
    EXPECT_EQ(printable("a\nb\rc\td"), "a b c d");
    EXPECT_EQ(printableLines("a\r\nb\tc\x1b"), "a\nb\tc\\x1B");
}

TEST(SafeText, TextInUtf8StaysWhateverItsScriptAndOtherBytesAreShown) {
    const std::string text =
        "caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80 \u05E9\u05DC\u05D5\u05DD \u0645\u0631\u062D\u0628\u0627 "
        "\u0928\u092E\u0938\u094D\u0924\u0947 \u4F60\u597D e\u0301 \u00A0 \u2026 \U0001F600";
    EXPECT_EQ(printable(text), text);
    EXPECT_TRUE(isUtf8(text) && isUtf8(""));
    const std::pair<const char*, const char*> rows[] = {
        {"\xC3", "\\xC3"},          // cut short
        {"\xC0\xAF", "\\xC0\\xAF"}, // overlong
        {"\xE0\x80\x80", "\\xE0\\x80\\x80"},
        {"\xED\xA0\x80", "\\xED\\xA0\\x80"}, // half of a surrogate pair
        {"\xF4\x90\x80\x80", "\\xF4\\x90\\x80\\x80"},
        {"\x9Bm", "\\x9Bm"},
        {"caf\xE9", "caf\\xE9"},
    };
    for (const auto& [bytes, shown] : rows) {
        EXPECT_EQ(printable(bytes), shown);
        EXPECT_FALSE(isUtf8(bytes)) << shown;
    }
}

// Directions of writing, characters without width, separators of lines and paragraphs, a tag.
TEST(SafeText, WhatTurnsOrHidesTheTextAroundItIsShown) {
    EXPECT_EQ(printable("gpj\u202Eexe.\u2066"), "gpj\\xE2\\x80\\xAEexe.\\xE2\\x81\\xA6");
    for (const std::string& hidden :
         {"\u061C"s, "\u200B"s, "\u200C"s, "\u200D"s, "\u200E"s, "\u200F"s, "\u2028"s,
          "\u2029"s, "\u202A"s, "\u202B"s, "\u202C"s, "\u202D"s, "\u202E"s, "\u2060"s,
          "\u2066"s, "\u2067"s, "\u2068"s, "\u2069"s, "\uFEFF"s, "\u00AD"s, "\U000E0041"s}) {
        EXPECT_EQ(printable("a" + hidden + "b").find(hidden), std::string::npos) << printable(hidden);
        EXPECT_EQ(printableLines("a" + hidden + "b"), printable("a" + hidden + "b"));
        EXPECT_EQ(replaceControls("a" + hidden + "b", "_"), "a" + std::string(hidden.size(), '_') + "b");
    }
}

TEST(SafeText, ReplacementStandsForEachByte) {
    EXPECT_EQ(replaceControls("z\x01\x02z\xFF", "_"), "z__z_");
}

// Each of them is found wherever the text is cut, into two pieces or into single bytes.
TEST(ControlFinder, FindsWhatATerminalWouldObey) {
    for (const std::string& text : {
             "\x1b[2J"s,
             "a\0b"s,
             "\x7F"s,
             "\xC2\x9B"s,     // in UTF-8
             "\xE0\x82\x9B"s, // overlong, of three and of four bytes
             "\xF0\x80\x82\x9B"s,
             "\xC0\x9B"s,        // after a byte that begins nothing
             "\x9B"s,            // by itself, which is what an 8-bit terminal obeys
             "caf\xC3\xA9\x9B"s, // after a sequence that is complete
             "\xC3"              // and in one that is not
             "a\x9B"s,
         }) {
        EXPECT_TRUE(ControlFinder().findsIn(text)) << printable(text);
        for (std::size_t cut = 0; cut <= text.size(); ++cut) {
            ControlFinder finder;
            const bool before = finder.findsIn(text.substr(0, cut));
            EXPECT_TRUE(before || finder.findsIn(text.substr(cut))) << printable(text) << " cut at " << cut;
        }
        ControlFinder finder;
        EXPECT_TRUE(std::any_of(text.begin(), text.end(), [&](char c) { return finder.findsIn({&c, 1}); }));
    }
}

TEST(ControlFinder, FindsNothingInText) {
    for (const std::string& text : {
             "line\r\n\ttab"s,
             "caf\xC3\xA9 \xC3\x89 \xC2\xA0 \xE2\x82\xAC \xE0\xA4\x84 \xF0\x9F\x98\x80 \xF4\x8F\xBF\xBD"s,
             "caf\xE9 in Latin-1"s,
         }) {
        EXPECT_FALSE(ControlFinder().findsIn(text)) << printable(text);
        ControlFinder finder;
        EXPECT_TRUE(std::none_of(text.begin(), text.end(), [&](char c) {
            return finder.findsIn({&c, 1});
        })) << printable(text);
    }
}

} // namespace
