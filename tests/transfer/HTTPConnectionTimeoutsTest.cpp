#include "errors/HTTPException.h"
#include "errors/MessageIdentifiers.h"
#include "host/Text.h"
#include "tests/transfer/ConnectionFixture.h"

#include <rapidcheck/gtest.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <utility>

namespace {

namespace id = VANTIK::webservices;

constexpr double kUnlimited = SilenceLimits::kUnlimited;
constexpr std::int64_t kNoDeadline = SilenceLimits::kNoDeadline;
constexpr std::int64_t kStart = 50'000 * kMs;

std::string catalogueText(const resource_core::BaseMsgID& message) {
    return fl::i18n::to_string(fl::i18n::MessageCatalog::get_message(message, fl::i18n::VkLocale::global()));
}

class HTTPConnectionTimeoutsTest : public ConnectionFixture {
protected:
    HTTPConnectionTimeoutsTest() {
        curl.setClock(kStart);
        curl.giveInfo(CURLINFO_CONNECT_TIME, 0.25); // connected
        connection.Settings.HTTPOptionsMode = true;
    }

    std::string check(std::int64_t start, bool libcurlTimedOut) {
        return failureText([&] { connection.checkTimeout(start, libcurlTimedOut); });
    }

    HTTPConnection connection;
};

TEST_F(HTTPConnectionTimeoutsTest, EmptyArrayIsRefusedAndChangesNothing) {
    connection.setTimeouts({1.0, 2.0, 3.0, 4.0});
    EXPECT_EQ(failureText([&] { connection.setTimeouts({}); }), internalError("Timeout array is empty"));
    EXPECT_THAT(connection.getTimeouts(), ElementsAre(1.0, 2.0, 3.0, 4.0));
}

TEST_F(HTTPConnectionTimeoutsTest, ConnectTimeoutGoesToLibcurlInWholeMilliseconds) {
    const std::pair<double, std::int64_t> rows[] = {{5000.0, 5000},
                                                    {0.0, 0},
                                                    {0.9, 0},
                                                    {-0.9, 0},
                                                    {-1.0, -1},
                                                    {2147483647.9, 2147483647},
                                                    {-2147483648.9, -2147483648},
                                                    {kUnlimited, 2147483647},
                                                    {-kUnlimited, 2147483647},
                                                    {2147483648.0, 1000},
                                                    {-2147483649.0, 1000},
                                                    {1e12, 1000}};
    for (const auto& [timeout, option] : rows) {
        connection.setTimeouts({timeout});
        curl.clear();
        failureText([&] { connection.applyTimeouts(); }); // libcurl itself refuses negative times
        ASSERT_NE(curl.lastOption(CURLOPT_CONNECTTIMEOUT_MS), nullptr);
        EXPECT_EQ(curl.lastOption(CURLOPT_CONNECTTIMEOUT_MS)->Number, option) << timeout;
    }
}

TEST_F(HTTPConnectionTimeoutsTest, FiniteLimitsAreStoredAsIntegersByTheOpen) {
    const auto failureOf = [&](double response, double data) {
        connection.Limits.ResponseTimeoutMs = 11;
        connection.Limits.DataTimeoutMs = 22;
        connection.setTimeouts({5000.0, response, data});
        const std::string failure = failureText([&] { open(connection); });
        EXPECT_EQ(connection.Transfer.Opened, failure == "nothing");
        EXPECT_EQ(connection.Handles->ConnectionOpen, failure == "nothing");
        connection.closeConnection();
        return failure.substr(0, failure.find('['));
    };
    const auto expectStored = [&](std::int64_t response, std::int64_t data) {
        EXPECT_EQ(connection.Limits.ResponseTimeoutMs, response);
        EXPECT_EQ(connection.Limits.DataTimeoutMs, data);
    };
    EXPECT_EQ(failureOf(1500.9, kUnlimited), "nothing");
    expectStored(1500, 22); // what has no limit is not written
    EXPECT_EQ(failureOf(-kUnlimited, 0.0), "nothing");
    expectStored(11, 0);
    EXPECT_EQ(failureOf(1e12, 10.0), "boost::numeric::positive_overflow");
    expectStored(11, 22);
    EXPECT_EQ(failureOf(10.0, -1e12), "boost::numeric::negative_overflow");
    expectStored(10, 22);
    EXPECT_THAT(connection.getTimeouts(), ElementsAre(5000.0, 10.0, -1e12, kUnlimited));
    EXPECT_EQ(failureOf(kUnlimited, kUnlimited), "nothing");
}

// The connect time stays 0 for the whole of a transfer on a reused connection.
TEST_F(HTTPConnectionTimeoutsTest, HeadThatHasGoneOutShowsAReusedConnection) {
    connection.setTimeouts({5000.0, 1000.0});
    connection.applyTimeouts();
    connection.updateDeadline();
    curl.setClock(kStart + 5000 * kMs);
    curl.failInfo(CURLINFO_CONNECT_TIME, CURLE_BAD_FUNCTION_ARGUMENT); // ignored: counts as not connected
    EXPECT_EQ(check(kStart, false), "nothing");
    for (const double connectTime : {-1.0, 0.0}) {
        curl.giveInfo(CURLINFO_CONNECT_TIME, connectTime);
        EXPECT_EQ(check(kStart, false), "nothing");
    }
    connection.SentHead.Sent = true;
    EXPECT_EQ(check(kStart, false), "HTTPTimeoutException[" + catalogueText(id::TimeoutReasonResponseHeader()) +
                                        ", 1000, HTTPOptions.ResponseTimeout]");
}

TEST_F(HTTPConnectionTimeoutsTest, LibcurlsTimeoutNeedsNoDeadline) {
    connection.Limits.Deadline = kNoDeadline;
    connection.Limits.ActiveTimeout = 1234.0;
    curl.giveInfo(CURLINFO_CONNECT_TIME, 0.0);
    setErrorText("timed out");
    curl.setClock(kStart + 10000 * kMs + 999999); // 10000 whole milliseconds: still libcurl's limit
    EXPECT_EQ(check(kStart, true), "HTTPTimeoutException[timed out, 10000, HTTPOptions.ConnectTimeout]");
    // The pumps know no start; what libcurl reports then counts as early, and the last limit is reported.
    EXPECT_EQ(check(NOT_A_TIME, true), "HTTPTimeoutException[timed out, 1234, HTTPOptions.ConnectTimeout]");
    curl.setClock(kStart + 11000 * kMs); // the system's
    EXPECT_EQ(check(kStart, true), "HTTPTimeoutException[" + catalogueText(id::TimeoutReasonSystemLimit()) +
                                       ", 11000, " + catalogueText(id::TimeoutSystemTCP()) + "]");
    ASSERT_NE(catalogueText(id::TimeoutReasonStoppedSending()), catalogueText(id::TimeoutReasonResponseHeader()));
}

// For any pair of response and data timeout, in either interface.

// Milliseconds with a fraction, nought included, or none.
rc::Gen<double> limit() {
    const auto finite = rc::gen::map(rc::gen::inRange(0, 40'000), [](int quarters) { return quarters / 4.0; });
    return rc::gen::weightedOneOf<double>({{4, finite}, {1, rc::gen::just(0.0)}, {2, rc::gen::just(kUnlimited)}});
}

// One pair in four is a tie.
rc::Gen<std::pair<double, double>> limits() {
    return rc::gen::weightedOneOf<std::pair<double, double>>(
        {{3, rc::gen::pair(limit(), limit())},
         {1, rc::gen::map(limit(), [](double both) { return std::make_pair(both, both); })}});
}

class TimeoutProperty : public HTTPConnectionTimeoutsTest {
protected:
    TimeoutProperty() {
        curl.giveInfo(CURLINFO_RESPONSE_CODE, 200L);
        connection.Settings.HTTPOptionsMode = *rc::gen::arbitrary<bool>();
        std::tie(Response, Data) = *limits();
        connection.setTimeouts({5000.0, Response, Data});
        connection.applyTimeouts();
        connection.Limits.Deadline = kStart; // runs
    }

    bool responseGoverns() const {
        return !connection.ReceivedHead.HeadersComplete && Response < kUnlimited && !(Data < Response);
    }
    // The limit that governs, in milliseconds.
    double active() const { return responseGoverns() ? Response : Data; }
    std::string expectedOption() const {
        return !responseGoverns()                    ? "HTTPOptions.DataTimeout"
               : connection.Settings.HTTPOptionsMode ? "HTTPOptions.ResponseTimeout"
                                                     : "weboptions.Timeout";
    }

    std::optional<webservices::HTTPTimeoutException> checkLate(std::int64_t start) {
        try {
            connection.checkTimeout(start, false);
        } catch (const webservices::HTTPTimeoutException& late) {
            return late;
        }
        return std::nullopt;
    }
    void passHeadLine(std::string line) {
        RC_ASSERT(headerCallback(line.data(), 1, line.size(), &connection) == line.size());
    }
    void trace(curl_infotype type) {
        char byte = 'x';
        RC_ASSERT(debugCallback(nullptr, type, &byte, 1, &connection) == 0);
    }

    double Response = kUnlimited;
    double Data = kUnlimited;
};

RC_GTEST_FIXTURE_PROP(TimeoutProperty, LateIsStrictlyAfterTheLimitAndNamesIt, ()) {
    connection.ReceivedHead.HeadersComplete = *rc::gen::arbitrary<bool>();
    RC_PRE(active() < kUnlimited);
    connection.updateDeadline();
    RC_ASSERT(connection.Limits.Deadline == kStart + static_cast<std::int64_t>(active()) * kMs);
    curl.setClock(connection.Limits.Deadline);
    RC_ASSERT(!checkLate(kStart));
    curl.advanceClock(1 + *rc::gen::inRange<std::int64_t>(0, 20'000 * kMs));
    const std::int64_t now = *curl.clock();
    // The caller's start lies anywhere before, or is not known.
    const bool known = *rc::gen::arbitrary<bool>();
    const std::int64_t start = known ? now - *rc::gen::inRange<std::int64_t>(0, 30'000 * kMs) : NOT_A_TIME;
    const auto late = checkLate(start);
    RC_ASSERT(late.has_value());
    const auto elapsed = static_cast<double>(known ? (now - start) / kMs : 0);
    RC_ASSERT(late->TimeoutMilliseconds == (known ? std::min(elapsed, active()) : active()));
    RC_ASSERT(fl::i18n::to_string(late->OptionName) == expectedOption());
    RC_ASSERT(late->OptionName == connection.Limits.TimeoutOption);
    const resource_core::BaseMsgID reason = connection.ReceivedHead.HeadersComplete
                                                ? resource_core::BaseMsgID(id::TimeoutReasonStoppedSending())
                                                : resource_core::BaseMsgID(id::TimeoutReasonResponseHeader());
    RC_ASSERT(fl::i18n::to_string(late->Message) == catalogueText(reason));
}

// Activity, time and checks in any order, the head's end somewhere between them: a check fails exactly when the silence
// has lasted longer than the limit that governed when it began.
RC_GTEST_FIXTURE_PROP(TimeoutProperty, OnlySilenceIsLate, ()) {
    if (Response == kUnlimited && Data == kUnlimited) {
        connection.Limits.Deadline = kNoDeadline; // as the send sets it
    }
    connection.updateDeadline();
    std::int64_t heard = kStart;
    std::int64_t now = kStart;
    const auto steps = *rc::gen::container<std::vector<int>>(rc::gen::inRange(0, 5));
    const int headAt = *rc::gen::inRange(0, 20);
    for (int step = 0; step < static_cast<int>(steps.size()); ++step) {
        if (step == headAt) {
            passHeadLine("HTTP/1.1 200 OK\r\n");
            passHeadLine("\r\n");
            RC_ASSERT(connection.ReceivedHead.HeadersComplete);
            heard = now;
        }
        switch (steps[static_cast<std::size_t>(step)]) {
        case 0:
            trace(*rc::gen::element(CURLINFO_DATA_IN, CURLINFO_DATA_OUT, CURLINFO_HEADER_IN));
            heard = now;
            break;
        case 1:
            trace(CURLINFO_TEXT); // libcurl's own remarks are not activity
            break;
        default:
            now += *rc::gen::inRange<std::int64_t>(0, 6'000 * kMs);
            curl.setClock(now);
        }
        const bool limited = active() < kUnlimited;
        const std::int64_t allowed = limited ? static_cast<std::int64_t>(active()) * kMs : 0;
        RC_ASSERT(checkLate(kStart).has_value() == (limited && now - heard > allowed));
        RC_ASSERT((connection.Limits.Deadline == kNoDeadline) == !limited);
    }
}

} // namespace
