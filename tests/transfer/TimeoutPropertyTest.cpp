// Which limit governs, for any pair of response and data timeout and any course of a transfer.
#include "errors/HTTPException.h"
#include "errors/MessageIdentifiers.h"
#include "host/Text.h"
#include "tests/transfer/ConnectionFixture.h"

#include <rapidcheck/gtest.h>

#include <algorithm>
#include <optional>
#include <utility>

namespace {

namespace id = VANTIK::webservices;

constexpr double kUnlimited = SilenceLimits::kUnlimited;
constexpr std::int64_t kNoDeadline = SilenceLimits::kNoDeadline;
constexpr std::int64_t kMs = 1'000'000;
constexpr std::int64_t kStart = 50'000 * kMs;

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

enum class Governs { Nothing, Response, Data };

Governs governing(double response, double data, bool headersComplete) {
    const bool awaitsHead = !headersComplete && response < kUnlimited;
    if (awaitsHead && !(data < response)) {
        return Governs::Response;
    }
    return data < kUnlimited ? Governs::Data : Governs::Nothing;
}

std::int64_t wholeNs(double milliseconds) {
    return static_cast<std::int64_t>(milliseconds) * kMs;
}

class TimeoutProperty : public ConnectionFixture {
protected:
    TimeoutProperty() {
        curl.giveInfo(CURLINFO_CONNECT_TIME, 0.25); // connected
        curl.giveInfo(CURLINFO_RESPONSE_CODE, 200L);
        connection.Settings.HTTPOptionsMode = *rc::gen::arbitrary<bool>();
        std::tie(response, data) = *limits();
        connection.setTimeouts({5000.0, response, data});
        connection.applyTimeouts();
        connection.Limits.Deadline = kStart; // runs
        curl.setClock(kStart);
    }

    std::string optionOf(Governs governs) const {
        if (governs == Governs::Data) {
            return "HTTPOptions.DataTimeout";
        }
        return connection.Settings.HTTPOptionsMode ? "HTTPOptions.ResponseTimeout" : "weboptions.Timeout";
    }
    std::string optionName() const { return fl::i18n::to_string(connection.Limits.TimeoutOption); }

    std::optional<webservices::HTTPTimeoutException> check(std::int64_t start, bool libcurlTimedOut = false) {
        try {
            connection.checkTimeout(start, libcurlTimedOut);
        } catch (const webservices::HTTPTimeoutException& late) {
            return late;
        }
        return std::nullopt;
    }

    void passHeadLine(std::string line) {
        RC_ASSERT(headerCallback(line.data(), 1, line.size(), &connection) == line.size());
    }
    void moveByte() {
        char byte = 'x';
        const auto type = *rc::gen::element(CURLINFO_DATA_IN, CURLINFO_DATA_OUT, CURLINFO_HEADER_IN);
        RC_ASSERT(debugCallback(nullptr, type, &byte, 1, &connection) == 0);
    }

    HTTPConnection connection;
    double response = kUnlimited;
    double data = kUnlimited;
};

RC_GTEST_FIXTURE_PROP(TimeoutProperty, DeadlineIsThatOfTheLimitThatGoverns, ()) {
    connection.ReceivedHead.HeadersComplete = *rc::gen::arbitrary<bool>();
    connection.Limits.Deadline = kStart - 7;
    connection.Limits.TimeoutReason = -1;
    connection.Limits.TimeoutOption = u"before";
    connection.Limits.ActiveTimeout = -1.0;
    const std::int64_t now = kStart + *rc::gen::inRange<std::int64_t>(0, 100'000 * kMs);
    curl.setClock(now);
    connection.updateDeadline();
    const Governs governs = governing(response, data, connection.ReceivedHead.HeadersComplete);
    if (governs == Governs::Nothing) {
        RC_ASSERT(connection.Limits.Deadline == kStart - 7);
        RC_ASSERT(connection.Limits.TimeoutReason == -1);
        RC_ASSERT(optionName() == "before");
        RC_ASSERT(connection.Limits.ActiveTimeout == -1.0);
        return;
    }
    const double active = governs == Governs::Response ? response : data;
    RC_ASSERT(connection.Limits.Deadline == now + wholeNs(active));
    RC_ASSERT(connection.Limits.TimeoutReason == (connection.ReceivedHead.HeadersComplete ? 1 : 0));
    RC_ASSERT(optionName() == optionOf(governs));
    RC_ASSERT(connection.Limits.ActiveTimeout == active);
}

RC_GTEST_FIXTURE_PROP(TimeoutProperty, LateIsStrictlyBehindTheLimitAndNamesIt, ()) {
    connection.ReceivedHead.HeadersComplete = *rc::gen::arbitrary<bool>();
    const Governs governs = governing(response, data, connection.ReceivedHead.HeadersComplete);
    RC_PRE(governs != Governs::Nothing);
    const double active = governs == Governs::Response ? response : data;
    connection.updateDeadline();
    curl.setClock(connection.Limits.Deadline);
    RC_ASSERT(!check(kStart));
    curl.advanceClock(1 + *rc::gen::inRange<std::int64_t>(0, 20'000 * kMs));
    const std::int64_t now = *curl.clock();
    // The caller's start lies anywhere before, or is not known.
    const bool known = *rc::gen::arbitrary<bool>();
    const std::int64_t start = known ? now - *rc::gen::inRange<std::int64_t>(0, 30'000 * kMs) : NOT_A_TIME;
    const auto late = check(start);
    RC_ASSERT(late.has_value());
    const auto elapsed = static_cast<double>(known ? (now - start) / kMs : 0);
    RC_ASSERT(late->TimeoutMilliseconds == (known ? std::min(elapsed, active) : active));
    RC_ASSERT(optionName() == optionOf(governs));
    RC_ASSERT(late->OptionName == connection.Limits.TimeoutOption);
    const resource_core::BaseMsgID reason = connection.ReceivedHead.HeadersComplete
                                                ? resource_core::BaseMsgID(id::TimeoutReasonStoppedSending())
                                                : resource_core::BaseMsgID(id::TimeoutReasonResponseHeader());
    RC_ASSERT(late->Message == fl::i18n::MessageCatalog::get_message(reason, fl::i18n::VkLocale::global()));
}

// Activity, time and checks in any order, the head's end somewhere between them: a check fails exactly when the silence
// has lasted longer than the limit that governed when it began.
RC_GTEST_FIXTURE_PROP(TimeoutProperty, OnlySilenceIsLate, ()) {
    if (response == kUnlimited && data == kUnlimited) {
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
            moveByte();
            heard = now;
            break;
        case 1: { // libcurl's own remarks are no activity
            char byte = 'x';
            debugCallback(nullptr, CURLINFO_TEXT, &byte, 1, &connection);
            break;
        }
        default:
            now += *rc::gen::inRange<std::int64_t>(0, 6'000 * kMs);
            curl.setClock(now);
        }
        const Governs governs = governing(response, data, connection.ReceivedHead.HeadersComplete);
        const std::int64_t allowed = wholeNs(governs == Governs::Response ? response
                                             : governs == Governs::Data   ? data
                                                                          : 0.0);
        RC_ASSERT(check(kStart).has_value() == (governs != Governs::Nothing && now - heard > allowed));
        RC_ASSERT((connection.Limits.Deadline == kNoDeadline) == (governs == Governs::Nothing));
    }
}

// Whatever the limits are, nothing is late before the connection is up; what libcurl itself reports always is.
RC_GTEST_FIXTURE_PROP(TimeoutProperty, ConnectingIsLibcurlsAlone, ()) {
    curl.giveInfo(CURLINFO_CONNECT_TIME, *rc::gen::element(0.0, -1.0));
    connection.updateDeadline();
    const std::int64_t elapsedMs = *rc::gen::inRange<std::int64_t>(0, 20'001);
    curl.setClock(kStart + elapsedMs * kMs);
    RC_ASSERT(!check(kStart));
    std::string("libcurl's words").copy(connection.Handles->ErrorBuffer, 16);
    connection.Handles->ErrorBuffer[15] = '\0';
    const auto late = check(kStart, true);
    RC_ASSERT(late.has_value());
    RC_ASSERT(late->TimeoutMilliseconds == static_cast<double>(elapsedMs));
    const bool early = elapsedMs <= 10'000;
    RC_ASSERT((fl::i18n::to_string(late->Message) == "libcurl's words") == early);
    const std::string own = connection.Settings.HTTPOptionsMode ? "HTTPOptions.ConnectTimeout" : "weboptions.Timeout";
    RC_ASSERT((optionName() == own) == early);
    RC_ASSERT(late->OptionName == connection.Limits.TimeoutOption);
}

} // namespace
