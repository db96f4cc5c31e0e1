#include "cli/batch/BatchRetry.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

using namespace netrove::cli;
using namespace std::chrono_literals;
using std::chrono::milliseconds;

// Sunday, 6 November 1994, 08:49:37.
const WallClock::time_point kNow{784111777s};

class BatchRetry : public testing::Test {
protected:
    RetrySettings Settings{.Retries = 10, .FirstWait = 1, .LongestWait = 300, .Unsafe = false};
    double Share = 0;
    WallClock::time_point Now = kNow;

    std::optional<milliseconds> wait(int attempts, const FailedAttempt& failed) const {
        return RetryPolicy(
                   Settings, [this] { return Share; }, [this] { return Now; })
            .waitAfter(attempts, failed);
    }
    static FailedAttempt ofProgram(const std::string& key) {
        return {.Message = {"NETROVE:cli", key, {}, "x"}, .Method = "GET"};
    }
    static FailedAttempt ofTransfer(const std::string& key, const std::string& argument = "") {
        return {.Message = {"VANTIK:webservices", key, {argument}, "x"}, .Method = "GET"};
    }
    static FailedAttempt status(int number, const std::string& retryAfter = "") {
        return {.Message = {"NETROVE:cli", "StatusError", {}, "x"},
                .Status = number,
                .RetryAfter = retryAfter,
                .Method = "GET"};
    }
};

TEST_F(BatchRetry, TriesAgainOnlyWhatMayPass) {
    for (const int number : {408, 429, 500, 502, 503, 504}) {
        EXPECT_TRUE(wait(1, status(number))) << number;
    }
    for (const int number : {400, 401, 403, 404, 410, 501, 505}) {
        EXPECT_FALSE(wait(1, status(number))) << number;
    }
    const std::string copy = "CopyContentToDataStreamError";
    for (const FailedAttempt& passing :
         {ofTransfer("Timeout"), ofTransfer("ConnectionRefused"), ofTransfer("UnknownHost"),
          ofTransfer("PartialFileWarning"), ofProgram("MaxTime"),
          ofTransfer(copy, "Empty reply from server (CURLE code 52)")}) {
        EXPECT_TRUE(wait(1, passing)) << passing.Message.identifier();
    }
    for (const FailedAttempt& lasting :
         {ofTransfer("MalformedURL"), ofTransfer("SSLConnectionFailure"), ofTransfer("CertificateFailedVerification"),
          ofTransfer("DecodingError"), ofTransfer(copy), ofTransfer(copy, "Unsupported protocol (CURLE code 1)"),
          ofProgram("FileExists"), ofProgram("FileNotWritten"), ofProgram("TooManyRedirects"), ofProgram("Failure")}) {
        EXPECT_FALSE(wait(1, lasting)) << lasting.Message.identifier();
    }
}

TEST_F(BatchRetry, TriesAsOftenAsAsked) {
    Settings.Retries = 2;
    EXPECT_TRUE(wait(1, status(503)));
    EXPECT_TRUE(wait(2, status(503)));
    EXPECT_FALSE(wait(3, status(503)));
    Settings.Retries = 0;
    EXPECT_FALSE(wait(1, status(503)));
}

TEST_F(BatchRetry, WaitsDoubleUpToALimitAndChanceShortensThemUpToHalf) {
    EXPECT_EQ(wait(3, status(503)), 2s);
    Share = 0.5;
    EXPECT_EQ(wait(3, status(503)), 3s);
    Share = 1; // no shortening
    Settings.LongestWait = 10;
    std::vector<long long> waits;
    for (int attempts = 1; attempts <= 6; ++attempts) {
        waits.push_back(wait(attempts, status(503))->count());
    }
    EXPECT_EQ(waits, (std::vector<long long>{1000, 2000, 4000, 8000, 10000, 10000}));
    Settings.Retries = 5000;
    EXPECT_EQ(wait(4000, status(503)), 10s);
}

TEST_F(BatchRetry, RetryAfterCountsInsteadAndHasTheSameLimit) {
    EXPECT_EQ(wait(3, status(503, "7")), 7s);
    EXPECT_EQ(wait(3, status(503, "0")), 0s);
    Share = 0.5;
    EXPECT_EQ(wait(1, status(429, "7")), 7500ms) << "a little later, so that not all come back at once";
    EXPECT_EQ(wait(1, status(503, "100000")), 300s);
    Share = 0;
    EXPECT_EQ(wait(1, status(503, "Sun, 06 Nov 1994 08:50:00 GMT")), 23s);
    Now += 20s;
    EXPECT_EQ(wait(1, status(503, "Sun, 06 Nov 1994 08:50:00 GMT")), 3s);
    EXPECT_EQ(wait(1, status(503, "Fri, 31 Dec 9999 23:59:59 GMT")), 300s) << "never is not at once";
    Share = 1;
    EXPECT_EQ(wait(1, status(503, "soon")), 1s) << "as if it had said nothing";
}

TEST_F(BatchRetry, TriesAgainWhatMayNotBeDoneTwiceOnlyWhereNothingWasSentOrWhereAsked) {
    const auto triesAgain = [this](const char* method, bool nothingSent, bool unsafe) {
        FailedAttempt failed = status(503);
        failed.Method = method;
        failed.NothingSent = nothingSent;
        Settings.Unsafe = unsafe;
        return wait(1, failed).has_value();
    };
    for (const char* method : {"GET", "HEAD", "PUT", "DELETE", "OPTIONS", "TRACE"}) {
        EXPECT_TRUE(triesAgain(method, false, false)) << method;
    }
    for (const char* method : {"POST", "PATCH", "LOCK", "get"}) {
        EXPECT_FALSE(triesAgain(method, false, false)) << method;
        EXPECT_TRUE(triesAgain(method, true, false) && triesAgain(method, false, true)) << method;
    }
}

TEST(RetryAfter, ThreeFormsOfADateAreTheSameMoment) {
    for (const char* text :
         {"Sun, 06 Nov 1994 08:49:37 GMT", "Sunday, 06-Nov-94 08:49:37 GMT", "Sun Nov  6 08:49:37 1994"}) {
        EXPECT_EQ(parseRetryAfter(text, kNow - 90s), 90.0) << text;
        EXPECT_EQ(parseRetryAfter(text, kNow + 90s), 0.0) << text;
    }
}

TEST(RetryAfter, AYearOfTwoDigitsIsTheNearOne) {
    const auto in2026 = WallClock::time_point(std::chrono::sys_days(std::chrono::year(2026) / 1 / 1));
    EXPECT_EQ(parseRetryAfter("Thursday, 01-Jan-26 00:00:05 GMT", in2026), 5.0);
    EXPECT_EQ(parseRetryAfter("Sunday, 06-Nov-94 08:49:37 GMT", in2026), 0.0) << "1994, not 2094";
}

TEST(RetryAfter, ADateFarAwayIsAsFarAsItSays) {
    // A clock that counts nanoseconds ends in 2262 and begins in 1677.
    for (const auto& [text, seconds] :
         {std::pair{"Tue, 01 Jan 2261 00:00:00 GMT", 8398998623.0},
          std::pair{"Sun, 01 Jan 2299 00:00:00 GMT", 9598144223.0},
          std::pair{"Fri, 31 Dec 9999 23:59:59 GMT", 252618189022.0},
          std::pair{"Fri Dec 31 23:59:59 9999", 252618189022.0}, std::pair{"Mon, 01 Jan 1601 00:00:00 GMT", 0.0},
          std::pair{"Sat, 01 Jan 0000 00:00:00 GMT", 0.0}}) {
        EXPECT_EQ(parseRetryAfter(text, kNow), seconds) << text;
    }
    EXPECT_EQ(parseRetryAfter("Fri, 31 Dec 9999 23:59:59 GMT", kNow + 250ms), 252618189021.75);
}

TEST(RetryAfter, AnythingElseIsNothing) {
    for (const char* text :
         {"", "-1", "1.5", "1 ", "soon", "Sun, 06 Nov 1994 08:49:37", "Sun, 06 Foo 1994 08:49:37 GMT",
          "Sun, 31 Feb 1994 08:49:37 GMT", "Sun, 262 Nov 1994 08:49:37 GMT", "Sun, 06 Nov 1994 24:49:37 GMT",
          "Sun, 06 Nov 1994 08:49 GMT", "Sunday, 06-Nov-1994 08:49:37 GMT", "Sun, 06 Nov 99999 08:49:37 GMT",
          "Sun Nov 6 08:49:37 1994 GMT", "Sun, -6 Nov 1994 08:49:37 GMT", ", , , , , GMT"}) {
        EXPECT_FALSE(parseRetryAfter(text, kNow)) << text;
    }
    EXPECT_EQ(parseRetryAfter("99999999999999999999999999999999", kNow), 1e12);
}

} // namespace
