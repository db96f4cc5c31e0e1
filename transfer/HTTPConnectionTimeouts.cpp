#include "transfer/HTTPConnection.h"

#include "errors/HTTPException.h"
#include "errors/InternalError.h"
#include "errors/MessageIdentifiers.h"
#include "host/Messages.h"
#include "hostcalls/NumericNarrowing.h"
#include "http/MonotonicTime.h"

#include <boost/numeric/conversion/cast.hpp>

#include <algorithm>
#include <cmath>

namespace {

namespace id = VANTIK::webservices;

constexpr std::int64_t NsPerMs = 1'000'000;
// Longer than this, and a connect that failed was ended by the system and not by our limit.
constexpr double SystemLimitMs = 10000.0;

const char16_t* connectOption(bool httpOptions) {
    return httpOptions ? u"HTTPOptions.ConnectTimeout" : u"weboptions.Timeout";
}

std::u16string catalogueText(const resource_core::BaseMsgID& message) {
    return fl::i18n::MessageCatalog::get_message(message, fl::i18n::VkLocale::global());
}

// Modular, since NOT_A_TIME lies a whole range away: the result is then negative and counts as a short time.
double elapsedMs(std::int64_t start, std::int64_t now) {
    const auto elapsed = static_cast<std::int64_t>(static_cast<std::uint64_t>(now) - static_cast<std::uint64_t>(start));
    return static_cast<double>(elapsed / NsPerMs);
}

long connectTimeoutForCurl(double milliseconds) {
    try {
        return narrowToInt32(milliseconds);
    } catch (const boost::numeric::bad_numeric_cast&) {
        return std::isinf(milliseconds) ? 2147483647L : 1000L;
    }
}

} // namespace

void HTTPConnection::setTimeouts(std::vector<double> timeouts) {
    if (timeouts.empty()) {
        throwInternalError("Timeout array is empty");
    }
    timeouts.resize(std::max<std::size_t>(timeouts.size(), 4), Unlimited);
    ConnectTimeout = timeouts[0];
    ResponseTimeout = timeouts[1];
    DataTimeout = timeouts[2];
    ExtraTimeout = timeouts[3];
}

std::vector<double> HTTPConnection::getTimeouts() const {
    return {ConnectTimeout, ResponseTimeout, DataTimeout, ExtraTimeout};
}

void HTTPConnection::applyTimeouts() {
    setOption(Handles->EasyHandle, CURL_NAMED(CURLOPT_CONNECTTIMEOUT_MS), connectTimeoutForCurl(ConnectTimeout));
    // Otherwise libcurl waits for the system's answer to a name look-up, inside the call that ends the transfer: behind
    // a limit or an interrupt, and in the next open.
    setOption(Handles->EasyHandle, CURL_NAMED(CURLOPT_QUICK_EXIT), 1L);
    if (ResponseTimeout != Unlimited) {
        ResponseTimeoutMs = narrowToInt32(ResponseTimeout);
    }
    if (DataTimeout != Unlimited) {
        DataTimeoutMs = narrowToInt32(DataTimeout);
    }
}

// Called on every sign of activity, so the limits bound silence and not the whole transfer. Until the head is complete
// the shorter limit governs, the response limit on a tie; afterwards only the data limit does.
void HTTPConnection::updateDeadline() {
    if (Deadline == NoDeadline) {
        return;
    }
    const std::int64_t now = monotonicNow();
    if (ResponseTimeout != Unlimited && !HeadersComplete) {
        Deadline = ResponseTimeoutMs * NsPerMs + now;
        TimeoutReason = 0;
        TimeoutOption = HTTPOptionsMode ? u"HTTPOptions.ResponseTimeout" : u"weboptions.Timeout";
        ActiveTimeout = ResponseTimeout;
    }
    // "Not greater" rather than "at most": a limit that is no number leaves the response limit in charge.
    if (DataTimeout == Unlimited || (!(ResponseTimeout > DataTimeout) && !HeadersComplete)) {
        return;
    }
    Deadline = DataTimeoutMs * NsPerMs + now;
    TimeoutReason = HeadersComplete ? 1 : 0;
    TimeoutOption = u"HTTPOptions.DataTimeout";
    ActiveTimeout = DataTimeout;
}

void HTTPConnection::checkTimeout(std::int64_t start, bool libcurlTimedOut) {
    if (!libcurlTimedOut && Deadline == NoDeadline) {
        return;
    }
    // While the connection is not up, only libcurl's connect limit counts. The connect time stays 0 for the whole of a
    // transfer on a reused connection; there the head that has gone out shows that the connection is up.
    double connectSeconds = 0.0;
    static_cast<void>(curl_easy_getinfo(Handles->EasyHandle, CURLINFO_CONNECT_TIME, &connectSeconds));
    const bool connected = connectSeconds > 0.0 || Sent;
    if (!connected && !libcurlTimedOut) {
        return;
    }
    const std::int64_t now = monotonicNow();
    if (!libcurlTimedOut && now <= Deadline) {
        return;
    }
    const double elapsed = elapsedMs(start, now);
    double reported = ActiveTimeout;
    if (start != NOT_A_TIME) {
        reported = libcurlTimedOut ? elapsed : std::min(elapsed, ActiveTimeout);
    }
    std::u16string reason;
    if (!libcurlTimedOut) {
        reason = TimeoutReason == 0 ? catalogueText(id::TimeoutReasonResponseHeader())
                                    : catalogueText(id::TimeoutReasonStoppedSending());
    } else if (elapsed <= SystemLimitMs) {
        reason = fl::i18n::to_ustring(Handles->ErrorBuffer);
        TimeoutOption = connectOption(HTTPOptionsMode);
    } else {
        reason = catalogueText(id::TimeoutReasonSystemLimit());
        TimeoutOption = catalogueText(id::TimeoutSystemTCP());
    }
    throw webservices::HTTPTimeoutException(reason, reported, TimeoutOption);
}
