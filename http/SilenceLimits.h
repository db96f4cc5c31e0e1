// The limits of silence and the one moving deadline. Every sign of activity moves the deadline ahead, so they bound
// silence and not the whole transfer.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <string_view>
#include <vector>

namespace netrove {

struct SilenceLimits {
    static constexpr double kUnlimited = std::numeric_limits<double>::infinity();
    static constexpr std::int64_t kNoDeadline = std::numeric_limits<std::int64_t>::max();

    // An infinite timeout of either sign means no limit.
    static bool isUnlimited(double timeout) { return std::isinf(timeout); }

    // Milliseconds: connect, response, data, extra. A missing one means no limit.
    void setTimeouts(std::vector<double> timeouts);
    std::vector<double> getTimeouts() const;

    // Until the head is complete the shorter limit applies, the response limit on a tie; afterwards only the data limit
    // does. `httpOptions` selects the interface's name for the limit.
    void begin(bool headersComplete, bool httpOptions); // called with the send
    void updateDeadline(bool headersComplete, bool httpOptions);
    void endHead(); // without a data limit no silence ends the transfer from here on
    bool isPassed(std::int64_t now) const { return now > Deadline; }

    double ConnectTimeout = 5000.0;      // ms; enforced by libcurl alone
    double ResponseTimeout = kUnlimited; // ms of silence until the response head is complete
    double DataTimeout = kUnlimited;     // ms of silence while content moves
    double ExtraTimeout = kUnlimited;    // stored and returned only
    std::int64_t ResponseTimeoutMs = 0;  // the same as integers, written at open when finite
    std::int64_t DataTimeoutMs = 0;
    double ActiveTimeout = 0.0;        // ms; the timeout that set Deadline
    std::int32_t TimeoutReason = 0;    // 0: the head was awaited, 1: content
    std::u16string_view TimeoutOption; // name of the option that set Deadline; a literal
    std::int64_t Deadline = 0;         // monotonic ns; kNoDeadline: none
};

} // namespace netrove
