#include "tests/support/server/WireText.h"

#include "tests/support/server/ChunkedReader.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using namespace testsupport;

TEST(WireText, FindsFieldsByNameInAnyCase) {
    const std::string head = "GET / HTTP/1.1\r\nHost: h:1\r\nX-A:   1 \r\nx-a: 2\r\nEmpty:\r\n\r\n";
    EXPECT_EQ(startLine(head), "GET / HTTP/1.1");
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

TEST(ChunkedReader, ReadsWhatChunkedWrites) {
    const std::string body = patternedBytes(5000);
    std::string pending = chunked(body, 999) + "rest";
    ChunkedReader reader;
    EXPECT_TRUE(reader.take(pending));
    EXPECT_EQ(difference(reader.content(), body), "");
    EXPECT_EQ(reader.chunkSizes(), (std::vector<std::size_t>{999, 999, 999, 999, 999, 5}));
    EXPECT_EQ(pending, "rest");
}

TEST(ChunkedReader, ReadsByteByByte) {
    const std::string wire = "3;name=value\r\nabc\r\n1\r\nd\r\n0\r\nTrailer: x\r\n\r\n";
    ChunkedReader reader;
    std::string pending;
    for (std::size_t i = 0; i < wire.size(); ++i) {
        pending += wire[i];
        EXPECT_EQ(reader.take(pending), i + 1 == wire.size()) << i;
    }
    EXPECT_EQ(reader.content(), "abcd");
}

TEST(ChunkedReader, RefusesWhatIsNotChunked) {
    for (const char* wire : {"zz\r\n", "\r\n", "1\r\nab\r\n"}) {
        std::string pending = wire;
        ChunkedReader reader;
        EXPECT_THROW(reader.take(pending), std::runtime_error) << wire;
    }
}

} // namespace
