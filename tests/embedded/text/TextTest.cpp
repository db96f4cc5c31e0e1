#include "host/Text.h"

#include "embedded/text/TextConversion.h"
#include "late/IcuCalls.h"
#include "late/LateLibrary.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using fl::i18n::codecvt_ustring_to_ascii;
using fl::i18n::codecvt_ustring_to_string;
using fl::i18n::CvtExceptionBase;
using fl::i18n::to_string;
using fl::i18n::to_ustring;

// What a conversion is refused with; empty where it is not refused.
template <class Operation>
std::string refusal(Operation operation) {
    try {
        operation();
    } catch (const CvtExceptionBase& error) {
        return error.what();
    }
    return {};
}

std::string convert(const std::string& encoding, const std::u16string& text) {
    return to_string(text, codecvt_ustring_to_string(encoding, false));
}

} // namespace

TEST(AsciiConverter, TakesEveryAsciiCharacter) {
    std::u16string wide;
    std::string narrow;
    for (int c = 0; c < 0x80; ++c) {
        wide.push_back(static_cast<char16_t>(c));
        narrow.push_back(static_cast<char>(c));
    }
    EXPECT_EQ(codecvt_ustring_to_ascii(false).convert(wide), narrow);
    EXPECT_EQ(convert("ascii", wide), narrow);
    EXPECT_EQ(convert("us-ascii", wide), narrow);
    EXPECT_EQ(codecvt_ustring_to_ascii(false).convert(u""), "");
}

TEST(AsciiConverter, RefusesEveryOtherCharacter) {
    for (int c = 0x80; c < 0x10000; c += c < 0x200 ? 1 : 41) {
        const std::u16string text{u'a', u'b', static_cast<char16_t>(c), u'c'};
        ASSERT_THROW(codecvt_ustring_to_ascii(false).convert(text), CvtExceptionBase) << c;
        ASSERT_THROW(codecvt_ustring_to_ascii(true).convert(text), CvtExceptionBase) << c;
    }
}

TEST(NamedConverter, NamesAreComparedWithoutRegardToCase) {
    for (const auto& [name, narrow] : {std::pair{"utf-8", "\xC3\xA9"},
                                       {"UTF-8", "\xC3\xA9"},
                                       {"utf8", "\xC3\xA9"},
                                       {"windows-1252", "\xE9"},
                                       {"Windows-1252", "\xE9"},
                                       {"cp1252", "\xE9"}}) {
        EXPECT_EQ(convert(name, u"\u00E9"), narrow) << name;
    }
}

TEST(NamedConverter, UnknownNamesAreRefusedOnConstruction) {
    const std::pair<std::string, std::string> rows[] = {
        // the name as given and as shown
        {"", ""},
        {"no-such-encoding", "no-such-encoding"},
        {"utf-8,version=1", "utf-8,version=1"},
        {"utf-8 ", "utf-8 "},
        {std::string("utf-8\0x", 7), "utf-8?x"},
        {"utf-8\n", "utf-8?"},
        {"../utf-8", "../utf-8"},
        {"\xC3\xA9", "??"},
        {std::string(1000, 'x'), std::string(60, 'x') + "..."},
    };
    for (const auto& [name, shown] : rows) {
        EXPECT_EQ(refusal([&, &given = name] { codecvt_ustring_to_string(given, false); }),
                  "there is no encoding named \"" + shown + "\"");
    }
}

TEST(NamedConverter, Windows1252HasItsOwnLettersBetween80And9F) {
    EXPECT_EQ(convert("windows-1252", u"\u20AC\u201A\u0192\u2026\u0160\u0152\u017D\u2019\u2022\u2122\u0178"),
              "\x80\x82\x83\x85\x8A\x8C\x8E\x92\x95\x99\x9F");
    for (int c = 0xA0; c < 0x100; ++c) {
        EXPECT_EQ(convert("windows-1252", std::u16string(1, static_cast<char16_t>(c))),
                  std::string(1, static_cast<char>(c)))
            << c;
    }
}

// ASCII in these encodings is written without ICU.
TEST(NamedConverter, WritesAsciiAsIcuDoes) {
    std::u16string text;
    for (char16_t c = 0; c < 0x80; ++c) {
        text += c;
    }
    for (const std::string encoding : {"UTF-8", "utf-8", "windows-1252", "ISO-8859-1", "US-ASCII"}) {
        const std::string written = codecvt_ustring_to_string(encoding, false).convert(text);
        EXPECT_EQ(written, netrove::lateCalls<netrove::IcuCalls>().encode(text, encoding).Text) << encoding;
        EXPECT_EQ(written.size(), text.size());
    }
}

TEST(Converters, WhatTheEncodingLacksIsRefusedWithItsPlaceAndNeverReplaced) {
    const std::u16string manyPieces(100'000, u'\u00E9');
    EXPECT_EQ(convert("windows-1252", manyPieces), std::string(100'000, '\xE9'));
    const std::tuple<const char*, std::u16string, const char*> rows[] = {
        {"ascii", u"ab\u00E9", "U+00E9 at position 2"},
        {"ascii", u"\U0001F600", "U+1F600 at position 0"},
        {"windows-1252", u"pass\u0107word", "U+0107 at position 4"},
        {"windows-1252", manyPieces + u"\u0107", "U+0107 at position 100000"},
        {"windows-1252", u"ab\U0001F600", "U+1F600 at position 2"},
        {"iso-8859-1", u"\u20AC", "U+20AC at position 0"},
    };
    for (const auto& [encoding, text, place] : rows) {
        const std::string reason =
            std::string("the character ") + place + " does not exist in the encoding " + encoding;
        EXPECT_EQ(refusal([&, &e = encoding, &given = text] { convert(e, given); }), reason);
        if (std::string_view(encoding) == "ascii") {
            EXPECT_EQ(refusal([&given = text] { codecvt_ustring_to_ascii(false).convert(given); }), reason);
        }
    }
    // Invisible characters, and letters that only look like one that exists.
    for (const char16_t c : {u'\u200B', u'\u200D', u'\u2060', u'\uFEFF', u'\uFF21', u'\u2215', u'\u0301', u'\uE000'}) {
        for (const char* encoding : {"windows-1252", "iso-8859-1", "us-ascii", "koi8-r"}) {
            EXPECT_NE(refusal([&] { convert(encoding, std::u16string{u'x', c, u'y'}); }), "") << encoding << int(c);
        }
    }
}

TEST(Converters, UnpairedSurrogatesAreRefusedWithTheirPlace) {
    const std::u16string lead(1, 0xD83D);
    const std::u16string trail(1, 0xDE00);
    for (const auto& [text, place] : {std::pair{u"ab" + lead, "U+D83D at position 2"},
                                      {u"a" + lead + u"b", "U+D83D at position 1"},
                                      {trail + u"b", "U+DE00 at position 0"},
                                      {trail + lead, "U+DE00 at position 0"},
                                      {lead + lead + trail, "U+D83D at position 0"}}) {
        const std::u16string& given = text;
        const std::string reason = std::string("the unpaired surrogate ") + place + " has no form in the encoding ";
        EXPECT_EQ(refusal([&] { to_string(given); }), reason + "utf-8");
        EXPECT_EQ(refusal([&] { convert("utf-8", given); }), reason + "utf-8");
        EXPECT_EQ(refusal([&] { convert("windows-1252", given); }), reason + "windows-1252");
        EXPECT_EQ(refusal([&] { codecvt_ustring_to_ascii(false).convert(given); }), reason + "ascii");
    }
}

TEST(NamedConverter, NulIsACharacterLikeAnyOther) {
    const std::u16string text(u"a\0b", 3);
    EXPECT_EQ(convert("utf-8", text), std::string("a\0b", 3));
    EXPECT_EQ(convert("windows-1252", text), std::string("a\0b", 3));
    EXPECT_EQ(codecvt_ustring_to_ascii(false).convert(text), std::string("a\0b", 3));
    EXPECT_EQ(to_string(text), std::string("a\0b", 3));
    EXPECT_EQ(to_ustring(std::string("a\0b", 3)), text);
}

TEST(NamedConverter, ServesSeveralThreads) {
    const codecvt_ustring_to_string converter("windows-1252", false);
    std::atomic<int> good = 0;
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int round = 0; round < 500; ++round) {
                good += converter.convert(u"\u20ACuro") == "\x80uro" ? 1 : 0;
            }
        });
    }
    threads.clear(); // waits for them
    EXPECT_EQ(good, 4 * 500);
}

TEST(DefaultEncoding, EveryCharacterSurvivesBothWays) {
    for (char32_t c = 0; c <= 0x10FFFF; c += c < 0x3000 ? 1 : 37) {
        if (c >= 0xD800 && c <= 0xDFFF) {
            continue;
        }
        std::u16string wide(1, static_cast<char16_t>(c));
        if (c >= 0x10000) {
            wide = {static_cast<char16_t>(0xD7C0 + (c >> 10)), static_cast<char16_t>(0xDC00 + (c & 0x3FF))};
        }
        const std::string narrow = to_string(wide);
        ASSERT_EQ(to_ustring(narrow), wide) << static_cast<unsigned>(c);
        ASSERT_EQ(convert("utf-8", wide), narrow) << static_cast<unsigned>(c);
    }
}

TEST(DefaultEncoding, EachBadByteBecomesOneReplacementCharacter) {
    const std::pair<std::string, std::u16string> rows[] = {
        {"", u""},
        {"\x80", u"\uFFFD"},
        {"a\xFFz", u"a\uFFFDz"},
        {"\xC3", u"\uFFFD"},                               // cut off
        {"\xE2\x82", u"\uFFFD\uFFFD"},                     // cut off
        {"\xE2\x82z", u"\uFFFD\uFFFDz"},                   // cut short
        {"\xC0\xAF", u"\uFFFD\uFFFD"},                     // "/" in two bytes
        {"\xE0\x80\xAF", u"\uFFFD\uFFFD\uFFFD"},           // "/" in three bytes
        {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},           // a surrogate
        {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"}, // above U+10FFFF
        {"\xF8\x88\x80\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"\xC3\xA9\xFF\xC3\xA9", u"\u00E9\uFFFD\u00E9"},
        {"\xEF\xBB\xBFx", u"\uFEFFx"}, // a byte order mark is a character
    };
    for (const auto& [narrow, wide] : rows) {
        EXPECT_EQ(to_ustring(narrow), wide);
        std::size_t badByte = 0;
        const std::size_t firstBad = wide.find(u'\uFFFD');
        EXPECT_EQ(vantik::detail::decodeUtf8Strictly(narrow, badByte).has_value(), firstBad == wide.npos);
        if (firstBad != wide.npos) {
            EXPECT_EQ(badByte, to_string(wide.substr(0, firstBad)).size());
        }
    }
}

TEST(Locale, FirstVariableThatIsSetCounts) {
    using vantik::detail::localeName;
    EXPECT_EQ(localeName(nullptr, nullptr, nullptr), "en");
    EXPECT_EQ(localeName("de_DE.UTF-8", "fr_FR", "it_IT"), "de_DE");
    EXPECT_EQ(localeName("", "fr_FR@euro", "it_IT"), "fr_FR");
    EXPECT_EQ(localeName(nullptr, "", "it"), "it");
    EXPECT_EQ(localeName("C", "fr_FR", "it_IT"), "en");
    EXPECT_EQ(localeName("zh-Hant-TW", nullptr, nullptr), "zh-Hant-TW");
    for (const char* other : {"C.UTF-8", "POSIX", "../../etc/passwd", "de/DE", "d e", "\xC3\xA9", ".UTF-8", "@euro",
                              "a;b", "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx"}) {
        EXPECT_EQ(localeName(other, nullptr, nullptr), "en") << other;
    }
    EXPECT_FALSE(fl::i18n::VkLocale::global().name().empty());
    EXPECT_EQ(fl::i18n::VkLocale("de_AT").name(), "de_AT");
}
