// What a server sends and what the caller gets, as a table: each row whole and in single bytes, and with each kind of
// head that may come before the one that counts.
#include "tests/exchange/ExchangeFixture.h"

namespace {

using namespace testsupport;

// "hello hello hello hello" as gzip.
const std::string kGzipped(
    "\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\x03\xcb\x48\xcd\xc9\xc9\x57\xc8\x40\x27\x01\xe3\x51\x3d\x8d\x17\x00\x00\x00",
    28);

struct Before {
    const char* Name;
    const char* Sent;
};
const Before kBefores[] = {
    {"NoHead", ""},
    {"Interim", "HTTP/1.1 100 Continue\r\n\r\n"},
    {"InterimWithField", "HTTP/1.1 100 Continue\r\nX-Early: 1\r\n\r\n"},
    {"TwoInterim", "HTTP/1.1 100 Continue\r\nX-Early: 1\r\n\r\nHTTP/1.1 100 Continue\r\n\r\n"},
    {"EarlyHints", "HTTP/1.1 103 Early Hints\r\nLink: x\r\n\r\nHTTP/1.1 102 Processing\r\n\r\n"},
};

enum class End {
    Good,
    Partial, // a good one, and the caller is warned
    Refused, // a line of the head has no proper end
};

struct Row {
    const char* Name;
    std::string Sent; // after the request's head; then the server closes
    std::string Body;
    Texts Status; // code and reason
    Texts Fields;
    End How = End::Good;
};

// The head of the request is always of HTTP/1.1, and the status line reads as it, whatever the answer has. What follows
// a line that is refused is read all the same: where that line began the head, the one after it does. A trailer's first
// line is taken for the start of a further head, which empties the one that was stored.
std::vector<Row> rows() {
    const std::string chunks = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    const Texts chunkedFields{"Transfer-Encoding: chunked"};
    const Texts ok{"200", "OK"};
    const std::string large = patternedBytes(20000);
    // clang-format off
    return {
        {"ContentOfKnownLength", response("hello", {"X-A: 1"}), "hello", ok, {"X-A: 1", "Content-Length: 5"}},
        {"ContentUntilTheClose", "HTTP/1.1 200 OK\r\n\r\nall of it", "all of it", ok, {}},
        {"LargeContent", response(large), large, ok, {"Content-Length: 20000"}},
        {"CompressedContent", response(kGzipped, {"Content-Encoding: gzip"}), "hello hello hello hello", ok, {"Content-Encoding: gzip", "Content-Length: 28"}},
        {"Chunks", chunks + chunked("in several chunks", 4), "in several chunks", ok, chunkedFields},
        {"ChunkExtensions", chunks + "3;a=b\r\nabc\r\n0;last\r\n\r\n", "abc", ok, chunkedFields},
        {"TrailerOfOneLine", chunks + "4\r\nbody\r\n0\r\nX-T: 1 two\r\n\r\n", "body", ok, chunkedFields},
        {"TrailerOfTwoLines", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nX-A: 1\r\n\r\n3\r\nabc\r\n0\r\nX-T1: 1\r\nX-T2: 2\r\n\r\n", "abc", ok, {"Transfer-Encoding: chunked", "X-A: 1"}},
        {"StatusWithoutContent", "HTTP/1.1 204 No Content\r\nX: y\r\n\r\n", "", {"204", "No Content"}, {"X: y"}},
        {"NoFields", "HTTP/1.1 204 No Content\r\n\r\n", "", {"204", "No Content"}, {}},
        {"NotModified", "HTTP/1.1 304 Not Modified\r\nETag: \"1\"\r\n\r\n", "", {"304", "Not Modified"}, {"ETag: \"1\""}},
        {"NotFound", response("gone", {}, "404 Not Found"), "gone", {"404", "Not Found"}, {"Content-Length: 4"}},
        {"LongReason", response("", {}, "599 All sorts of  trouble "), "", {"599", "All sorts of  trouble "}, {"Content-Length: 0"}},
        {"EmptyReason", response("x", {}, "200 "), "x", {"200", ""}, {"Content-Length: 1"}},
        {"NoReason", response("x", {}, "200"), "x", {"200", ""}, {"Content-Length: 1"}},
        {"OlderVersion", "HTTP/1.0 200 OK\r\nContent-Length: 1\r\n\r\nx", "x", ok, {"Content-Length: 1"}},
        {"FieldsAsTheyStand", response("", {"A:1", "a:   2", "B: x:y", "C:\tt", "D: end  ", "E:", "F:   "}), "", ok, {"A: 1", "a: 2", "B: x:y", "C: \tt", "D: end  ", "E: ", "F: ", "Content-Length: 0"}},
        // The head that should follow never comes.
        {"SwitchingProtocols", "HTTP/1.1 101 Switching Protocols\r\nX-A: 1\r\n\r\n", "", {"101", "Switching Protocols"}, {"X-A: 1"}, End::Partial},
        {"ShortContent", "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nfour", "four", ok, {"Content-Length: 10"}, End::Partial},
        {"ChunksCutShort", chunks + "5\r\nhello\r\n5\r\nwo", "hellowo", ok, chunkedFields, End::Partial},
        {"FailedStatusWithShortContent", "HTTP/1.1 502 Bad Gateway\r\nContent-Length: 10\r\n\r\nfour", "four", {"502", "Bad Gateway"}, {"Content-Length: 10"}, End::Partial},
        {"FieldWithLineFeedOnly", "HTTP/1.1 200 OK\r\nX-Bad: 1\nX-A: 1\r\nContent-Length: 4\r\n\r\nbody", "", ok, {"X-A: 1", "Content-Length: 4"}, End::Refused},
        {"EmptyFieldWithLineFeedOnly", "HTTP/1.1 200 OK\r\nX-A:\nX-B: 1\r\nContent-Length: 0\r\n\r\n", "", ok, {"X-B: 1", "Content-Length: 0"}, End::Refused},
        {"StatusLineWithLineFeedOnly", "HTTP/1.1 200 OK\nX-A: 1 two\r\nContent-Length: 4\r\n\r\nbody", "", {"200", "two"}, {"Content-Length: 4"}, End::Refused},
        {"BlankLineOfOneByte", "HTTP/1.1 200 OK\r\nX-A: 1\r\nContent-Length: 4\r\n\nbody", "", ok, {"X-A: 1", "Content-Length: 4"}, End::Refused},
        {"LineFeedsOnly", "HTTP/1.1 200 OK\nX-A: 1\nContent-Length: 4\n\nbody", "", {"200", ""}, {}, End::Refused},
    };
    // clang-format on
}

class ResponseTable : public ExchangeFixture, public ::testing::WithParamInterface<std::tuple<Row, Before, Pace>> {};

TEST_P(ResponseTable, CallerAndConsumerGetWhatWasSentAndTheObjectIsGoodForMore) {
    const auto& [row, before, pace] = GetParam();
    const Object connection = open(
        serve({answers(before.Sent + row.Sent) + Script{step::close()}, answers(response("next", {"X-Next: 1"}))}, pace)
            .url("/"));
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    connection.set("Consumer", consumer);
    std::string body;
    EXPECT_EQ(outcomeOf([&] { body = receiveBytes(connection); }),
              row.How == End::Refused
                  ? "VANTIK:webservices:InternalError(CRLF not found at the end of the received headers)"
                  : "nothing");
    EXPECT_EQ(difference(body, row.Body), "");
    EXPECT_EQ(difference(consumer->content(), row.Body), "");
    EXPECT_EQ(resultTexts(connection, "getStatusLine", 3), (Texts{"HTTP/1.1", row.Status[0], row.Status[1]}));
    EXPECT_EQ(connection.get("ResponseCode").number(), std::stod(row.Status[0]));
    EXPECT_EQ(fieldTexts(connection.call("getResponseFields")), row.Fields);
    if (row.How == End::Good) {
        EXPECT_EQ(warnings().size(), 0U);
    }
    if (row.How == End::Partial) {
        ASSERT_EQ(warnings().size(), 1U);
        EXPECT_EQ(warnings()[0].identifier(), "VANTIK:webservices:PartialFileWarning");
        EXPECT_EQ(warnings()[0].Arguments.size(), 3U);
    }
    connection.set("Consumer", Array());
    connection.call("openConnection");
    EXPECT_EQ(receiveBytes(connection), "next");
    EXPECT_EQ(connection.call("getResponseField", {"X-Next"}).text(), "1");
}

INSTANTIATE_TEST_SUITE_P(Rows, ResponseTable,
                         ::testing::Combine(::testing::ValuesIn(rows()), ::testing::ValuesIn(kBefores),
                                            ::testing::Values(Pace::Whole, Pace::SingleBytes)),
                         kRowName);

class Decoding : public ExchangeFixture {
protected:
    ScriptedServer& Server = serve(answers(response(kGzipped, {"Content-Encoding: gzip"})));
};

TEST_F(Decoding, ThatIsOffLeavesTheBytesOfTheWire) {
    const Object connection = open(Server.url("/"));
    connection.set("Decode", false);
    EXPECT_EQ(receiveBytes(connection), kGzipped);
    EXPECT_EQ(connection.get("ContentEncoding").text(), "gzip");
}

TEST_F(Decoding, SendsTheCallersAcceptEncodingUnchanged) {
    const Object connection = open(Server.url("/"));
    connection.call("setRequestProperty", {"Accept-Encoding", "gzip;q=0.5"});
    connection.call("setRequestProperty", {"Accept", "text/*"});
    EXPECT_EQ(receiveBytes(connection), "hello hello hello hello");
    EXPECT_EQ(fieldTexts(connection.call("getRequestFields")),
              (Texts{"Host: " + Server.authority(), "Accept-Encoding: gzip;q=0.5", "Accept: text/*"}));
}

} // namespace
