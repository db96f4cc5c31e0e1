// What of a server's bytes is a whole response, and what is not.
#include "tests/support/server/ResponseReading.h"

#include <gtest/gtest.h>

namespace testsupport {
namespace {

struct Row {
    const char* Name;
    std::string Bytes;
    StreamEnd End;
    const char* Method;
    const char* Missing; // empty: whole
    int Status;
    const char* Content;
};

constexpr StreamEnd kOpen = StreamEnd::Open;
constexpr StreamEnd kClosed = StreamEnd::Closed;
constexpr StreamEnd kReset = StreamEnd::Reset;
const std::string kOk = "HTTP/1.1 200 OK\r\n";
const std::string kChunks = kOk + "Transfer-Encoding: chunked\r\n\r\n";
const std::string kThree = kOk + "Content-Length: 3\r\n\r\nabc";

// clang-format off
const Row kRows[] = {
    {"Length",               kThree,                                                     kOpen,   "GET",  "", 200, "abc"},
    {"LengthThenReset",      kThree,                                                     kReset,  "GET",  "", 200, "abc"},
    {"LengthCut",            kOk + "Content-Length: 3\r\n\r\nab",                        kClosed, "GET",  "content of the announced length", 200, "ab"},
    {"LengthBeyondAll",      kOk + "Content-Length: 99999999999999999999\r\n\r\nab",     kClosed, "GET",  "content of the announced length", 200, "ab"},
    {"LengthsThatDiffer",    kOk + "Content-Length: 3\r\nContent-Length: 4\r\n\r\nabc",  kClosed, "GET",  "content of the announced length", 200, "abc"},
    {"LengthsInOneLine",     kOk + "Content-Length: 4, 3\r\n\r\nabc",                    kClosed, "GET",  "content of the announced length", 200, "abc"},
    {"LengthWithoutNumber",  kOk + "Content-Length:\r\n\r\nabc",                         kClosed, "GET",  "content of the announced length", 200, "abc"},
    {"UntilClose",           kOk + "\r\nabc",                                            kClosed, "GET",  "", 200, "abc"},
    {"UntilReset",           kOk + "\r\nabc",                                            kReset,  "GET",  "the close that ends the content", 200, "abc"},
    {"NotClosed",            kOk + "\r\nabc",                                            kOpen,   "GET",  "the close that ends the content", 200, "abc"},
    {"Chunks",               kChunks + "1\r\na\r\n02;x=y\r\nbc\r\n0\r\n\r\n",            kOpen,   "GET",  "", 200, "abc"},
    {"Trailers",             kChunks + "3\r\nabc\r\n0\r\nA: b\r\n\r\n",                  kOpen,   "GET",  "", 200, "abc"},
    {"TrailersCut",          kChunks + "3\r\nabc\r\n0\r\nA: b\r\n",                      kClosed, "GET",  "the end of the trailers", 200, "abc"},
    {"LineFeedCut",          kChunks + "3\r\nabc\r\n0\r\n\r",                           kClosed, "GET",  "", 200, "abc"},
    {"LineFeedReset",        kChunks + "3\r\nabc\r\n0\r\n\r",                           kReset,  "GET",  "the end of the trailers", 200, "abc"},
    {"StatusLineInAnyCase",  "HtTP/1.1 404 Not Found\r\n\r\n",                          kClosed, "GET",  "", 200, ""},
    {"ChunkCut",             kChunks + "3\r\nab",                                        kClosed, "GET",  "the rest of a chunk", 200, "ab"},
    {"ChunkEndCut",          kChunks + "3\r\nabc\r",                                     kClosed, "GET",  "the end of a chunk", 200, "abc"},
    {"ChunkTooLong",         kChunks + "3\r\nabcd\r\n0\r\n\r\n",                         kClosed, "GET",  "the end of a chunk", 200, "abc"},
    {"LastChunkMissing",     kChunks + "3\r\nabc\r\n",                                   kClosed, "GET",  "the size of a chunk", 200, "abc"},
    {"CloseBeforeLength", kOk + "Content-Length: 9\r\nTransfer-Encoding: x\r\n\r\nabc", kClosed, "GET", "", 200, "abc"},
    {"ChunksBeforeLength",   kOk + "Content-Length: 9\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", kOpen, "GET", "", 200, ""},
    {"FoldedChunks",         kOk + "Transfer-Encoding:\r\n chunked\r\n\r\n3\r\nabc",     kClosed, "GET",  "the end of a chunk", 200, "abc"},
    {"BareLineFeeds",        "HTTP/1.1 200 OK\nContent-Length: 1\n\na",                 kOpen,   "GET",  "", 200, "a"},
    {"NothingAtAll",         "",                                                        kClosed, "GET",  "the end of the head", 0, ""},
    {"NoResponse",           "hello\r\n\r\n",                                           kClosed, "GET",  "the end of the head", 0, ""},
    {"HeadCut",              "HTTP/1.1 404 Not Found\r\nA: b\r\n",                      kClosed, "GET",  "the end of the head", 0, ""},
    {"InterimOnly",          "HTTP/1.1 103 Early Hints\r\n\r\n",                        kClosed, "GET",  "the end of the head", 103, ""},
    {"InterimBefore",        "HTTP/1.1 100 Continue\r\n\r\n" + kThree,                   kOpen,   "PUT",  "", 200, "abc"},
    {"Switching",            "HTTP/1.1 101 Switching\r\n\r\n",                          kClosed, "GET",  "", 101, ""},
    {"NoContent",            "HTTP/1.1 204 No Content\r\nContent-Length: 3\r\n\r\n",    kOpen,   "GET",  "", 204, ""},
    {"NotModified",          "HTTP/1.1 304 Not Modified\r\nContent-Length: 3\r\n\r\n",  kOpen,   "GET",  "", 304, ""},
    {"Head",                 kOk + "Content-Length: 3\r\n\r\n",                          kOpen,   "HEAD", "", 200, ""},
    {"HeadOnlyCut",          kOk + "Content-Length: 3\r\n",                              kClosed, "HEAD", "the end of the head", 0, ""},
};
// clang-format on

class ResponseReadingTable : public ::testing::TestWithParam<Row> {};

TEST_P(ResponseReadingTable, SaysWhatIsMissing) {
    const Row& row = GetParam();
    const ResponseReading reading = readResponse(row.Bytes, row.End, row.Method);
    EXPECT_EQ(reading.Missing, row.Missing);
    EXPECT_EQ(reading.Whole, reading.Missing.empty());
    EXPECT_EQ(reading.Status, row.Status);
    EXPECT_EQ(reading.Content, row.Content);
}

INSTANTIATE_TEST_SUITE_P(Rows, ResponseReadingTable, ::testing::ValuesIn(kRows),
                         [](const auto& info) { return std::string(info.param.Name); });

TEST(ResponseReading, GoesOnAfterTheFirst) {
    const std::string first = "HTTP/1.1 401 Unauthorized\r\nContent-Length: 1\r\n\r\nx";
    EXPECT_EQ(readResponse(first + kThree, kOpen, "GET").Length, first.size());
    EXPECT_EQ(readResponse(first + kThree, kOpen, "GET", 2).Content, "abc");
    EXPECT_FALSE(readResponse(first, kOpen, "GET", 2).Whole);
    EXPECT_EQ(readResponse(first.substr(0, first.size() - 1), kClosed, "GET", 2).Status, 401);
}

TEST(ResponseReading, ReturnsTheLinesOfTheFinalHead) {
    const auto reading =
        readResponse("HTTP/1.1 103 Hints\r\nLink: a\r\n\r\n" + kChunks + "0\r\nA: b\r\n\r\n", kOpen, "GET");
    EXPECT_EQ(reading.Head, (std::vector<std::string>{"HTTP/1.1 200 OK", "Transfer-Encoding: chunked"}));
}

TEST(ResponseReading, ReportsCodings) {
    EXPECT_TRUE(readResponse(kOk + "Content-Encoding: gzip\r\nContent-Length: 0\r\n\r\n", kOpen, "GET").Coded);
    EXPECT_TRUE(readResponse(kOk + "Transfer-Encoding: gzip, chunked\r\n\r\n0\r\n\r\n", kOpen, "GET").Coded);
    EXPECT_FALSE(readResponse(kOk + "Content-Encoding: identity\r\nContent-Length: 0\r\n\r\n", kOpen, "GET").Coded);
}

} // namespace
} // namespace testsupport
