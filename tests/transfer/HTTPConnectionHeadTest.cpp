#include "tests/transfer/ConnectionFixture.h"
#include "transfer/Trace.h"

#include <limits>

namespace {

constexpr std::int64_t kMs = 1'000'000;

class HTTPConnectionHeadTest : public ConnectionFixture {
protected:
    HTTPConnectionHeadTest() {
        curl.giveInfo(CURLINFO_RESPONSE_CODE, 0L); // so that the status line is parsed
        connection.Limits.Deadline = SilenceLimits::kNoDeadline;
    }
    ~HTTPConnectionHeadTest() override { connection.Settings.Debug = 0; }

    // One line as libcurl passes it. The callback asks libcurl to stop only after a failure that it cannot keep.
    void take(std::string line) { EXPECT_EQ(headerCallback(line.data(), 1, line.size(), &connection), line.size()); }
    void refuse(std::string line) { EXPECT_EQ(headerCallback(line.data(), 1, line.size(), &connection), 0U); }
    void takeAll(const std::vector<std::string>& lines) {
        for (const std::string& line : lines) {
            take(line);
        }
    }
    std::string storedFailure() const { return failureText(connection.Transfer.CallbackFailure); }

    HTTPConnection connection;
};

const std::string kNoLineEnd = internalError("CRLF not found at the end of the received headers");

TEST_F(HTTPConnectionHeadTest, FinalHeadIsKeptLineByLine) {
    takeAll({"HTTP/1.1 200 OK\r\n", "X-A: b\r\n", "X-A: c\r\n"});
    EXPECT_FALSE(connection.ReceivedHead.HeadersComplete);
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, 200);
    take("\r\n");
    EXPECT_TRUE(connection.ReceivedHead.HeadersComplete);
    EXPECT_THAT(connection.ReceivedHead.ResponseHeaderLines, ElementsAre("HTTP/1.1 200 OK", "X-A: b", "X-A: c"));
    EXPECT_EQ(storedFailure(), "nothing");
}

TEST_F(HTTPConnectionHeadTest, SizeAndCountAreMultiplied) {
    std::string line = "HTTP/1.1 200 OK\r\n_";
    EXPECT_EQ(headerCallback(line.data(), 17, 1, &connection), 17u);
    EXPECT_THAT(connection.ReceivedHead.ResponseHeaderLines, ElementsAre("HTTP/1.1 200 OK"));
}

TEST_F(HTTPConnectionHeadTest, InterimHeadIsDropped) {
    takeAll({"HTTP/1.1 100 Continue\r\n", "\r\n"});
    EXPECT_THAT(connection.ReceivedHead.ResponseHeaderLines, IsEmpty());
    EXPECT_FALSE(connection.ReceivedHead.HeadersComplete);
    takeAll({"HTTP/1.1 200 OK\r\n", "X-A: b\r\n"});
    EXPECT_FALSE(connection.ReceivedHead.HeadersComplete);
    take("\r\n");
    EXPECT_TRUE(connection.ReceivedHead.HeadersComplete);
    EXPECT_THAT(connection.ReceivedHead.ResponseHeaderLines, ElementsAre("HTTP/1.1 200 OK", "X-A: b"));
}

struct FinalRow {
    const char* Method;
    const char* StatusLine;
    bool Final;
    bool Kept = false; // although it is not final
};

class FinalHeadTest : public HTTPConnectionHeadTest, public ::testing::WithParamInterface<FinalRow> {};

TEST_P(FinalHeadTest, DependsOnStatusAndMethodSent) {
    connection.SentHead.EffectiveMethod = GetParam().Method;
    takeAll({GetParam().StatusLine + std::string("\r\n"), "\r\n"});
    EXPECT_EQ(connection.ReceivedHead.HeadersComplete, GetParam().Final);
    EXPECT_EQ(connection.ReceivedHead.ResponseHeaderLines.size(), GetParam().Final || GetParam().Kept ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Heads, FinalHeadTest,
    ::testing::Values(FinalRow{"GET", "HTTP/1.1 100 Continue", false}, FinalRow{"CONNECT", "HTTP/1.1 100 C", false},
                      FinalRow{"GET", "HTTP/1.1 101 Switching Protocols", true},
                      FinalRow{"GET", "HTTP/1.1 102 Processing", false, true},
                      FinalRow{"GET", "HTTP/1.1 199 Last", false, true}, FinalRow{"GET", "HTTP/1.1 200 OK", true},
                      FinalRow{"CONNECT", "HTTP/1.1 200 OK", false}, FinalRow{"connect", "HTTP/1.1 200 OK", false},
                      FinalRow{"CONNECTX", "HTTP/1.1 200 OK", true}, FinalRow{"CONNECT", "HTTP/1.1 201 Created", true},
                      FinalRow{"CONNECT", "HTTP/1.1 407 Authenticate", true},
                      FinalRow{"GET", "HTTP/1.1 302 Found", true}, FinalRow{"GET", "HTTP/1.1 500 Bad", true},
                      FinalRow{"", "HTTP/1.1 200 OK", true}, FinalRow{"GET", "garbage", true}));

TEST_F(HTTPConnectionHeadTest, TunnelledHeadTakesThePlaceOfTheProxys) {
    connection.SentHead.EffectiveMethod = "CONNECT";
    takeAll({"HTTP/1.1 200 Connection established\r\n", "Via: p\r\n", "\r\n"});
    EXPECT_FALSE(connection.ReceivedHead.HeadersComplete);
    connection.SentHead.EffectiveMethod = "GET";
    takeAll({"HTTP/1.1 404 Not Found\r\n", "\r\n"});
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, 404);
    EXPECT_THAT(connection.ReceivedHead.ResponseHeaderLines, ElementsAre("HTTP/1.1 404 Not Found"));
    EXPECT_TRUE(connection.ReceivedHead.HeadersComplete);
}

TEST_F(HTTPConnectionHeadTest, LinesStayUntilTheNextHeadBegins) {
    takeAll({"HTTP/1.1 302 Found\r\n", "Location: /x\r\n", "\r\n"});
    EXPECT_THAT(connection.ReceivedHead.ResponseHeaderLines, ElementsAre("HTTP/1.1 302 Found", "Location: /x"));
    take("HTTP/1.1 200 OK\r\n");
    EXPECT_FALSE(connection.ReceivedHead.HeadersComplete);
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, 200);
    EXPECT_THAT(connection.ReceivedHead.ResponseHeaderLines, ElementsAre("HTTP/1.1 200 OK"));
}

TEST_F(HTTPConnectionHeadTest, BlankLineBehindACompleteHeadChangesNothing) {
    takeAll({"HTTP/1.1 200 OK\r\n", "\r\n", "\r\n"});
    EXPECT_TRUE(connection.ReceivedHead.HeadersComplete);
    EXPECT_THAT(connection.ReceivedHead.ResponseHeaderLines, ElementsAre("HTTP/1.1 200 OK"));
}

TEST_F(HTTPConnectionHeadTest, BlankLineWithoutAHeadIsDecidedByTheLastStatus) {
    connection.ReceivedHead.ResponseCode = 100;
    take("\r\n");
    EXPECT_FALSE(connection.ReceivedHead.HeadersComplete);
    connection.ReceivedHead.ResponseCode = 200;
    take("\r\n");
    EXPECT_TRUE(connection.ReceivedHead.HeadersComplete);
    EXPECT_THAT(connection.ReceivedHead.ResponseHeaderLines, IsEmpty());
}

// Kept on purpose: a trailer comes by the same callback and cannot be told from a head.
// What libcurl keeps of heads and trailers grows with them, so the callback ends the transfer.
TEST_F(HTTPConnectionHeadTest, LinesOfAllHeadsAndTrailersAreCounted) {
    const std::string line = "X-Line: " + std::string(1014, 'x') + "\r\n"; // 1 KiB
    takeAll({"HTTP/1.1 103 Early Hints\r\n", "\r\n", "HTTP/1.1 200 OK\r\n", "\r\n"});
    for (int i = 0; i < 1023; ++i) {
        take(line);
    }
    EXPECT_EQ(connection.Transfer.EscapedFailure, nullptr);
    std::string last = line;
    EXPECT_EQ(headerCallback(last.data(), 1, last.size(), &connection), 0U);
    EXPECT_EQ(failureText(connection.Transfer.EscapedFailure),
              "HTTPConnectionRefusedException[Heads and trailers of the response are larger than 1048576 bytes.]");
    EXPECT_EQ(connection.Transfer.Fault, TransferFault::Failed);
}

struct StatusRow {
    long Reported;
    const char* Line;
    std::int32_t Code;
};

class StatusLineTest : public HTTPConnectionHeadTest, public ::testing::WithParamInterface<StatusRow> {};

TEST_P(StatusLineTest, IsParsedOnlyWhereLibcurlHasNoStatus) {
    connection.ReceivedHead.ResponseCode = 999;
    curl.giveInfo(CURLINFO_RESPONSE_CODE, GetParam().Reported);
    take(GetParam().Line + std::string("\r\n"));
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, GetParam().Code);
    EXPECT_THAT(connection.ReceivedHead.ResponseHeaderLines, ElementsAre(GetParam().Line));
    EXPECT_EQ(storedFailure(), "nothing");
}

INSTANTIATE_TEST_SUITE_P(Lines, StatusLineTest,
                         ::testing::Values(StatusRow{418, "HTTP/1.1 200 OK", 418}, StatusRow{0, "HTTP/1.1 200 OK", 200},
                                           StatusRow{0, "HTTP/1.1   204", 204}, StatusRow{0, "HTTP/1.1 20x OK", 20},
                                           StatusRow{0, "HTTP/1.1 OK", 0}, StatusRow{0, "HTTP/1.1", 0},
                                           StatusRow{0, "X-A: 301", 301}, StatusRow{0, " 7", 7},
                                           StatusRow{0, "a -5", -5}, StatusRow{0, "a ", 0}, StatusRow{0, "a \t 12", 12},
                                           StatusRow{0, "a 2147483647", 2147483647}));

TEST_F(HTTPConnectionHeadTest, StatusThatIsNoIntIsStoredAsAFailure) {
    connection.ReceivedHead.ResponseCode = 200;
    take("HTTP/1.1 4294967496 OK\r\n");
    EXPECT_EQ(storedFailure(), internalError("Could not convert response code 4294967496"));
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, 200);
    // The line still counts as a line.
    EXPECT_THAT(connection.ReceivedHead.ResponseHeaderLines, ElementsAre("HTTP/1.1 4294967496 OK"));
}

TEST_F(HTTPConnectionHeadTest, StatusBeyondALongIsCutByItsConversion) {
    take("HTTP/1.1 99999999999999999999 OK\r\n");
    EXPECT_EQ(storedFailure(),
              internalError("Could not convert response code " + std::to_string(std::numeric_limits<long>::max())));
}

TEST_F(HTTPConnectionHeadTest, StatusIsReadOnceAHead) {
    curl.clear();
    takeAll({"HTTP/1.1 200 OK\r\n", "X-A: b 301\r\n", "\r\n"});
    EXPECT_EQ(curl.count(CurlFunction::EasyGetinfo), 1u);
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, 200);
}

class LineEndTest : public HTTPConnectionHeadTest, public ::testing::WithParamInterface<std::string> {};

TEST_P(LineEndTest, IsChecked) {
    take("HTTP/1.1 200 OK\r\n");
    take(GetParam());
    EXPECT_EQ(storedFailure(), kNoLineEnd);
    EXPECT_THAT(connection.ReceivedHead.ResponseHeaderLines, ElementsAre("HTTP/1.1 200 OK"));
    take("X-A: b\r\n"); // the transfer runs on
    EXPECT_THAT(connection.ReceivedHead.ResponseHeaderLines, ElementsAre("HTTP/1.1 200 OK", "X-A: b"));
    EXPECT_EQ(connection.Transfer.EscapedFailure, nullptr);
}

INSTANTIATE_TEST_SUITE_P(Lines, LineEndTest,
                         ::testing::Values("", "\n", "\r", "X", "X-A: b", "X-A: b\n", "X-A: b\r", "\n\r", "X\n\n"));

TEST_F(HTTPConnectionHeadTest, FirstLineWithoutEndStillGivesItsStatus) {
    take("HTTP/1.1 404 Not Found\n");
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, 404);
    EXPECT_EQ(storedFailure(), kNoLineEnd);
    EXPECT_THAT(connection.ReceivedHead.ResponseHeaderLines, IsEmpty());
}

TEST_F(HTTPConnectionHeadTest, LastStoredFailureCounts) {
    take("X\n");
    take("HTTP/1.1 99999999999 OK\r\n");
    EXPECT_EQ(storedFailure(), internalError("Could not convert response code 99999999999"));
    take("X\n");
    EXPECT_EQ(storedFailure(), kNoLineEnd);
}

// Nothing may unwind through libcurl, so this one waits for the return of the call that ran the callback.
TEST_F(HTTPConnectionHeadTest, UnreadableStatusEscapesBehindThePerform) {
    connection.Transfer.begin(connection.Handles->Generation);
    connection.ReceivedHead.ResponseCode = 7;
    connection.Limits.Deadline = 1;
    connection.setTimeouts({5000.0, 1000.0});
    connection.applyTimeouts();
    const std::string failure =
        internalError(std::string("\"CURLINFO_RESPONSE_CODE\" failed with CURLcode ") +
                      curl_easy_strerror(CURLE_UNKNOWN_OPTION) + "getting response code after first header");
    curl.failInfo(CURLINFO_RESPONSE_CODE, CURLE_UNKNOWN_OPTION);
    curl.OnPerform = [&](int& running) {
        refuse("HTTP/1.1 200 OK\r\n");
        EXPECT_EQ(failureText(connection.Transfer.EscapedFailure), failure);
        EXPECT_THAT(connection.ReceivedHead.ResponseHeaderLines, IsEmpty());
        EXPECT_EQ(connection.ReceivedHead.ResponseCode, 7);
        EXPECT_EQ(connection.Limits.Deadline, 1); // not moved
        refuse("X-A: b\r\n");                     // nothing runs after it
        EXPECT_THAT(connection.ReceivedHead.ResponseHeaderLines, IsEmpty());
        running = 1;
        return CURLM_INTERNAL_ERROR; // not looked at
    };
    EXPECT_EQ(failureText([&] { connection.perform(""); }), failure);
    EXPECT_EQ(connection.Transfer.EscapedFailure, nullptr);
    EXPECT_EQ(connection.Transfer.CallbackFailure, nullptr);
}

// The handle that is asked is the current scope's, whatever the connection has borrowed.
TEST_F(HTTPConnectionHeadTest, StatusIsThatOfTheScopesHandle) {
    curl.keepInfo(CURLINFO_RESPONSE_CODE);
    CurlSingleton withoutHandles;
    CurlSingleton* const borrowed = std::exchange(connection.Handles, &withoutHandles);
    take("HTTP/1.1 200 OK\r\n");
    connection.Handles = borrowed;
    EXPECT_EQ(failureText(connection.Transfer.EscapedFailure), "nothing");
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, 200);
}

TEST_F(HTTPConnectionHeadTest, EveryLineCountsAsActivity) {
    connection.setTimeouts({5000.0, 1000.0, 3000.0});
    connection.applyTimeouts();
    connection.Limits.Deadline = 0;
    std::int64_t now = 0;
    for (const std::string line : {"HTTP/1.1 200 OK\r\n", "X-A: b\r\n", "bad\n", ""}) {
        curl.setClock(now += 10 * kMs);
        take(line);
        EXPECT_EQ(connection.Limits.Deadline, now + 1000 * kMs);
        EXPECT_EQ(connection.Limits.TimeoutReason, 0);
    }
    curl.setClock(now += 10 * kMs);
    take("\r\n");
    EXPECT_EQ(connection.Limits.Deadline, now + 3000 * kMs); // from here on the data limit governs
    EXPECT_EQ(connection.Limits.TimeoutReason, 1);
}

TEST_F(HTTPConnectionHeadTest, NoSilenceEndsContentWithoutADataLimit) {
    connection.setTimeouts({5000.0, 1000.0});
    connection.applyTimeouts();
    connection.Limits.Deadline = 0;
    takeAll({"HTTP/1.1 100 Continue\r\n", "\r\n"});
    EXPECT_NE(connection.Limits.Deadline, SilenceLimits::kNoDeadline);
    takeAll({"HTTP/1.1 200 OK\r\n", "\r\n"});
    EXPECT_EQ(connection.Limits.Deadline, SilenceLimits::kNoDeadline);
}

TEST_F(HTTPConnectionHeadTest, TraceKeepsTheReturnAndDropsTheNewline) {
    const StandardOutputCapture output;
    connection.Settings.Debug = 1;
    takeAll({"HTTP/1.1 200 OK\r\n", "X\n", "", "Y"});
    EXPECT_EQ(output.text(), "IN  HDR: HTTP/1.1 200 OK\rIN  HDR: XIN  HDR: IN  HDR: ");
    take("\r\n");
    EXPECT_THAT(output.text(), ::testing::EndsWith("IN  HDR: ...DONE RECEIVING HEADERS...\n"));
    connection.Settings.Debug = 0;
}

TEST_F(HTTPConnectionHeadTest, TraceClosesAPendingRunFirst) {
    const StandardOutputCapture output;
    connection.Settings.Debug = 1;
    tracePerform(1, "READER");
    take("X\r\n");
    EXPECT_EQ(output.text(), "PERFORM IN READER 1 times\nIN  HDR: X\r");
    connection.Settings.Debug = 0;
}

TEST_F(HTTPConnectionHeadTest, InterimHeadWithFieldsIsReported) {
    const StandardOutputCapture output;
    connection.Settings.Debug = 1;
    connection.SentHead.EffectiveMethod = "GET";
    takeAll({"HTTP/1.1 100 Continue\r\n", "X-A: b\r\n", "\r\n"});
    EXPECT_EQ(output.text(), "IN  HDR: HTTP/1.1 100 Continue\rIN  HDR: X-A: b\r"
                             "UNEXPECTED HEADERS FOR RESPONSE 100 TO GET\nHTTP/1.1 100 Continue\nX-A: b\n\n");
    EXPECT_THAT(connection.ReceivedHead.ResponseHeaderLines, IsEmpty());
    connection.Settings.Debug = 0;
}

TEST_F(HTTPConnectionHeadTest, InterimHeadWithoutFieldsIsNotReported) {
    const StandardOutputCapture output;
    connection.Settings.Debug = 1;
    takeAll({"HTTP/1.1 100 Continue\r\n", "\r\n"});
    EXPECT_EQ(output.text(), "IN  HDR: HTTP/1.1 100 Continue\r");
    connection.Settings.Debug = 0;
    takeAll({"HTTP/1.1 100 Continue\r\n", "X-A: b\r\n", "\r\n"});
    EXPECT_EQ(output.text(), "IN  HDR: HTTP/1.1 100 Continue\r");
    EXPECT_THAT(connection.ReceivedHead.ResponseHeaderLines, IsEmpty());
}

} // namespace
