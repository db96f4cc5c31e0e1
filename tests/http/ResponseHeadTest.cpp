#include "http/ResponseHead.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace netrove;

namespace {

using Lines = std::vector<std::string>;

ResponseHead headWith(const Lines& fields) {
    ResponseHead head;
    head.ResponseHeaderLines = {"HTTP/1.1 200 OK"};
    head.ResponseHeaderLines.insert(head.ResponseHeaderLines.end(), fields.begin(), fields.end());
    return head;
}

TEST(ResponseHead, TellsWhetherItsLengthIsClear) {
    for (const Lines& fields :
         std::vector<Lines>{{},
                            {"Content-Length: 0"},
                            {"Content-Length: 9223372036854775807"},
                            {"Content-Length: 5", "content-length:5 "},
                            {"Content-Length: 5, 5"},
                            {"Content-Length: 5", "Content-Length: 6", "Transfer-Encoding: chunked"},
                            {"X-Folded: a", " b", "Content-Length: 5"}}) {
        EXPECT_FALSE(headWith(fields).lengthIsUnclear()) << ::testing::PrintToString(fields);
    }
    for (const Lines& fields : std::vector<Lines>{{"Content-Length: 5", "Content-Length: 6"},
                                                  {"Content-Length: 5, 6"},
                                                  {"Content-Length: 5, "},
                                                  {"Content-Length:"},
                                                  {"Content-Length: -5"},
                                                  {"Content-Length: +5"},
                                                  {"Content-Length: 5;x"},
                                                  {"Content-Length: 9223372036854775808"},
                                                  {"Content-Length: 5", " 6"},
                                                  {"Transfer-Encoding:", "\tchunked"}}) {
        EXPECT_TRUE(headWith(fields).lengthIsUnclear()) << ::testing::PrintToString(fields);
    }
}

TEST(ResponseHead, TellsTheFramingOfItsContent) {
    EXPECT_EQ(headWith({"Content-Length: 5", "Content-Length: 5"}).contentLength(), 5);
    EXPECT_EQ(headWith({"Content-Length: 5", "Content-Length: 6"}).contentLength(), -1);
    EXPECT_EQ(headWith({}).contentLength(), -1);
    EXPECT_TRUE(headWith({"Transfer-Encoding: gzip, Chunked"}).isChunked());
    EXPECT_FALSE(headWith({"Transfer-Encoding: gzip"}).isChunked());
    EXPECT_FALSE(headWith({}).isChunked());
}

TEST(ResponseHead, TellsHowItsContentIsEncoded) {
    struct Row {
        Lines Fields;
        bool IsGzip;
        bool ExpandsLittle;
    };
    for (const Row& row : std::vector<Row>{{{}, false, true},
                                           {{"Content-Encoding: identity"}, false, true},
                                           {{"Content-Encoding: GZIP", "Transfer-Encoding: chunked"}, true, true},
                                           {{"Content-Encoding: x-gzip"}, true, true},
                                           {{"Transfer-Encoding: gzip, chunked"}, false, true},
                                           {{"Content-Encoding: deflate"}, false, true},
                                           {{"Content-Encoding: br"}, false, false},
                                           {{"Content-Encoding: zstd"}, false, false},
                                           {{"Content-Encoding: gzip, gzip"}, false, false},
                                           {{"Content-Encoding: gzip", "Content-Encoding: gzip"}, false, false},
                                           {{"Content-Encoding: gzip", "Transfer-Encoding: gzip"}, false, false}}) {
        EXPECT_EQ(headWith(row.Fields).isGzip(), row.IsGzip) << ::testing::PrintToString(row.Fields);
        EXPECT_EQ(headWith(row.Fields).expandsLittle(), row.ExpandsLittle) << ::testing::PrintToString(row.Fields);
    }
}

} // namespace
