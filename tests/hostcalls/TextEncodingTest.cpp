#include "hostcalls/TextEncoding.h"

#include "tests/support/host/FailureText.h"
#include "tests/support/host/ScopeFixture.h"

#include <gmock/gmock.h>

using namespace netrove;

namespace {

using testsupport::failureText;
using TextEncodingTest = testsupport::ScopeFixture;

TEST_F(TextEncodingTest, EmptyNameIsAscii) {
    EXPECT_EQ(toNarrow(u"http://h/a?b#c~", ""), "http://h/a?b#c~");
    EXPECT_EQ(toNarrow(u"", ""), "");
    EXPECT_THAT(failureText([] { toNarrow(u"\u00E4", ""); }),
                ::testing::StartsWith("VANTIK:webservices:EncodingFailure[U:\u00E4, N:ascii, N:"));
}

TEST_F(TextEncodingTest, NamedEncodingsAreUsedWhateverTheirCase) {
    EXPECT_EQ(toNarrow(u"\u00E4\U0001F600", "UTF-8"), "\xC3\xA4\xF0\x9F\x98\x80");
    EXPECT_EQ(toNarrow(u"\u20AC", "windows-1252"), "\x80");
    EXPECT_EQ(toNarrow(u"\u00E4", "iso-8859-1"), "\xE4");
}

TEST_F(TextEncodingTest, RefusedCharacterNeverBecomesAnotherOne) {
    EXPECT_THAT(failureText([] { toNarrow(u"a\u4E2D", "windows-1252"); }),
                ::testing::StartsWith("VANTIK:webservices:EncodingFailure[U:a\u4E2D, N:windows-1252, N:"));
}

TEST_F(TextEncodingTest, UnknownEncodingIsRefusedByName) {
    EXPECT_THAT(failureText([] { toNarrow(u"a", "no-such-thing"); }),
                ::testing::StartsWith("VANTIK:webservices:EncodingFailure[U:a, N:no-such-thing, N:"));
}

TEST_F(TextEncodingTest, FailureTellsWhatTheConverterSaid) {
    EXPECT_THAT(failureText([] { toNarrow(u"\u00E4", ""); }), ::testing::Not(::testing::EndsWith("N:]")));
}

} // namespace
