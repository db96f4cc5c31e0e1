#include "client/response/Charset.h"

#include <gtest/gtest.h>
#include <netrove/error.h>
#include <netrove/response.h>

#include <optional>
#include <string>

namespace {

using netrove::decodeText;
using netrove::Response;

netrove::Response response(const std::string& contentType, const std::string& content) {
    Response made;
    if (!contentType.empty()) {
        made.fields.add("Content-Type", contentType);
    }
    made.content = content;
    return made;
}

std::string textOf(const std::string& contentType, const std::string& content) {
    return response(contentType, content).text();
}

TEST(Charset, LabelIsFoundWithoutRegardToCaseAndQuotes) {
    for (const char* type : {"text/plain;charset=koi8-r", "text/plain; CHARSET=\"KOI8-R\"",
                             "text/html ; charset = Koi8-R", "text/html; a=\";charset=utf-8\"; charset=koi8-r",
                             "text/html; charset=koi8-r; charset=utf-8", "text/html; charset=\"koi8\\-r\""}) {
        EXPECT_EQ(textOf(type, "\xD4\xC5\xCB\xD3\xD4"), "\xD1\x82\xD0\xB5\xD0\xBA\xD1\x81\xD1\x82") << type;
    }
}

TEST(Charset, LabelsMeanWhatBrowsersTakeThemFor) {
    const struct {
        const char* Label;
        std::string Content;
        std::string Text;
    } rows[] = {
        {"iso-8859-1", "\x80 \xE9", "\xE2\x82\xAC \xC3\xA9"}, // the euro of windows-1252
        {"latin1", "\x80 \xE9", "\xE2\x82\xAC \xC3\xA9"},
        {"us-ascii", "\x80 \xE9", "\xE2\x82\xAC \xC3\xA9"},
        {"ASCII", "\x80 \xE9", "\xE2\x82\xAC \xC3\xA9"},
        {"windows-1252", "\x80 \x81", "\xE2\x82\xAC \xC2\x81"},
        {"iso-8859-9", "\x80 \xFE", "\xE2\x82\xAC \xC5\x9F"},
        {"iso-8859-15", "\xA4", "\xE2\x82\xAC"},
        {"iso-8859-2", "\xB1", "\xC4\x85"},
        {"iso-8859-11", "\x80\xA1", "\xE2\x82\xAC\xE0\xB8\x81"},
        {"gb2312", "\xCE\xC4\x81\x40", "\xE6\x96\x87\xE4\xB8\x82"}, // the second one is in GBK only
        {"gbk", "\xCE\xC4\x81\x30\x81\x30", "\xE6\x96\x87\xC2\x80"},
        {"gb18030", "\xCE\xC4", "\xE6\x96\x87"},
        {"big5", "\xA4\xE5", "\xE6\x96\x87"},
        {"euc-kr", "\xB1\xDB\x81\x41", "\xEA\xB8\x80\xEA\xB0\x82"}, // the second one is in windows-949 only
        {"shift_jis", "\x95\xB6\\~\x87\x40", "\xE6\x96\x87\\~\xE2\x91\xA0"},
        {"euc-jp", "\xCA\xB8", "\xE6\x96\x87"},
        {"iso-2022-jp", "\x1B$BJ8\x1B(B", "\xE6\x96\x87"},
        {"windows-1251", "\xF2", "\xD1\x82"},
        {"utf-16", std::string("a\0\xE9\0", 4), "a\xC3\xA9"}, // little-endian, as browsers have it
        {"utf-16be", std::string("\0a\0\xE9", 4), "a\xC3\xA9"},
        {"utf8", "\xC3\xA9", "\xC3\xA9"},
    };
    for (const auto& row : rows) {
        const Response read = response(std::string("text/plain; charset=") + row.Label, row.Content);
        EXPECT_EQ(read.text(), row.Text) << row.Label;
        EXPECT_EQ(read.exactText(), row.Text) << row.Label;
    }
}

TEST(Charset, ByteOrderMarkBeatsTheFieldAndIsRemoved) {
    EXPECT_EQ(textOf("text/plain;charset=iso-8859-1", "\xEF\xBB\xBF\xC3\xA9"), "\xC3\xA9");
    EXPECT_EQ(textOf("text/plain;charset=utf-8", std::string("\xFF\xFE\xE9\0", 4)), "\xC3\xA9");
    EXPECT_EQ(textOf("", std::string("\xFE\xFF\0\xE9", 4)), "\xC3\xA9");
    EXPECT_EQ(textOf("text/plain;charset=utf-16be", std::string("\xFF\xFE"
                                                                "a\0",
                                                                4)),
              "a");
    EXPECT_EQ(textOf("application/json", "\xEF\xBB\xBF{}"), "{}");
    EXPECT_EQ(textOf("", "\xEF\xBB\xBF"), "");
    EXPECT_EQ(textOf("", "\xEF\xBB\xBF\xEF\xBB\xBFx"), "\xEF\xBB\xBFx"); // only the first is a mark
}

TEST(Charset, WithoutOneTextIsUtf8) {
    for (const char* type : {"", "text/plain", "text/html; charset=", "text/html; charset=\"\"", "nonsense", ";;"}) {
        EXPECT_EQ(textOf(type, "\xC3\xA9"), "\xC3\xA9") << type;
    }
    EXPECT_EQ(textOf("", ""), "");
}

TEST(Charset, JsonIsUtf8) {
    for (const char* type : {"application/json;charset=iso-8859-1", "Application/Problem+JSON; charset=utf-16"}) {
        EXPECT_EQ(textOf(type, "\"\xC3\xA9\""), "\"\xC3\xA9\"") << type;
    }
}

TEST(Charset, BadBytesAreReplacedOrRefusedWithTheirPlace) {
    const struct {
        const char* Type;
        std::string Content;
        std::string Text;
        std::int64_t FirstBad;
    } rows[] = {
        {"",
         "ab\xFF"
         "cd",
         "ab\xEF\xBF\xBD"
         "cd",
         2},
        {"", "\xC3", "\xEF\xBF\xBD", 0},                                                 // cut off
        {"", "\xC3\xA9\xE2\x82", "\xC3\xA9\xEF\xBF\xBD", 2},                             // one for what could begin one
        {"", "x\xC0\xAFy", "x\xEF\xBF\xBD\xEF\xBF\xBDy", 1},                             // overlong
        {"", "x\xED\xA0\x80y", "x\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBDy", 1},             // half of a pair
        {"", "\xF4\x90\x80\x80", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD", 0}, // beyond U+10FFFF
        {"",
         "a\xFF"
         "b\xFE",
         "a\xEF\xBF\xBD"
         "b\xEF\xBF\xBD",
         1},
        {"", "\xEF\xBB\xBFx\xFF", "x\xEF\xBF\xBD", 4}, // counted with the mark
        {"a/b;charset=utf-16le",
         std::string("a\0\0\xD8"
                     "b\0",
                     6),
         "a\xEF\xBF\xBD"
         "b",
         2},
        {"a/b;charset=utf-16le", std::string("a\0b", 3), "a\xEF\xBF\xBD", 2},
        {"a/b;charset=shift_jis", "a\x81", "a\xEF\xBF\xBD", 1},
        {"a/b;charset=shift_jis",
         "ab\xFF"
         "c",
         "ab\xEF\xBF\xBD"
         "c",
         2},
        {"a/b;charset=iso-8859-7", "\xE1\xD2", "\xCE\xB1\xEF\xBF\xBD", 1},
        {"a/b;charset=gb18030", "\xCE\xC4\xFF", "\xE6\x96\x87\xEF\xBF\xBD", 2},
    };
    for (const auto& row : rows) {
        const Response read = response(row.Type, row.Content);
        EXPECT_EQ(read.text(), row.Text) << row.Type << " " << testing::PrintToString(row.Content);
        try {
            read.exactText();
            ADD_FAILURE() << testing::PrintToString(row.Content);
        } catch (const netrove::Error& error) {
            EXPECT_EQ(error.kind(), netrove::ErrorKind::Content);
            EXPECT_EQ(error.identifier(), "NETROVE:client:ContentNotText");
            ASSERT_EQ(error.arguments().size(), 1U);
            EXPECT_EQ(error.arguments()[0], netrove::Error::Argument(row.FirstBad))
                << testing::PrintToString(row.Content) << error.what();
        }
    }
}

TEST(Charset, UnknownOneIsReadAsUtf8OrRefusedByName) {
    for (const std::string label : {"klingon", "utf-8,version=1", "../../etc/passwd", "*"}) {
        const Response read = response("text/plain;charset=" + label, "\xC3\xA9");
        EXPECT_EQ(read.text(), "\xC3\xA9") << label;
        try {
            read.exactText();
            ADD_FAILURE() << label;
        } catch (const netrove::Error& error) {
            EXPECT_EQ(error.arguments(), (std::vector<netrove::Error::Argument>{label}));
            EXPECT_EQ(std::string(error.what()), "the content is text in an unknown charset, \"" + label + "\"");
        }
    }
    try {
        response("text/plain;charset=\"\x1B[2J\xFF" + std::string(1000, 'x') + "\"", "").exactText();
        ADD_FAILURE();
    } catch (const netrove::Error& error) {
        EXPECT_EQ(std::string(error.what()),
                  "the content is text in an unknown charset, \"?[2J?" + std::string(55, 'x') + "...\"");
    }
}

// Wherever the pieces in which it is converted end.
TEST(Charset, CharactersAcrossPiecesStayWhole) {
    const std::string character = "\xF0\x9F\x98\x80";
    for (std::size_t before = 0; before < 9; ++before) {
        std::string content(before, 'a');
        while (content.size() < 40000) {
            content += character;
        }
        EXPECT_EQ(textOf("", content), content) << before;
        const netrove::Decoded bad = decodeText(content + "\xFF" + content, "");
        EXPECT_EQ(bad.FirstBad, content.size());
        EXPECT_EQ(bad.Text, content + "\xEF\xBF\xBD" + content);
    }
    std::string wide;
    std::string narrow;
    for (int i = 0; i < 20001; ++i) {
        wide += std::string("\x3D\xD8\x00\xDE", 4);
        narrow += character;
    }
    EXPECT_EQ(textOf("a/b;charset=utf-16le", "x" + std::string("\0", 1) + wide), "x" + narrow);
}

} // namespace
