// What of a server's bytes is a whole response, and what is not.
#include "tests/support/server/ResponseReading.h"

#include <gtest/gtest.h>

#include <ostream>

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
void PrintTo(const Row& row, std::ostream* stream) {
    *stream << row.Name;
}

constexpr StreamEnd Open = StreamEnd::Open;
constexpr StreamEnd Closed = StreamEnd::Closed;
constexpr StreamEnd Reset = StreamEnd::Reset;
const std::string Ok = "HTTP/1.1 200 OK\r\n";
const std::string Chunks = Ok + "Transfer-Encoding: chunked\r\n\r\n";
const std::string Three = Ok + "Content-Length: 3\r\n\r\nabc";

// clang-format off
const Row kRows[] = {
    {"Length",               Three,                                                     Open,   "GET",  "", 200, "abc"},
    {"LengthThenReset",      Three,                                                     Reset,  "GET",  "", 200, "abc"},
    {"LengthCut",            Ok + "Content-Length: 3\r\n\r\nab",                        Closed, "GET",  "content of the announced length", 200, "ab"},
    {"LengthBeyondAll",      Ok + "Content-Length: 99999999999999999999\r\n\r\nab",     Closed, "GET",  "content of the announced length", 200, "ab"},
    {"LengthsThatDiffer",    Ok + "Content-Length: 3\r\nContent-Length: 4\r\n\r\nabc",  Closed, "GET",  "content of the announced length", 200, "abc"},
    {"LengthsInOneLine",     Ok + "Content-Length: 4, 3\r\n\r\nabc",                    Closed, "GET",  "content of the announced length", 200, "abc"},
    {"LengthWithoutNumber",  Ok + "Content-Length:\r\n\r\nabc",                         Closed, "GET",  "content of the announced length", 200, "abc"},
    {"UntilClose",           Ok + "\r\nabc",                                            Closed, "GET",  "", 200, "abc"},
    {"UntilReset",           Ok + "\r\nabc",                                            Reset,  "GET",  "the close that ends the content", 200, "abc"},
    {"NotClosed",            Ok + "\r\nabc",                                            Open,   "GET",  "the close that ends the content", 200, "abc"},
    {"Chunks",               Chunks + "1\r\na\r\n02;x=y\r\nbc\r\n0\r\n\r\n",            Open,   "GET",  "", 200, "abc"},
    {"Trailers",             Chunks + "3\r\nabc\r\n0\r\nA: b\r\n\r\n",                  Open,   "GET",  "", 200, "abc"},
    {"TrailersCut",          Chunks + "3\r\nabc\r\n0\r\nA: b\r\n",                      Closed, "GET",  "the end of the trailers", 200, "abc"},
    {"LineFeedCut",          Chunks + "3\r\nabc\r\n0\r\n\r",                           Closed, "GET",  "", 200, "abc"},
    {"LineFeedReset",        Chunks + "3\r\nabc\r\n0\r\n\r",                           Reset,  "GET",  "the end of the trailers", 200, "abc"},
    {"StatusLineInAnyCase",  "HtTP/1.1 404 Not Found\r\n\r\n",                          Closed, "GET",  "", 200, ""},
    {"ChunkCut",             Chunks + "3\r\nab",                                        Closed, "GET",  "the rest of a chunk", 200, "ab"},
    {"ChunkEndCut",          Chunks + "3\r\nabc\r",                                     Closed, "GET",  "the end of a chunk", 200, "abc"},
    {"ChunkTooLong",         Chunks + "3\r\nabcd\r\n0\r\n\r\n",                         Closed, "GET",  "the end of a chunk", 200, "abc"},
    {"LastChunkMissing",     Chunks + "3\r\nabc\r\n",                                   Closed, "GET",  "the size of a chunk", 200, "abc"},
    {"CloseBeforeLength", Ok + "Content-Length: 9\r\nTransfer-Encoding: x\r\n\r\nabc", Closed, "GET", "", 200, "abc"},
    {"ChunksBeforeLength",   Ok + "Content-Length: 9\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", Open, "GET", "", 200, ""},
    {"FoldedChunks",         Ok + "Transfer-Encoding:\r\n chunked\r\n\r\n3\r\nabc",     Closed, "GET",  "the end of a chunk", 200, "abc"},
    {"BareLineFeeds",        "HTTP/1.1 200 OK\nContent-Length: 1\n\na",                 Open,   "GET",  "", 200, "a"},
    {"NothingAtAll",         "",                                                        Closed, "GET",  "the end of the head", 0, ""},
    {"NoResponse",           "hello\r\n\r\n",                                           Closed, "GET",  "the end of the head", 0, ""},
    {"HeadCut",              "HTTP/1.1 404 Not Found\r\nA: b\r\n",                      Closed, "GET",  "the end of the head", 0, ""},
    {"InterimOnly",          "HTTP/1.1 103 Early Hints\r\n\r\n",                        Closed, "GET",  "the end of the head", 103, ""},
    {"InterimBefore",        "HTTP/1.1 100 Continue\r\n\r\n" + Three,                   Open,   "PUT",  "", 200, "abc"},
    {"Switching",            "HTTP/1.1 101 Switching\r\n\r\n",                          Closed, "GET",  "", 101, ""},
    {"NoContent",            "HTTP/1.1 204 No Content\r\nContent-Length: 3\r\n\r\n",    Open,   "GET",  "", 204, ""},
    {"NotModified",          "HTTP/1.1 304 Not Modified\r\nContent-Length: 3\r\n\r\n",  Open,   "GET",  "", 304, ""},
    {"Head",                 Ok + "Content-Length: 3\r\n\r\n",                          Open,   "HEAD", "", 200, ""},
    {"HeadOnlyCut",          Ok + "Content-Length: 3\r\n",                              Closed, "HEAD", "the end of the head", 0, ""},
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
    EXPECT_EQ(readResponse(first + Three, Open, "GET").Length, first.size());
    EXPECT_EQ(readResponse(first + Three, Open, "GET", 2).Content, "abc");
    EXPECT_FALSE(readResponse(first, Open, "GET", 2).Whole);
    EXPECT_EQ(readResponse(first.substr(0, first.size() - 1), Closed, "GET", 2).Status, 401);
}

TEST(ResponseReading, GivesTheLinesOfTheFinalHead) {
    const auto reading =
        readResponse("HTTP/1.1 103 Hints\r\nLink: a\r\n\r\n" + Chunks + "0\r\nA: b\r\n\r\n", Open, "GET");
    EXPECT_EQ(reading.Head, (std::vector<std::string>{"HTTP/1.1 200 OK", "Transfer-Encoding: chunked"}));
}

TEST(ResponseReading, TellsOfCodings) {
    EXPECT_TRUE(readResponse(Ok + "Content-Encoding: gzip\r\nContent-Length: 0\r\n\r\n", Open, "GET").Coded);
    EXPECT_TRUE(readResponse(Ok + "Transfer-Encoding: gzip, chunked\r\n\r\n0\r\n\r\n", Open, "GET").Coded);
    EXPECT_FALSE(readResponse(Ok + "Content-Encoding: identity\r\nContent-Length: 0\r\n\r\n", Open, "GET").Coded);
}

} // namespace
} // namespace testsupport
