#include "http/ResponseHead.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

using namespace netrove;

namespace {

using Lines = std::vector<std::string>;
using End = ResponseHead::End;

ResponseHead headWith(const Lines& fields) {
    ResponseHead head;
    head.ResponseHeaderLines = {"HTTP/1.1 200 OK"};
    head.ResponseHeaderLines.insert(head.ResponseHeaderLines.end(), fields.begin(), fields.end());
    return head;
}

template <class Act>
std::string refusalOf(Act act) {
    try {
        act();
    } catch (const MalformedHead& failure) {
        return failure.Text;
    }
    return "";
}

TEST(ResponseHead, BlankLineEndsWhatStatusAndMethodSay) {
    struct Row {
        const char* Method;
        std::int32_t Status;
        End Ended;
    };
    for (const auto& [method, status, ended] : {
             Row{"GET", 100, End::Passing},
             Row{"CONNECT", 100, End::Passing},
             Row{"GET", 101, End::Final},
             Row{"GET", 102, End::Interim},
             Row{"GET", 199, End::Interim},
             Row{"GET", 200, End::Final},
             Row{"", 200, End::Final},
             Row{"CONNECT", 200, End::Passing},
             Row{"connect", 200, End::Passing},
             Row{"CONNECTX", 200, End::Final},
             Row{"CONNECT", 201, End::Final},
             Row{"CONNECT", 407, End::Final},
             Row{"GET", 302, End::Final},
             Row{"GET", 500, End::Final},
             Row{"GET", 0, End::Final},
         }) {
        SCOPED_TRACE(method + (' ' + std::to_string(status)));
        ResponseHead head = headWith({"X-A: b"});
        head.ResponseCode = status;
        EXPECT_EQ(head.end(method), ended);
        EXPECT_EQ(head.HeadersComplete, ended == End::Final);
        EXPECT_EQ(head.HasInterim, ended == End::Interim);
        EXPECT_EQ(head.isCut(), ended != End::Final);
        EXPECT_EQ(head.ResponseHeaderLines.size(), 2U);
        EXPECT_EQ(head.end(method) == End::Trailer, ended == End::Final);
    }
}

TEST(ResponseHead, StatusIsReadFromTheLineOnlyWhereLibcurlHasNone) {
    struct Row {
        long Reported;
        const char* Line;
        std::int32_t Status;
    };
    for (const auto& [reported, line, status] :
         {Row{418, "HTTP/1.1 200 OK", 418}, Row{0, "HTTP/1.1 200 OK", 200}, Row{0, "HTTP/1.1   204", 204},
          Row{0, "HTTP/1.1 20x OK", 20}, Row{0, "HTTP/1.1 OK", 0}, Row{0, "HTTP/1.1", 0}, Row{0, "X-A: 301", 301},
          Row{0, " 7", 7}, Row{0, "a -5", -5}, Row{0, "a ", 0}, Row{0, "a \t 12", 12},
          Row{0, "a 2147483647", 2147483647}}) {
        ResponseHead head;
        head.ResponseCode = 999;
        head.takeStatus(reported, line);
        EXPECT_EQ(head.ResponseCode, status) << line;
    }
}

TEST(ResponseHead, RefusesStatusOutOfRangeAndLinesWithoutEndAndKeepsWhatItHas) {
    ResponseHead head;
    head.ResponseCode = 200;
    head.keep("HTTP/1.1 200 OK\r\n");
    EXPECT_EQ(refusalOf([&] { head.takeStatus(0, "HTTP/1.1 4294967496 OK"); }),
              "Could not convert response code 4294967496");
    EXPECT_EQ(refusalOf([&] { head.takeStatus(0, "HTTP/1.1 99999999999999999999 OK"); }),
              "Could not convert response code " + std::to_string(std::numeric_limits<long>::max()));
    for (const char* line : {"", "\n", "\r", "X", "X-A: b", "X-A: b\n", "X-A: b\r", "\n\r", "X\n\n"}) {
        EXPECT_EQ(refusalOf([&] { head.keep(line); }), "CRLF not found at the end of the received headers") << line;
    }
    head.keep("X-A: b\r\n");
    EXPECT_EQ(head.ResponseCode, 200);
    EXPECT_EQ(head.ResponseHeaderLines, (Lines{"HTTP/1.1 200 OK", "X-A: b"}));
}

TEST(ResponseHead, LinesAreCountedUntilTheNextExchange) {
    ResponseHead head;
    EXPECT_TRUE(head.count(ResponseHead::kLargestSize - 1));
    EXPECT_TRUE(head.count(1));
    EXPECT_FALSE(head.count(1));
    head.begin();
    EXPECT_TRUE(head.count(ResponseHead::kLargestSize));
}

TEST(ResponseHead, FieldsAreFoundAfterTheStatusLineWhichHoldsTheReason) {
    ResponseHead head;
    EXPECT_EQ(head.getResponseField("X-A"), "");
    EXPECT_EQ(head.reasonPhrase(), "");
    head.ResponseHeaderLines = {"X-A: status line", "X-B: b c d"};
    EXPECT_EQ(head.getResponseField("X-A"), "");
    EXPECT_EQ(head.reasonPhrase(), "line");
    head = headWith({"x-a:   b : c ", "X-A: second", "X-B:\tt", "X-C", "X-E:   ", "X-F : g"});
    EXPECT_EQ(head.getResponseField("X-A"), "b : c "); // blanks are only dropped in front
    EXPECT_EQ(head.getResponseField("X-B"), "\tt");    // and only blanks
    EXPECT_EQ(head.getResponseField("X-C"), "");
    EXPECT_EQ(head.getResponseField("X-E"), "");
    EXPECT_EQ(head.getResponseField("X-F"), ""); // the blank belongs to the name
    EXPECT_EQ(head.getResponseField("X-F "), "g");
    EXPECT_EQ(head.getResponseField("X-Missing"), "");
}

// What its fields say of the content's length and framing.
TEST(ResponseHead, SaysHowItsContentIsFramed) {
    struct Row {
        Lines Fields;
        std::int64_t Length = -1;
        bool IsUnclear = false;
        bool IsChunked = false;
    };
    const Row rows[] = {
        {{}},
        {{"Content-Length: 0"}, 0},
        {{"Content-Length: 9223372036854775807"}, std::numeric_limits<std::int64_t>::max()},
        {{"Content-Length: 5", "content-length:5 "}, 5},
        {{"Content-Length: 5, 5"}, 5},
        {{"X-Folded: a", " b", "Content-Length: 5"}, 5},
        {{"Content-Length: 5", "Content-Length: 6", "Transfer-Encoding: chunked"}, -1, false, true},
        {{"Transfer-Encoding: gzip, Chunked"}, -1, false, true},
        {{"Transfer-Encoding: gzip"}},
        {{"Content-Length: 5", "Content-Length: 6"}, -1, true},
        {{"Content-Length: 5, 6"}, -1, true},
        {{"Content-Length: 5, "}, -1, true},
        {{"Content-Length:"}, -1, true},
        {{"Content-Length: -5"}, -1, true},
        {{"Content-Length: +5"}, -1, true},
        {{"Content-Length: 5;x"}, -1, true},
        {{"Content-Length: 9223372036854775808"}, -1, true},
        {{"Content-Length: 5", " 6"}, 5, true},
        {{"Transfer-Encoding:", "\tchunked"}, -1, true},
    };
    for (const auto& [fields, length, isUnclear, isChunked] : rows) {
        SCOPED_TRACE(::testing::PrintToString(fields));
        EXPECT_EQ(headWith(fields).contentLength(), length);
        EXPECT_EQ(headWith(fields).lengthIsUnclear(), isUnclear);
        EXPECT_EQ(headWith(fields).isChunked(), isChunked);
    }
}

TEST(ResponseHead, SaysHowItsContentIsEncoded) {
    struct Row {
        Lines Fields;
        bool IsGzip;
        bool ExpandsLittle;
        bool IsEncoded = true;
    };
    for (const Row& row : std::vector<Row>{{{}, false, true, false},
                                           {{"Content-Encoding: identity"}, false, true, false},
                                           {{"Transfer-Encoding: chunked"}, false, true, false},
                                           {{"Content-Encoding:"}, false, true, false},
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
        EXPECT_EQ(headWith(row.Fields).isEncoded(), row.IsEncoded) << ::testing::PrintToString(row.Fields);
    }
}

} // namespace
