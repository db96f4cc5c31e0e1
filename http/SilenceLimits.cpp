#include "http/SilenceLimits.h"

#include "http/MonotonicTime.h"

#include <algorithm>

namespace netrove {

void SilenceLimits::setTimeouts(std::vector<double> timeouts) {
    timeouts.resize(std::max<std::size_t>(timeouts.size(), 4), kUnlimited);
    ConnectTimeout = timeouts[0];
    ResponseTimeout = timeouts[1];
    DataTimeout = timeouts[2];
    ExtraTimeout = timeouts[3];
}

std::vector<double> SilenceLimits::getTimeouts() const {
    return {ConnectTimeout, ResponseTimeout, DataTimeout, ExtraTimeout};
}

void SilenceLimits::begin(bool headersComplete, bool httpOptions) {
    if (isUnlimited(ResponseTimeout) && isUnlimited(DataTimeout)) {
        Deadline = kNoDeadline;
    } else {
        Deadline = monotonicNow();
        updateDeadline(headersComplete, httpOptions);
    }
}

void SilenceLimits::updateDeadline(bool headersComplete, bool httpOptions) {
    if (Deadline == kNoDeadline) {
        return;
    }
    const std::int64_t now = monotonicNow();
    double responseLimit = ResponseTimeout;
    if (isUnlimited(ResponseTimeout)) { // of either sign
        responseLimit = kUnlimited;
    }
    if (responseLimit != kUnlimited && !headersComplete) {
        Deadline = ResponseTimeoutMs * kNsPerMs + now;
        TimeoutReason = 0;
        TimeoutOption = httpOptions ? u"HTTPOptions.ResponseTimeout" : u"weboptions.Timeout";
        ActiveTimeout = ResponseTimeout;
    }
    // "Not greater" rather than "at most": a limit that is not a number leaves the response limit in charge.
    if (isUnlimited(DataTimeout) || (!(responseLimit > DataTimeout) && !headersComplete)) {
        return;
    }
    Deadline = DataTimeoutMs * kNsPerMs + now;
    TimeoutReason = headersComplete ? 1 : 0;
    TimeoutOption = u"HTTPOptions.DataTimeout";
    ActiveTimeout = DataTimeout;
}

void SilenceLimits::endHead() {
    if (isUnlimited(DataTimeout)) {
        Deadline = kNoDeadline;
    }
}

} // namespace netrove
