#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

namespace {

using namespace testsupport;

TEST(WireText, FindsFieldsByNameInAnyCase) {
    const std::string head = "GET / HTTP/1.1\r\nHost: h:1\r\nX-A:   1 \r\nx-a: 2\r\nEmpty:\r\n\r\n";
    EXPECT_EQ(fieldValue(head, "host"), "h:1");
    EXPECT_EQ(fieldValue(head, "X-A"), "1 ");
    EXPECT_EQ(fieldValue(head, "Empty"), "");
    EXPECT_EQ(fieldValue(head, "Other"), std::nullopt);
    EXPECT_EQ(fieldLines(head).size(), 4U);
}

TEST(WireText, DifferenceNamesTheFirstPlace) {
    EXPECT_EQ(difference("abc", "abc"), "");
    EXPECT_EQ(difference("abx", "abc"), "3 bytes where 3 were expected; first difference at 2");
    EXPECT_EQ(difference("ab", "abc"), "2 bytes where 3 were expected; first difference at 2");
}

} // namespace
