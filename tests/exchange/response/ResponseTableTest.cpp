// What a server sends and what the caller gets, as a table; each row whole and in single bytes.
#include "tests/support/host/HostFixture.h"
#include "tests/support/server/WireText.h"
#include "vantik/HostClass.h"

#include <gtest/gtest.h>

#include <ostream>
#include <tuple>

namespace {

using namespace testsupport;
using vantik::Object;

// "hello hello hello hello" as gzip.
const std::string kGzipped(
    "\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\x03\xcb\x48\xcd\xc9\xc9\x57\xc8\x40\x27\x01\xe3\x51\x3d\x8d\x17\x00\x00\x00",
    28);

struct Row {
    const char* Name;
    std::string Sent; // after the request's head; then the server closes
    std::vector<std::string> StatusLine;
    std::string Body;
    std::vector<std::string> Fields;
    bool Partial = false; // the caller is warned
};

std::ostream& operator<<(std::ostream& stream, const Row& row) {
    return stream << row.Name;
}

std::vector<Row> rows() {
    const std::string big = patternedBytes(70000);
    return {
        {"ContentOfKnownLength", response("hello"), {"HTTP/1.1", "200", "OK"}, "hello", {"Content-Length: 5"}},
        {"NoContent", response(""), {"HTTP/1.1", "200", "OK"}, "", {"Content-Length: 0"}},
        {"ContentUntilTheClose", "HTTP/1.1 200 OK\r\n\r\nall of it", {"HTTP/1.1", "200", "OK"}, "all of it", {}},
        {"LargeContent", response(big), {"HTTP/1.1", "200", "OK"}, big, {"Content-Length: 70000"}},
        {"Chunks",
         "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + chunked("in several chunks", 4),
         {"HTTP/1.1", "200", "OK"},
         "in several chunks",
         {"Transfer-Encoding: chunked"}},
        {"ChunkExtensions",
         "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3;a=b\r\nabc\r\n0;last\r\n\r\n",
         {"HTTP/1.1", "200", "OK"},
         "abc",
         {"Transfer-Encoding: chunked"}},
        // A trailer's first line is taken for the start of a further head, which empties the one that was stored.
        {"TrailerLeavesTheHead",
         "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nX-A: 1\r\n\r\n3\r\nabc\r\n0\r\nX-T1: 1\r\nX-T2: 2\r\n\r\n",
         {"HTTP/1.1", "200", "OK"},
         "abc",
         {"Transfer-Encoding: chunked", "X-A: 1"}},
        {"InterimHead",
         "HTTP/1.1 100 Continue\r\nX-Dropped: 1\r\n\r\n" + response("after", {"X-Kept: 2"}),
         {"HTTP/1.1", "200", "OK"},
         "after",
         {"X-Kept: 2", "Content-Length: 5"}},
        {"SeveralHeads",
         "HTTP/1.1 103 Early Hints\r\nLink: x\r\n\r\nHTTP/1.1 102 Processing\r\n\r\n" + response("after"),
         {"HTTP/1.1", "200", "OK"},
         "after",
         {"Content-Length: 5"}},
        {"StatusWithoutContent",
         "HTTP/1.1 204 No Content\r\nX: y\r\n\r\n",
         {"HTTP/1.1", "204", "No Content"},
         "",
         {"X: y"}},
        {"NotModified",
         "HTTP/1.1 304 Not Modified\r\nETag: \"1\"\r\n\r\n",
         {"HTTP/1.1", "304", "Not Modified"},
         "",
         {"ETag: \"1\""}},
        {"NotFound",
         response("gone", {}, "404 Not Found"),
         {"HTTP/1.1", "404", "Not Found"},
         "gone",
         {"Content-Length: 4"}},
        {"LongReason",
         response("", {}, "599 All sorts of  trouble "),
         {"HTTP/1.1", "599", "All sorts of  trouble "},
         "",
         {"Content-Length: 0"}},
        {"EmptyReason",
         "HTTP/1.1 200 \r\nContent-Length: 1\r\n\r\nx",
         {"HTTP/1.1", "200", ""},
         "x",
         {"Content-Length: 1"}},
        {"NoReason", "HTTP/1.1 200\r\nContent-Length: 1\r\n\r\nx", {"HTTP/1.1", "200", ""}, "x", {"Content-Length: 1"}},
        // The version is that of the request line that was sent, not that of the answer.
        {"OlderVersion",
         "HTTP/1.0 200 OK\r\nContent-Length: 1\r\n\r\nx",
         {"HTTP/1.1", "200", "OK"},
         "x",
         {"Content-Length: 1"}},
        {"FieldsAsTheyStand",
         response("", {"A:1", "a:   2", "B: x:y", "C:\tt", "D: end  ", "E:", "F:   "}),
         {"HTTP/1.1", "200", "OK"},
         "",
         {"A: 1", "a: 2", "B: x:y", "C: \tt", "D: end  ", "E: ", "F: ", "Content-Length: 0"}},
        {"ShortContent",
         "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nfour",
         {"HTTP/1.1", "200", "OK"},
         "four",
         {"Content-Length: 10"},
         true},
        {"ChunksCutShort",
         "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n5\r\nwo",
         {"HTTP/1.1", "200", "OK"},
         "hellowo",
         {"Transfer-Encoding: chunked"},
         true},
        {"FailedStatusWithShortContent",
         "HTTP/1.1 502 Bad Gateway\r\nContent-Length: 10\r\n\r\nfour",
         {"HTTP/1.1", "502", "Bad Gateway"},
         "four",
         {"Content-Length: 10"},
         true},
        {"CompressedContent",
         response(kGzipped, {"Content-Encoding: gzip"}),
         {"HTTP/1.1", "200", "OK"},
         "hello hello hello hello",
         {"Content-Encoding: gzip", "Content-Length: 28"}},
    };
}

class ResponseTable : public HostFixture, public ::testing::WithParamInterface<std::tuple<Row, Pace>> {};

TEST_P(ResponseTable, GivesTheCallerWhatWasSent) {
    const auto& [row, pace] = GetParam();
    ScriptedServer& server = serve({step::expectHead(), step::send(row.Sent), step::close()}, pace);
    const Object connection = open(server.url("/"));
    EXPECT_EQ(difference(receiveBytes(connection), row.Body), "");
    EXPECT_EQ(resultTexts(connection, "getStatusLine", 3), row.StatusLine);
    EXPECT_EQ(fieldTexts(connection.call("getResponseFields")), row.Fields);
    EXPECT_EQ(std::to_string(static_cast<int>(connection.get("ResponseCode").number())), row.StatusLine[1]);
    ASSERT_EQ(warnings().size(), row.Partial ? 1U : 0U);
    if (row.Partial) {
        EXPECT_EQ(warnings()[0].identifier(), "VANTIK:webservices:PartialFileWarning");
        EXPECT_EQ(warnings()[0].Arguments.size(), 3U);
    }
    expectScopeUsable(connection);
}

TEST_P(ResponseTable, GivesAConsumerTheSame) {
    const auto& [row, pace] = GetParam();
    ScriptedServer& server = serve({step::expectHead(), step::send(row.Sent), step::close()}, pace);
    std::string received;
    const Object consumer =
        vantik::makeConsumer(host(), {.write = [&](std::span<const std::byte> piece) -> std::optional<double> {
                                 received.append(reinterpret_cast<const char*>(piece.data()), piece.size());
                                 return static_cast<double>(piece.size());
                             }});
    const Object connection = open(server.url("/"));
    connection.set("Consumer", consumer);
    EXPECT_EQ(connection.call("copyContentToByteArray", {false}).size(), 0U);
    EXPECT_EQ(difference(received, row.Body), "");
    expectScopeUsable(connection);
}

INSTANTIATE_TEST_SUITE_P(Rows, ResponseTable,
                         ::testing::Combine(::testing::ValuesIn(rows()),
                                            ::testing::Values(Pace::Whole, Pace::SingleBytes)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).Name) +
                                    (std::get<1>(info.param) == Pace::Whole ? "Whole" : "InSingleBytes");
                         });

class Decoding : public HostFixture {};

TEST_F(Decoding, OffGivesTheBytesOfTheWire) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response(kGzipped, {"Content-Encoding: gzip"}))});
    const Object connection = open(server.url("/"));
    connection.set("Decode", false);
    EXPECT_EQ(receiveBytes(connection), kGzipped);
    EXPECT_EQ(connection.get("ContentEncoding").text(), "gzip");
    expectScopeUsable(connection);
}

TEST_F(Decoding, CallersAcceptEncodingIsSentUnchanged) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response(kGzipped, {"Content-Encoding: gzip"}))});
    const Object connection = open(server.url("/"));
    connection.call("setRequestProperty", {"Accept-Encoding", "gzip;q=0.5"});
    connection.call("setRequestProperty", {"Accept", "text/*"});
    EXPECT_EQ(receiveBytes(connection), "hello hello hello hello");
    EXPECT_EQ(
        fieldTexts(connection.call("getRequestFields")),
        (std::vector<std::string>{"Host: " + server.authority(), "Accept-Encoding: gzip;q=0.5", "Accept: text/*"}));
    expectScopeUsable(connection);
}

} // namespace
