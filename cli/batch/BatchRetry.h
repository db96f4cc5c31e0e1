// Whether and when a failed transfer is retried.
#pragma once

#include "vantik/Failure.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace netrove::cli {

struct RetrySettings {
    int Retries = 0;          // after the first attempt
    double FirstWait = 1;     // seconds; doubled for each further retry
    double LongestWait = 300; // seconds; limits Retry-After too
    bool Unsafe = false;      // also retry what might then be done twice
};

// An attempt that failed.
struct FailedAttempt {
    vantik::Message Message;
    int Status = 0;           // of the response; 0 for none
    std::string RetryAfter{}; // the field's value; empty for none
    std::string Method{};
    bool NothingSent = false; // no request has gone out
};

using WallClock = std::chrono::system_clock;

class RetryPolicy {
public:
    // `random` returns numbers from 0 up to, but not including, 1.
    RetryPolicy(const RetrySettings& settings, std::function<double()> random,
                std::function<WallClock::time_point()> now)
        : TheSettings(settings), Random(std::move(random)), Now(std::move(now)) {}

    // How long to wait before the next attempt, after this many; nothing if there is to be no further one.
    std::optional<std::chrono::milliseconds> waitAfter(int attempts, const FailedAttempt& failed) const;

private:
    RetrySettings TheSettings;
    std::function<double()> Random;
    std::function<WallClock::time_point()> Now;
};

// True for causes that may soon pass.
bool isTransient(const FailedAttempt& failed);
bool isTransientStatus(int status);
// True for methods that have the same effect when repeated.
bool isIdempotent(std::string_view method);

// Seconds from `now` according to Retry-After: a number, or one of the three forms of an HTTP date. Nothing for a value
// that is neither; 0 for a date in the past.
std::optional<double> parseRetryAfter(std::string_view value, WallClock::time_point now);

} // namespace netrove::cli
