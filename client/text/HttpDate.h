// Times as header fields say them.
#pragma once

#include <chrono>
#include <optional>
#include <string_view>

namespace netrove {

using WallClock = std::chrono::system_clock;

// Seconds from `now` according to Retry-After: a number, or one of the three forms of an HTTP date. Nothing for a value
// that is neither; 0 for a date in the past.
std::optional<double> parseRetryAfter(std::string_view value, WallClock::time_point now);

// A date of a field (RFC 9110, section 5.6.7); nothing for a text that is not one.
std::optional<std::chrono::sys_seconds> parseHttpDate(std::string_view text, WallClock::time_point now);

} // namespace netrove
