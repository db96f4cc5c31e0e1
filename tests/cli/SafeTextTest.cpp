#include "cli/SafeText.h"

#include <string>

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;
using namespace netrove::cli;

TEST(SafeText, ControlCharactersAreShownAndNotObeyed) {
    EXPECT_EQ(printable("a\x1b[31mred\x07"), "a\\x1B[31mred\\x07");
    EXPECT_EQ(printable("del\x7F nul\0end"s), "del\\x7F nul\\x00end");
    EXPECT_EQ(printable("csi \xC2\x9B"
                        "31m"),
              "csi \\xC2\\x9B31m");
}

TEST(SafeText, OneLineStaysOneLine) {
    EXPECT_EQ(printable("a\nb\rc\td"), "a b c d");
    EXPECT_EQ(printableLines("a\r\nb\tc\x1b"), "a\nb\tc\\x1B");
}

TEST(SafeText, Utf8StaysAndOtherBytesAreShown) {
    const std::string text = "caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80";
    EXPECT_EQ(printable(text), text);
    EXPECT_EQ(printable("\xC3"), "\\xC3");          // cut short
    EXPECT_EQ(printable("\xC0\xAF"), "\\xC0\\xAF"); // overlong
    EXPECT_EQ(printable("\xE0\x80\x80"), "\\xE0\\x80\\x80");
    EXPECT_EQ(printable("\xED\xA0\x80"), "\\xED\\xA0\\x80"); // half of a surrogate pair
    EXPECT_EQ(printable("\xF4\x90\x80\x80"), "\\xF4\\x90\\x80\\x80");
    EXPECT_EQ(printable("\x9B"
                        "31m"),
              "\\x9B31m");
}

TEST(SafeText, ReplacementStandsForEachByte) {
    EXPECT_EQ(replaceControls("a\x01\x02"
                              "b\xFF",
                              "_"),
              "a__b_");
}

TEST(SafeText, TerminalControlsAreFound) {
    EXPECT_FALSE(hasTerminalControls("line\r\n\ttab caf\xC3\xA9"));
    EXPECT_TRUE(hasTerminalControls("\x1b[2J"));
    EXPECT_TRUE(hasTerminalControls("a\0b"s));
    EXPECT_TRUE(hasTerminalControls("\x7F"));
    EXPECT_TRUE(hasTerminalControls("\xC2\x9B"));
}

TEST(SafeText, Utf8IsTold) {
    EXPECT_TRUE(isUtf8(""));
    EXPECT_TRUE(isUtf8("caf\xC3\xA9"));
    EXPECT_FALSE(isUtf8("caf\xE9"));
}

} // namespace
