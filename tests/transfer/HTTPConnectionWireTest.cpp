#include "tests/transfer/ConnectionFixture.h"
#include "transfer/Trace.h"

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <regex>

namespace {

constexpr std::int64_t kMs = 1'000'000;

class HTTPConnectionWireTest : public ConnectionFixture {
protected:
    HTTPConnectionWireTest() { connection.Limits.Deadline = SilenceLimits::kNoDeadline; }
    ~HTTPConnectionWireTest() override { connection.Settings.Debug = 0; }

    // Gives the bytes as they stand in libcurl's buffer afterwards. Passed in a block of exactly their size, so that a
    // sanitizer sees every read beyond it.
    std::string pass(curl_infotype type, const std::string& bytes) {
        std::vector<char> block(bytes.begin(), bytes.end());
        block.shrink_to_fit();
        EXPECT_EQ(debugCallback(nullptr, type, block.data(), block.size(), &connection), 0);
        return {block.begin(), block.end()};
    }
    std::string passHead(const std::string& head) { return pass(CURLINFO_HEADER_OUT, head); }
    // What the head's parser refuses it with; behind it the connection is ready for the next call.
    std::string headFailure(const std::string& head) {
        passHead(head);
        return failureText([&] { connection.rethrowEscapedFailure(); });
    }
    // What is traced of one block at a level, with "T" for the time stamp.
    std::string trace(std::int32_t debug, curl_infotype type, const std::string& bytes) {
        const StandardOutputCapture output;
        connection.Settings.Debug = debug;
        pass(type, bytes);
        connection.Settings.Debug = 0;
        connection.Transfer.EscapedFailure = nullptr;
        return std::regex_replace(output.text(), std::regex("\\([0-9]{3}\\.[0-9]{3}\\)"), "(T)");
    }

    HTTPConnection connection;
};

// Milliseconds since midnight in local time, here half past five hours ahead of UTC.
std::int64_t localMilliseconds() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    constexpr std::int64_t ahead = (5 * 60 + 30) * 60;
    return (now.tv_sec + ahead) % (24 * 60 * 60) * 1000 + now.tv_nsec / 1'000'000;
}

TEST_F(HTTPConnectionWireTest, TimeStampIsTheLocalTimeOfDayModuloAThousandSeconds) {
    setenv("TZ", "XST-05:30", 1);
    tzset();
    std::int64_t before = 0;
    std::int64_t after = 0;
    std::string text;
    do {
        before = localMilliseconds();
        const StandardOutputCapture output;
        connection.Settings.Debug = 1;
        pass(CURLINFO_TEXT, "x");
        connection.Settings.Debug = 0;
        text = output.text();
        after = localMilliseconds();
    } while (after < before); // midnight came in between
    unsetenv("TZ");
    tzset();
    ASSERT_TRUE(text.starts_with("IN INFO (")) << text;
    const auto stamp = std::llround(std::stod(text.substr(9)) * 1000.0);
    EXPECT_LE((stamp - before % 1'000'000 + 1'000'000) % 1'000'000, after - before) << text;
}

TEST_F(HTTPConnectionWireTest, HeadIsReadAtEveryLevel) {
    for (const std::int32_t debug : {0, 1, 2, -1}) {
        const StandardOutputCapture output;
        connection.Settings.Debug = debug;
        connection.SentHead.Sent = false;
        connection.SentHead.RequestHeaderLines = {"old"};
        passHead("PUT /a?b=c HTTP/1.1\r\nHost: h\r\nX-A:  b \r\n\r\n");
        EXPECT_EQ(connection.SentHead.EffectiveMethod, "PUT");
        EXPECT_EQ(connection.SentHead.RequestURI, "/a?b=c");
        EXPECT_EQ(connection.SentHead.RequestHTTPVersion, "HTTP/1.1");
        EXPECT_THAT(connection.SentHead.RequestHeaderLines, ElementsAre("Host: h", "X-A:  b"));
        EXPECT_TRUE(connection.SentHead.Sent);
        EXPECT_FALSE(connection.SentHead.InRequestHead);
        EXPECT_EQ(output.text().empty(), debug == 0);
        EXPECT_EQ(connection.Transfer.EscapedFailure, nullptr);
        connection.Settings.Debug = 0;
    }
}

TEST_F(HTTPConnectionWireTest, HeadMayComeInParts) {
    passHead("GET / HTTP/1.1\r\nHost: h\r\n");
    EXPECT_TRUE(connection.SentHead.InRequestHead);
    EXPECT_FALSE(connection.SentHead.Sent);
    passHead("X-A: b\r\n");
    passHead("");
    EXPECT_THAT(connection.SentHead.RequestHeaderLines, ElementsAre("Host: h", "X-A: b"));
    passHead("\r\n");
    EXPECT_FALSE(connection.SentHead.InRequestHead);
    EXPECT_TRUE(connection.SentHead.Sent);
    EXPECT_EQ(connection.SentHead.RequestURI, "/");
}

TEST_F(HTTPConnectionWireTest, LastHeadRemains) {
    passHead("CONNECT h:443 HTTP/1.1\r\nHost: h:443\r\n\r\n");
    EXPECT_EQ(connection.SentHead.EffectiveMethod, "CONNECT");
    EXPECT_EQ(connection.SentHead.RequestURI, "h:443");
    passHead("GET /x HTTP/1.0\r\nHost: h\r\n\r\nHEAD /y HTTP/2\r\n\r\n"); // two heads in one block
    EXPECT_EQ(connection.SentHead.EffectiveMethod, "HEAD");
    EXPECT_EQ(connection.SentHead.RequestURI, "/y");
    EXPECT_EQ(connection.SentHead.RequestHTTPVersion, "HTTP/2");
    EXPECT_THAT(connection.SentHead.RequestHeaderLines, IsEmpty());
}

TEST_F(HTTPConnectionWireTest, RequestLineIsCutAtItsFirstTwoBlanks) {
    passHead("  GET  HTTP/1.1 more \r\n");
    EXPECT_EQ(connection.SentHead.EffectiveMethod, "GET");
    EXPECT_EQ(connection.SentHead.RequestURI, "");
    EXPECT_EQ(connection.SentHead.RequestHTTPVersion, "HTTP/1.1 more");
}

TEST_F(HTTPConnectionWireTest, LineEndIsNeededInEachBlock) {
    EXPECT_EQ(headFailure("GET / HTTP/1.1"), internalError("CRLF not found in headers:\nGET / HTTP/1.1"));
    EXPECT_FALSE(connection.SentHead.InRequestHead);
    EXPECT_EQ(headFailure("GET / HTTP/1.1\r\nHost: h\r"), internalError("CRLF not found in headers:\nHost: h\r"));
    EXPECT_TRUE(connection.SentHead.InRequestHead);
    EXPECT_EQ(connection.SentHead.RequestURI, "/"); // what was read keeps its value
    EXPECT_EQ(headFailure("X: y\n\r"), internalError("CRLF not found in headers:\nX: y\n\r"));
}

// As a search in a NUL-terminated string would.
TEST_F(HTTPConnectionWireTest, SearchForALineEndStopsAtANul) {
    const std::string bytes("GET /\0x HTTP/1.1\r\n\r\n", 21);
    EXPECT_EQ(headFailure(bytes), internalError("CRLF not found in headers:\n" + bytes));
}

TEST_F(HTTPConnectionWireTest, EmptyLineIsNoRequestLine) {
    const std::string failure = internalError("Empty CRLF encountered when request line expected");
    EXPECT_EQ(headFailure("\r\n"), failure);
    EXPECT_EQ(headFailure(" \t\r\nGET / HTTP/1.1\r\n\r\n"), failure);
    EXPECT_FALSE(connection.SentHead.InRequestHead);
    EXPECT_FALSE(connection.SentHead.Sent);
}

TEST_F(HTTPConnectionWireTest, RequestLineNeedsTwoBlanks) {
    connection.SentHead.EffectiveMethod = "before";
    connection.SentHead.RequestHeaderLines = {"before"};
    EXPECT_EQ(headFailure("GET\r\n\r\n"), internalError("No space found in request line"));
    EXPECT_TRUE(connection.SentHead.InRequestHead);
    EXPECT_EQ(connection.SentHead.EffectiveMethod, "before");
    connection.SentHead.InRequestHead = false;
    EXPECT_EQ(headFailure("PUT /\r\n\r\n"), internalError("Second space not found in request line"));
    EXPECT_TRUE(connection.SentHead.InRequestHead);
    EXPECT_EQ(connection.SentHead.EffectiveMethod, "PUT");
    EXPECT_EQ(connection.SentHead.RequestURI, "");
    EXPECT_THAT(connection.SentHead.RequestHeaderLines, ElementsAre("before"));
    EXPECT_FALSE(connection.SentHead.Sent); // the parse has stopped
}

struct Md5Row {
    const char* Line;
    const char* Stored;
};

class Md5Test : public HTTPConnectionWireTest, public ::testing::WithParamInterface<Md5Row> {};

TEST_P(Md5Test, QuotesAreTakenOutOfLibcurlsBufferToo) {
    const std::string before = "GET / HTTP/1.1\r\nHost: h\r\n";
    const std::string after = "\r\nX-A: \"MD5\"\r\n\r\n";
    EXPECT_EQ(passHead(before + GetParam().Line + after), before + GetParam().Stored + after);
    EXPECT_THAT(connection.SentHead.RequestHeaderLines, ElementsAre("Host: h", GetParam().Stored, "X-A: \"MD5\""));
}

INSTANTIATE_TEST_SUITE_P(
    Lines, Md5Test,
    ::testing::Values(
        Md5Row{"Authorization: Digest algorithm=\"MD5\", uri=\"/\"",
               "Authorization: Digest algorithm=MD5  , uri=\"/\""},
        Md5Row{"AUTHORIZATION: DIGEST ALGORITHM=\"MD5\"", "AUTHORIZATION: DIGEST ALGORITHM=MD5  "},
        Md5Row{"authorization:\"MD5\"\"MD5\"", "authorization:MD5  \"MD5\""}, // the first one only
        Md5Row{"Authorization: Digest algorithm=\"md5\"", "Authorization: Digest algorithm=\"md5\""},
        Md5Row{"Authorization: Digest algorithm=MD5", "Authorization: Digest algorithm=MD5"},
        Md5Row{"Authorization: Digest algorithm=\"MD5-sess\"", "Authorization: Digest algorithm=\"MD5-sess\""},
        Md5Row{"Proxy-Authorization: Digest algorithm=\"MD5\"", "Proxy-Authorization: Digest algorithm=\"MD5\""},
        Md5Row{"Authorization : \"MD5\"", "Authorization : \"MD5\""}, Md5Row{"Cookie: a=\"MD5\"", "Cookie: a=\"MD5\""},
        Md5Row{"X:y", "X:y"}));

TEST_F(HTTPConnectionWireTest, TraceShowsTheHeadAsLibcurlMadeIt) {
    EXPECT_EQ(trace(1, CURLINFO_HEADER_OUT, "GET / HTTP/1.1\r\nAuthorization: Digest algorithm=\"MD5\"\r\n\r\n"),
              "OUT HDR (T): GET / HTTP/1.1<CRLF>\nAuthorization: Digest algorithm=\"MD5\"<CRLF>\n\r\n");
}

TEST_F(HTTPConnectionWireTest, BlankLineOfAHeadStaysRaw) {
    EXPECT_EQ(trace(1, CURLINFO_HEADER_OUT, "GET / HTTP/1.1\r\nHost: h\r\n\r\n"),
              "OUT HDR (T): GET / HTTP/1.1<CRLF>\nHost: h<CRLF>\n\r\n");
}

// What a block of content becomes at the level that shows it.
struct MarkRow {
    const char* Bytes;
    const char* Shown;
};

class MarkTest : public HTTPConnectionWireTest, public ::testing::WithParamInterface<MarkRow> {};

TEST_P(MarkTest, LineEndsAreMarkedWithGaps) {
    EXPECT_EQ(trace(2, CURLINFO_DATA_IN, GetParam().Bytes), std::string("IN DATA (T): ") + GetParam().Shown + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Blocks, MarkTest,
    ::testing::Values(MarkRow{"", ""}, MarkRow{"a", "a"}, MarkRow{"a\n", "a"}, MarkRow{"a\n\n", "a\n"},
                      MarkRow{"\r\n", "<CRLF>"}, MarkRow{"a\r\n", "a<CRLF>"}, MarkRow{"a\r\nb", "a<CRLF>\nb"},
                      MarkRow{"a\r\nb\r\nc", "a<CRLF>\nb\r\nc"},       // begins one character behind a marked pair
                      MarkRow{"a\r\nbb\r\nc", "a<CRLF>\nbb<CRLF>\nc"}, // two characters behind: marked again
                      MarkRow{"a\r\n\r\nb\r\nc", "a<CRLF>\n\r\nb<CRLF>\nc"}, //
                      MarkRow{"\r\n\r\n\r\n", "<CRLF>\n\r\n<CRLF>"},         //
                      MarkRow{"a\r\n\r\n", "a<CRLF>\n\r"}, MarkRow{"a\r\nb\n", "a<CRLF>\nb"}, MarkRow{"a\r", "a\r"},
                      MarkRow{"\n\r", "\n\r"}));

struct TraceRow {
    const char* Name;
    std::int32_t Debug;
    curl_infotype Type;
    std::string Bytes;
    std::string Output;
};

class TraceRecordTest : public HTTPConnectionWireTest, public ::testing::WithParamInterface<TraceRow> {};

TEST_P(TraceRecordTest, IsTextOrCount) {
    EXPECT_EQ(trace(GetParam().Debug, GetParam().Type, GetParam().Bytes), GetParam().Output);
}

const std::string kLongest(999, 'x');
const std::string kTooLong(1000, 'x');
INSTANTIATE_TEST_SUITE_P(
    Blocks, TraceRecordTest,
    ::testing::Values(
        TraceRow{"QuietText", 0, CURLINFO_TEXT, "a", ""}, TraceRow{"QuietData", 0, CURLINFO_DATA_IN, "a", ""},
        TraceRow{"QuietHead", 0, CURLINFO_HEADER_OUT, "GET / HTTP/1.1\r\n\r\n", ""},
        TraceRow{"Text", 1, CURLINFO_TEXT, "Connected\n", "IN INFO (T): Connected\n"},
        TraceRow{"LongestText", 1, CURLINFO_TEXT, kLongest, "IN INFO (T): " + kLongest + "\n"},
        TraceRow{"TooLongText", 2, CURLINFO_TEXT, kTooLong, "IN INFO (T): 1000 bytes\n"},
        TraceRow{"BinaryText", 2, CURLINFO_TEXT, std::string("a\0b", 3), "IN INFO (T): 3 bytes\n"},
        TraceRow{"LongHead", 1, CURLINFO_HEADER_OUT, "G " + kTooLong + " H\r\n",
                 "OUT HDR (T): G " + kTooLong + " H<CRLF>\n"},
        TraceRow{"BinaryHead", 1, CURLINFO_HEADER_OUT, "G /\x01 H\r\n", "OUT HDR (T): 12 bytes\n"},
        TraceRow{"IncomingHead", 2, CURLINFO_HEADER_IN, "HTTP/1.1 200 OK\r\n", ""},
        TraceRow{"TlsIn", 2, CURLINFO_SSL_DATA_IN, "secret", ""},
        TraceRow{"TlsOut", 2, CURLINFO_SSL_DATA_OUT, "secret", ""}, TraceRow{"End", 2, CURLINFO_END, "x", ""},
        TraceRow{"DataIsCounted", 1, CURLINFO_DATA_IN, "a", "IN DATA (T): 1 bytes\n"},
        TraceRow{"DataOutIsCounted", 1, CURLINFO_DATA_OUT, "ab", "OUT DATA (T): 2 bytes\n"},
        TraceRow{"NoDataIsCounted", 1, CURLINFO_DATA_IN, "", "IN DATA (T): 0 bytes\n"},
        TraceRow{"NegativeLevelCounts", -1, CURLINFO_DATA_IN, "a", "IN DATA (T): 1 bytes\n"},
        TraceRow{"CountIsOfTheMarkedText", 1, CURLINFO_DATA_IN, "a\r\nb", "IN DATA (T): 9 bytes\n"},
        TraceRow{"CountIsWithoutTheLastNewline", 1, CURLINFO_DATA_IN, "ab\n", "IN DATA (T): 2 bytes\n"},
        TraceRow{"DataIsShown", 2, CURLINFO_DATA_OUT, "a\tb", "OUT DATA (T): a\tb\n"},
        TraceRow{"LongestData", 2, CURLINFO_DATA_IN, kLongest, "IN DATA (T): " + kLongest + "\n"},
        TraceRow{"LongestDataWithNewline", 2, CURLINFO_DATA_IN, kLongest + "\n", "IN DATA (T): " + kLongest + "\n"},
        TraceRow{"TooLongData", 2, CURLINFO_DATA_IN, kTooLong, "IN DATA (T): 1000 bytes\n"},
        TraceRow{"TooLongByItsMarks", 2, CURLINFO_DATA_IN, std::string(992, 'x') + "\r\nx",
                 "IN DATA (T): 1000 bytes\n"},
        TraceRow{"NulInData", 3, CURLINFO_DATA_IN, std::string("a\0b", 3), "IN DATA (T): 3 bytes\n"},
        TraceRow{"ControlByteInData", 3, CURLINFO_DATA_IN, "\x1b[1m", "IN DATA (T): 4 bytes\n"},
        TraceRow{"ByteAboveAscii", 3, CURLINFO_DATA_IN, "\xC3\xA4", "IN DATA (T): 2 bytes\n"}),
    [](const auto& info) { return info.param.Name; });

TEST_F(HTTPConnectionWireTest, RecordClosesAPendingRun) {
    const StandardOutputCapture output;
    tracePerform(1, "WRITER");
    EXPECT_EQ(trace(1, CURLINFO_DATA_IN, "a"), " 1 times\nIN DATA (T): 1 bytes\n");
    EXPECT_EQ(getLogPerformData().RepeatCount, 0);
}

TEST_F(HTTPConnectionWireTest, TimeStampIsSecondsWithThreeDecimals) {
    const StandardOutputCapture output;
    connection.Settings.Debug = 1;
    pass(CURLINFO_TEXT, "x");
    connection.Settings.Debug = 0;
    EXPECT_TRUE(std::regex_match(output.text(), std::regex("IN INFO \\([0-9]{3}\\.[0-9]{3}\\): x\n"))) << output.text();
}

struct ActivityRow {
    curl_infotype Type;
    std::int32_t Debug;
    bool Counts;
};

class ActivityTest : public HTTPConnectionWireTest, public ::testing::WithParamInterface<ActivityRow> {};

TEST_P(ActivityTest, BytesThatMoveMoveTheDeadline) {
    const StandardOutputCapture output;
    connection.setTimeouts({5000.0, 1000.0});
    connection.applyTimeouts();
    connection.Limits.Deadline = 1;
    curl.setClock(5 * kMs);
    connection.Settings.Debug = GetParam().Debug;
    pass(GetParam().Type, "GET / HTTP/1.1\r\n");
    EXPECT_EQ(connection.Limits.Deadline, GetParam().Counts ? 1005 * kMs : 1);
    connection.Settings.Debug = 0;
}

INSTANTIATE_TEST_SUITE_P(
    Types, ActivityTest,
    ::testing::Values(ActivityRow{CURLINFO_TEXT, 0, false}, ActivityRow{CURLINFO_TEXT, 1, false},
                      ActivityRow{CURLINFO_HEADER_IN, 0, true},
                      ActivityRow{CURLINFO_HEADER_IN, 1, false}, // the record ends it; the header callback counts it
                      ActivityRow{CURLINFO_HEADER_OUT, 0, true}, ActivityRow{CURLINFO_HEADER_OUT, 1, true},
                      ActivityRow{CURLINFO_DATA_IN, 0, true}, ActivityRow{CURLINFO_DATA_IN, 2, true},
                      ActivityRow{CURLINFO_DATA_OUT, 0, true}, ActivityRow{CURLINFO_DATA_OUT, 1, true},
                      ActivityRow{CURLINFO_SSL_DATA_IN, 0, false}, ActivityRow{CURLINFO_SSL_DATA_OUT, 0, false}));

TEST_F(HTTPConnectionWireTest, RefusedHeadIsNoActivity) {
    connection.setTimeouts({5000.0, 1000.0});
    connection.applyTimeouts();
    connection.Limits.Deadline = 1;
    EXPECT_NE(headFailure("GET\r\n"), "nothing");
    EXPECT_EQ(connection.Limits.Deadline, 1);
}

// Nothing may unwind through libcurl: the failure waits for the return of the call, and nothing runs behind it.
TEST_F(HTTPConnectionWireTest, RefusedHeadEscapesBehindThePerform) {
    connection.Transfer.begin(connection.Handles->Generation);
    curl.OnPerform = [&](int& running) {
        passHead("GET\r\n");
        connection.SentHead.InRequestHead = false;
        passHead("PUT / HTTP/1.1\r\n\r\n");
        EXPECT_EQ(connection.SentHead.EffectiveMethod, "");
        running = 1;
        return CURLM_OK;
    };
    EXPECT_EQ(failureText([&] { connection.perform(""); }), internalError("No space found in request line"));
    EXPECT_EQ(connection.Transfer.EscapedFailure, nullptr);
    EXPECT_EQ(connection.Transfer.CallbackFailure, nullptr);
    passHead("PUT / HTTP/1.1\r\n\r\n");
    EXPECT_EQ(connection.SentHead.EffectiveMethod, "PUT");
}

} // namespace
