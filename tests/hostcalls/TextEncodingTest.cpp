#include "hostcalls/TextEncoding.h"

#include "tests/support/host/FailureText.h"
#include "tests/support/host/ScopeFixture.h"

#include <gmock/gmock.h>

using namespace netrove;

namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::Not;
using testing::StartsWith;
using testsupport::failureText;
using TextEncodingTest = testsupport::ScopeFixture;

TEST_F(TextEncodingTest, EmptyNameIsAscii) {
    EXPECT_EQ(toNarrow(u"http://h/a?b#c~", ""), "http://h/a?b#c~");
    EXPECT_EQ(toNarrow(u"", ""), "");
}

TEST_F(TextEncodingTest, NamedEncodingsAreUsedWhateverTheirCase) {
    EXPECT_EQ(toNarrow(u"\u00E4\U0001F600", "UTF-8"), "\xC3\xA4\xF0\x9F\x98\x80");
    EXPECT_EQ(toNarrow(u"\u20AC", "windows-1252"), "\x80");
    EXPECT_EQ(toNarrow(u"\u00E4", "iso-8859-1"), "\xE4");
}

// A refused character never becomes another one; the failure says what the converter said.
TEST_F(TextEncodingTest, RefusalHasTheTextTheEncodingAndItsReason) {
    const std::string refused = "VANTIK:webservices:EncodingFailure";
    const auto starts = [&](const std::string& arguments) {
        return AllOf(StartsWith(refused + arguments), Not(EndsWith("N:]")));
    };
    EXPECT_THAT(failureText([] { toNarrow(u"\u00E4", ""); }), starts("[U:\u00E4, N:ascii, N:"));
    EXPECT_THAT(failureText([] { toNarrow(u"a\u4E2D", "windows-1252"); }), starts("[U:a\u4E2D, N:windows-1252, N:"));
    EXPECT_THAT(failureText([] { toNarrow(u"a", "no-such-thing"); }), starts("[U:a, N:no-such-thing, N:"));
}

} // namespace
