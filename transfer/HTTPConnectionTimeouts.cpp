#include "errors/HTTPException.h"
#include "errors/InternalError.h"
#include "errors/MessageIdentifiers.h"
#include "host/Messages.h"
#include "hostcalls/NumericNarrowing.h"
#include "http/MonotonicTime.h"
#include "transfer/CurlCalls.h"
#include "transfer/CurlSingleton.h"
#include "transfer/HTTPConnection.h"

#include <boost/numeric/conversion/cast.hpp>

#include <algorithm>

namespace netrove {

namespace {

namespace id = VANTIK::webservices;

// A failed connect that took longer than this was ended by the system and not by our limit.
constexpr double kSystemLimitMs = 10000.0;

const char16_t* connectOption(bool httpOptions) {
    return httpOptions ? u"HTTPOptions.ConnectTimeout" : u"weboptions.Timeout";
}

std::u16string catalogueText(const resource_core::BaseMsgID& message) {
    return fl::i18n::MessageCatalog::get_message(message, fl::i18n::VkLocale::global());
}

// Modular arithmetic, since NOT_A_TIME is a whole range away: the result is then negative and counts as a short time.
double elapsedMs(std::int64_t start, std::int64_t now) {
    const auto elapsed = static_cast<std::int64_t>(static_cast<std::uint64_t>(now) - static_cast<std::uint64_t>(start));
    const std::int64_t milliseconds = elapsed / kNsPerMs; // whole ones
    return static_cast<double>(milliseconds);
}

long connectTimeoutForCurl(double milliseconds) {
    try {
        return narrowToInt32(milliseconds);
    } catch (const boost::numeric::bad_numeric_cast&) {
        return SilenceLimits::isUnlimited(milliseconds) ? 2147483647L : 1000L;
    }
}

} // namespace

void HTTPConnection::setTimeouts(std::vector<double> timeouts) {
    if (timeouts.empty()) {
        throwInternalError("Timeout array is empty");
    }
    Limits.setTimeouts(std::move(timeouts));
}

void HTTPConnection::applyTimeouts() {
    setOption(Handles->EasyHandle, CURL_NAMED(CURLOPT_CONNECTTIMEOUT_MS), connectTimeoutForCurl(Limits.ConnectTimeout));
    // Without this, libcurl would wait for the system to answer a name look-up inside the call that ends the transfer:
    // after a limit or an interrupt, and in the next open.
    setOption(Handles->EasyHandle, CURL_NAMED(CURLOPT_QUICK_EXIT), 1L);
    if (!SilenceLimits::isUnlimited(Limits.ResponseTimeout)) {
        Limits.ResponseTimeoutMs = narrowToInt32(Limits.ResponseTimeout);
    }
    if (!SilenceLimits::isUnlimited(Limits.DataTimeout)) {
        Limits.DataTimeoutMs = narrowToInt32(Limits.DataTimeout);
    }
}

void HTTPConnection::updateDeadline() {
    Limits.updateDeadline(ReceivedHead.HeadersComplete, Settings.HTTPOptionsMode);
}

void HTTPConnection::checkTimeout(std::int64_t start, bool libcurlTimedOut) {
    if (!libcurlTimedOut && Limits.Deadline == SilenceLimits::kNoDeadline) {
        return;
    }
    // While the connection is not up, only libcurl's connect limit counts. The connect time stays 0 for the whole of a
    // transfer on a reused connection; there, a head that has been sent shows that the connection is up.
    double connectSeconds = 0.0;
    static_cast<void>(curl_easy_getinfo(Handles->EasyHandle, CURLINFO_CONNECT_TIME, &connectSeconds));
    const bool connected = connectSeconds > 0.0 || SentHead.Sent;
    if (!connected && !libcurlTimedOut) {
        return;
    }
    const std::int64_t now = monotonicNow();
    if (!libcurlTimedOut && !Limits.isPassed(now)) {
        return;
    }
    const double elapsed = elapsedMs(start, now);
    double reported = Limits.ActiveTimeout;
    if (start != NOT_A_TIME) {
        reported = libcurlTimedOut ? elapsed : std::min(elapsed, Limits.ActiveTimeout);
    }
    std::u16string reason;
    std::u16string option(Limits.TimeoutOption);
    if (!libcurlTimedOut) {
        reason = Limits.TimeoutReason == 0 ? catalogueText(id::TimeoutReasonResponseHeader())
                                           : catalogueText(id::TimeoutReasonStoppedSending());
    } else if (elapsed <= kSystemLimitMs) {
        reason = fl::i18n::to_ustring(Handles->ErrorBuffer);
        option = connectOption(Settings.HTTPOptionsMode);
    } else {
        reason = catalogueText(id::TimeoutReasonSystemLimit());
        option = catalogueText(id::TimeoutSystemTCP());
    }
    throw webservices::HTTPTimeoutException(reason, reported, option);
}

} // namespace netrove
