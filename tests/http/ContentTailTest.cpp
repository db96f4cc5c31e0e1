#include "http/ContentTail.h"

#include <gtest/gtest.h>

#include <string>

using namespace netrove;

namespace {

// The end of gzip data: a sum that nobody looks at here, and the length of what was compressed.
const std::string kEndOfAThousand("data\xe8\x03\x00\x00", 8);

struct Row {
    const char* Name;
    bool IsChunked;
    std::int64_t Length;
    std::string Wire;
    std::uint64_t Decoded;
    bool Contradicts;
};

class ContentTailTest : public ::testing::TestWithParam<Row> {};

TEST_P(ContentTailTest, ComparesTheLengthsHoweverTheBytesCome) {
    const Row& row = GetParam();
    for (std::size_t piece = 1; piece <= row.Wire.size() + 1; ++piece) {
        ContentTail tail;
        tail.begin(!row.IsChunked, 3); // of a head before this one
        tail.take("4\r\nabcd");
        tail.begin(row.IsChunked, row.Length);
        for (std::size_t start = 0; start < row.Wire.size(); start += piece) {
            tail.take(std::string_view(row.Wire).substr(start, piece));
        }
        tail.noteDecoded(row.Decoded / 2);
        tail.noteDecoded(row.Decoded - row.Decoded / 2);
        EXPECT_EQ(tail.contradictsGzip(), row.Contradicts) << "in pieces of " << piece;
    }
}

const Row kRows[] = {
    {"Whole", false, 8, kEndOfAThousand, 1000, false},
    {"WholeUntilTheClose", false, -1, kEndOfAThousand, 1000, false},
    {"WholeBeyond32Bits", false, 8, kEndOfAThousand, (std::uint64_t{1} << 32) + 1000, false},
    {"Cut", false, 7, kEndOfAThousand.substr(0, 7), 1000, true},
    {"CutUntilTheClose", false, -1, kEndOfAThousand.substr(0, 5), 900, true},
    {"MoreAfterIt", false, 10, kEndOfAThousand + "xy", 1000, true},
    {"MoreThanTheAnnouncedLength", false, 8, kEndOfAThousand + "HTTP/1.1 200", 1000, false},
    {"Nothing", false, 0, "", 0, false},
    {"AsLongAsItCame", false, 8, "12345678", 8, true},
    {"OneChunk", true, -1, "8\r\n" + kEndOfAThousand + "\r\n0\r\n\r\n", 1000, false},
    {"ManyChunks", true, -1,
     "4;x=8\r\n" + kEndOfAThousand.substr(0, 4) + "\r\n003\r\n" + kEndOfAThousand.substr(4, 3) + "\r\n1\r\n" +
         kEndOfAThousand.substr(7) + "\r\n0\r\nX-Sum: 1\r\n\r\n",
     1000, false},
    {"LongChunk", true, -1, "1C\r\n" + std::string(20, '\n') + kEndOfAThousand + "\r\n00\r\n\r\n", 1000, false},
    {"CutInAChunk", true, -1, "7\r\n" + kEndOfAThousand.substr(0, 7) + "\r\n0\r\n\r\n", 1000, true},
};

INSTANTIATE_TEST_SUITE_P(kRows, ContentTailTest, ::testing::ValuesIn(kRows),
                         [](const auto& info) { return info.param.Name; });

} // namespace
