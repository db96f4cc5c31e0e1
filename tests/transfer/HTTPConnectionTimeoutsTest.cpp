#include "errors/MessageIdentifiers.h"
#include "host/Text.h"
#include "tests/transfer/ConnectionFixture.h"

#include <limits>

namespace {

namespace id = VANTIK::webservices;

constexpr double kUnlimited = SilenceLimits::kUnlimited;
constexpr std::int64_t kNoDeadline = SilenceLimits::kNoDeadline;
constexpr std::int64_t kMs = 1'000'000;
constexpr std::int64_t kStart = 1'000 * kMs;

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

    // As after an open and at the start of a send.
    void begin(double response, double data) {
        connection.setTimeouts({5000.0, response, data});
        connection.applyTimeouts();
        connection.Limits.Deadline = kStart;
        connection.updateDeadline();
    }
    std::string check(std::int64_t start, bool libcurlTimedOut) {
        return failureText([&] { connection.checkTimeout(start, libcurlTimedOut); });
    }
    void setErrorText(const std::string& text) {
        text.copy(connection.Handles->ErrorBuffer, sizeof connection.Handles->ErrorBuffer - 1);
        connection.Handles->ErrorBuffer[text.size()] = '\0';
    }

    HTTPConnection connection;
};

TEST_F(HTTPConnectionTimeoutsTest, ArrayHasFourEntriesWhateverWasSet) {
    EXPECT_THAT(connection.getTimeouts(), ElementsAre(5000.0, kUnlimited, kUnlimited, kUnlimited));
    connection.setTimeouts({1.0, 2.0, 3.0, 4.0, 5.0});
    EXPECT_THAT(connection.getTimeouts(), ElementsAre(1.0, 2.0, 3.0, 4.0));
    connection.setTimeouts({1.0, 2.0, 3.0});
    EXPECT_THAT(connection.getTimeouts(), ElementsAre(1.0, 2.0, 3.0, kUnlimited));
    connection.setTimeouts({7.0}); // back to no limit
    EXPECT_THAT(connection.getTimeouts(), ElementsAre(7.0, kUnlimited, kUnlimited, kUnlimited));
}

TEST_F(HTTPConnectionTimeoutsTest, EmptyArrayIsRefusedAndChangesNothing) {
    connection.setTimeouts({1.0, 2.0, 3.0, 4.0});
    EXPECT_EQ(failureText([&] { connection.setTimeouts({}); }), internalError("Timeout array is empty"));
    EXPECT_THAT(connection.getTimeouts(), ElementsAre(1.0, 2.0, 3.0, 4.0));
}

struct ConnectRow {
    double Timeout;
    std::int64_t Option;
};

class ConnectTimeoutTest : public HTTPConnectionTimeoutsTest, public ::testing::WithParamInterface<ConnectRow> {};

TEST_P(ConnectTimeoutTest, GoesToLibcurlInWholeMilliseconds) {
    connection.setTimeouts({GetParam().Timeout});
    curl.clear();
    failureText([&] { connection.applyTimeouts(); }); // libcurl itself refuses negative times
    ASSERT_NE(curl.lastOption(CURLOPT_CONNECTTIMEOUT_MS), nullptr);
    EXPECT_EQ(curl.lastOption(CURLOPT_CONNECTTIMEOUT_MS)->Number, GetParam().Option);
}

INSTANTIATE_TEST_SUITE_P(Values, ConnectTimeoutTest,
                         ::testing::Values(ConnectRow{5000.0, 5000}, ConnectRow{0.0, 0}, ConnectRow{0.9, 0},
                                           ConnectRow{-0.9, 0}, ConnectRow{-1.0, -1},
                                           ConnectRow{2147483647.9, 2147483647}, ConnectRow{2147483648.0, 1000},
                                           ConnectRow{1e12, 1000}, ConnectRow{kUnlimited, 2147483647},
                                           ConnectRow{-kUnlimited, 2147483647}, ConnectRow{-2147483648.9, -2147483648},
                                           ConnectRow{-2147483649.0, 1000}));

TEST_F(HTTPConnectionTimeoutsTest, FiniteLimitsAreStoredAsIntegers) {
    connection.Limits.ResponseTimeoutMs = connection.Limits.DataTimeoutMs = 77;
    connection.setTimeouts({5000.0, 1500.9, kUnlimited});
    connection.applyTimeouts();
    EXPECT_EQ(connection.Limits.ResponseTimeoutMs, 1500);
    EXPECT_EQ(connection.Limits.DataTimeoutMs, 77); // not written
    connection.setTimeouts({5000.0, kUnlimited, 0.0});
    connection.applyTimeouts();
    EXPECT_EQ(connection.Limits.ResponseTimeoutMs, 1500);
    EXPECT_EQ(connection.Limits.DataTimeoutMs, 0);
}

TEST_F(HTTPConnectionTimeoutsTest, OverflowingLimitsFailTheOpen) {
    for (const std::vector<double>& timeouts : {std::vector{5000.0, 1e12}, std::vector{5000.0, kUnlimited, 1e12}}) {
        connection.setTimeouts(timeouts);
        EXPECT_THAT(failureText([&] { open(connection); }),
                    ::testing::StartsWith("boost::numeric::positive_overflow["));
        EXPECT_FALSE(connection.Transfer.Opened);
        EXPECT_FALSE(connection.Handles->ConnectionOpen);
    }
    connection.setTimeouts({5000.0, -3e9});
    EXPECT_THAT(failureText([&] { open(connection); }), ::testing::StartsWith("boost::numeric::negative_overflow["));
}

struct DeadlineRow {
    const char* Name;
    double Response;
    double Data;
    bool HeadersComplete;
    bool OptionsMode;
    std::int64_t AheadMs; // of the clock; -1: not moved
    std::int32_t Reason;
    const char16_t* Option;
    double Active;
};

class DeadlineTest : public HTTPConnectionTimeoutsTest, public ::testing::WithParamInterface<DeadlineRow> {};

TEST_P(DeadlineTest, FollowsTheLimitThatGoverns) {
    const DeadlineRow& row = GetParam();
    connection.Settings.HTTPOptionsMode = row.OptionsMode;
    connection.setTimeouts({5000.0, row.Response, row.Data});
    connection.applyTimeouts();
    connection.ReceivedHead.HeadersComplete = row.HeadersComplete;
    connection.Limits.Deadline = kStart - 1;
    connection.Limits.TimeoutReason = -1;
    connection.Limits.TimeoutOption = u"before";
    connection.Limits.ActiveTimeout = -1.0;
    curl.advanceClock(5 * kMs);
    connection.updateDeadline();
    EXPECT_EQ(connection.Limits.Deadline, row.AheadMs < 0 ? kStart - 1 : kStart + 5 * kMs + row.AheadMs * kMs);
    EXPECT_EQ(connection.Limits.TimeoutReason, row.Reason);
    EXPECT_EQ(connection.Limits.TimeoutOption, row.Option);
    EXPECT_EQ(connection.Limits.ActiveTimeout, row.Active);
}

constexpr const char16_t* kResponseOption = u"HTTPOptions.ResponseTimeout";
constexpr const char16_t* kDataOption = u"HTTPOptions.DataTimeout";
constexpr const char16_t* kWebOption = u"weboptions.Timeout";
INSTANTIATE_TEST_SUITE_P(
    Limits, DeadlineTest,
    ::testing::Values(DeadlineRow{"ResponseAlone", 3000, kUnlimited, false, true, 3000, 0, kResponseOption, 3000},
                      DeadlineRow{"ResponseAloneOlder", 3000, kUnlimited, false, false, 3000, 0, kWebOption, 3000},
                      DeadlineRow{"ResponseAloneBehindHead", 3000, kUnlimited, true, true, -1, -1, u"before", -1},
                      DeadlineRow{"DataAlone", kUnlimited, 2000, false, true, 2000, 0, kDataOption, 2000},
                      DeadlineRow{"DataAloneBehindHead", kUnlimited, 2000, true, true, 2000, 1, kDataOption, 2000},
                      DeadlineRow{"DataIsShorter", 30000, 10000, false, true, 10000, 0, kDataOption, 10000},
                      DeadlineRow{"DataIsShorterOlder", 30000, 10000, false, false, 10000, 0, kDataOption, 10000},
                      DeadlineRow{"TieGoesToResponse", 10000, 10000, false, true, 10000, 0, kResponseOption, 10000},
                      DeadlineRow{"ResponseIsShorter", 1000, 10000, false, true, 1000, 0, kResponseOption, 1000},
                      DeadlineRow{"OnlyDataBehindHead", 1000, 10000, true, true, 10000, 1, kDataOption, 10000},
                      DeadlineRow{"OnlyDataBehindHeadOlder", 1000, 10000, true, false, 10000, 1, kDataOption, 10000},
                      DeadlineRow{"NoneSet", kUnlimited, kUnlimited, false, true, -1, -1, u"before", -1},
                      DeadlineRow{"ZeroIsALimit", 0, kUnlimited, false, true, 0, 0, kResponseOption, 0}),
    [](const auto& info) { return info.param.Name; });

// It compares false with everything, so the data limit is never the shorter one; behind the head it is the only one.
TEST_F(HTTPConnectionTimeoutsTest, LimitThatIsNoNumberLeavesTheResponseLimitInCharge) {
    const double none = std::numeric_limits<double>::quiet_NaN();
    begin(3000.0, none);
    EXPECT_EQ(connection.Limits.Deadline, kStart + 3000 * kMs);
    EXPECT_EQ(connection.Limits.TimeoutOption, kResponseOption);
    begin(none, 2000.0);
    EXPECT_EQ(connection.Limits.Deadline, kStart - 2147483648 * kMs);
    EXPECT_EQ(connection.Limits.TimeoutOption, kResponseOption);
    connection.Limits.TimeoutOption = u"before";
    begin(kUnlimited, none);
    EXPECT_EQ(connection.Limits.Deadline, kStart);
    EXPECT_EQ(connection.Limits.TimeoutOption, u"before");
    connection.ReceivedHead.HeadersComplete = true;
    begin(3000.0, none);
    EXPECT_EQ(connection.Limits.Deadline, kStart - 2147483648 * kMs);
    EXPECT_EQ(connection.Limits.TimeoutOption, kDataOption);
}

TEST_F(HTTPConnectionTimeoutsTest, NoDeadlineIsNeverMoved) {
    connection.setTimeouts({5000.0, 1000.0, 1000.0});
    connection.applyTimeouts();
    connection.Limits.Deadline = kNoDeadline;
    connection.updateDeadline();
    EXPECT_EQ(connection.Limits.Deadline, kNoDeadline);
}

TEST_F(HTTPConnectionTimeoutsTest, NothingIsLateWithoutADeadline) {
    connection.Limits.Deadline = kNoDeadline;
    curl.clear();
    curl.setClock(std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(check(kStart, false), "nothing");
    EXPECT_EQ(curl.count(CurlFunction::EasyGetinfo), 0u);
}

TEST_F(HTTPConnectionTimeoutsTest, LateIsStrictlyBehindTheDeadline) {
    begin(1000.0, kUnlimited);
    curl.setClock(kStart + 1000 * kMs);
    EXPECT_EQ(check(kStart, false), "nothing");
    curl.advanceClock(1);
    EXPECT_EQ(check(kStart, false), "HTTPTimeoutException[" + catalogueText(id::TimeoutReasonResponseHeader()) +
                                       ", 1000, HTTPOptions.ResponseTimeout]");
}

TEST_F(HTTPConnectionTimeoutsTest, ContentTimeoutNamesTheDataLimit) {
    connection.ReceivedHead.HeadersComplete = true;
    begin(kUnlimited, 1000.0);
    curl.setClock(kStart + 1500 * kMs);
    EXPECT_EQ(check(kStart, false), "HTTPTimeoutException[" + catalogueText(id::TimeoutReasonStoppedSending()) +
                                       ", 1000, HTTPOptions.DataTimeout]");
    ASSERT_NE(catalogueText(id::TimeoutReasonStoppedSending()), catalogueText(id::TimeoutReasonResponseHeader()));
}

// The smaller of the elapsed time and the limit is told; without a start, the limit.
TEST_F(HTTPConnectionTimeoutsTest, ReportedValueIsElapsedOrLimit) {
    begin(1000.0, kUnlimited);
    const std::string reason = catalogueText(id::TimeoutReasonResponseHeader());
    curl.setClock(kStart + 2500 * kMs + 999999);
    EXPECT_EQ(check(kStart + 2000 * kMs, false),
              "HTTPTimeoutException[" + reason + ", 500, HTTPOptions.ResponseTimeout]");
    EXPECT_EQ(check(kStart, false), "HTTPTimeoutException[" + reason + ", 1000, HTTPOptions.ResponseTimeout]");
    EXPECT_EQ(check(NOT_A_TIME, false), "HTTPTimeoutException[" + reason + ", 1000, HTTPOptions.ResponseTimeout]");
}

TEST_F(HTTPConnectionTimeoutsTest, OnlyLibcurlsLimitCountsWhileConnecting) {
    begin(1000.0, kUnlimited);
    curl.setClock(kStart + 5000 * kMs);
    curl.giveInfo(CURLINFO_CONNECT_TIME, 0.0);
    EXPECT_EQ(check(kStart, false), "nothing");
    curl.giveInfo(CURLINFO_CONNECT_TIME, -1.0);
    EXPECT_EQ(check(kStart, false), "nothing");
    curl.giveInfo(CURLINFO_CONNECT_TIME, 0.25);
    curl.failInfo(CURLINFO_CONNECT_TIME, CURLE_BAD_FUNCTION_ARGUMENT); // ignored: counts as not connected
    EXPECT_EQ(check(kStart, false), "nothing");
    EXPECT_NE(check(kStart, false), "nothing");
}

// The connect time stays 0 for the whole of a transfer on a reused connection.
TEST_F(HTTPConnectionTimeoutsTest, HeadThatHasGoneOutShowsAReusedConnection) {
    begin(1000.0, kUnlimited);
    curl.setClock(kStart + 5000 * kMs);
    curl.giveInfo(CURLINFO_CONNECT_TIME, 0.0);
    connection.SentHead.Sent = true;
    EXPECT_EQ(check(kStart, false), "HTTPTimeoutException[" + catalogueText(id::TimeoutReasonResponseHeader()) +
                                       ", 1000, HTTPOptions.ResponseTimeout]");
}

TEST_F(HTTPConnectionTimeoutsTest, LibcurlsTimeoutNeedsNoDeadlineAndNoConnection) {
    connection.Limits.Deadline = kNoDeadline;
    curl.giveInfo(CURLINFO_CONNECT_TIME, 0.0);
    setErrorText("Connection timed out after 9000 ms");
    curl.setClock(kStart + 9000 * kMs);
    EXPECT_EQ(check(kStart, true),
              "HTTPTimeoutException[Connection timed out after 9000 ms, 9000, HTTPOptions.ConnectTimeout]");
    EXPECT_EQ(connection.Limits.TimeoutOption, u"HTTPOptions.ConnectTimeout");
}

TEST_F(HTTPConnectionTimeoutsTest, LibcurlsTimeoutNamesTheOlderOption) {
    connection.Settings.HTTPOptionsMode = false;
    connection.Limits.Deadline = kNoDeadline;
    setErrorText("timed out");
    curl.setClock(kStart + 9000 * kMs);
    EXPECT_EQ(check(kStart, true), "HTTPTimeoutException[timed out, 9000, weboptions.Timeout]");
}

TEST_F(HTTPConnectionTimeoutsTest, LongConnectIsTheSystemsLimit) {
    connection.Limits.Deadline = kNoDeadline;
    setErrorText("timed out");
    curl.setClock(kStart + 10000 * kMs + 999999); // 10000 whole milliseconds: still libcurl's
    EXPECT_EQ(check(kStart, true), "HTTPTimeoutException[timed out, 10000, HTTPOptions.ConnectTimeout]");
    curl.setClock(kStart + 11000 * kMs);
    EXPECT_EQ(check(kStart, true), "HTTPTimeoutException[" + catalogueText(id::TimeoutReasonSystemLimit()) +
                                      ", 11000, " + catalogueText(id::TimeoutSystemTCP()) + "]");
    EXPECT_EQ(fl::i18n::to_string(connection.Limits.TimeoutOption), catalogueText(id::TimeoutSystemTCP()));
}

// The pumps know no start; what libcurl reports then counts as early, and the last limit is told.
TEST_F(HTTPConnectionTimeoutsTest, LibcurlsTimeoutWithoutAStartTellsTheLimit) {
    connection.Limits.Deadline = kNoDeadline;
    connection.Limits.ActiveTimeout = 1234.0;
    setErrorText("timed out");
    EXPECT_EQ(check(NOT_A_TIME, true), "HTTPTimeoutException[timed out, 1234, HTTPOptions.ConnectTimeout]");
}

} // namespace
