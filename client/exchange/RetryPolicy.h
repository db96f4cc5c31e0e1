// Whether and when a failed request is tried again.
#pragma once

#include "client/text/HttpDate.h"

#include <netrove/error.h>
#include <netrove/request.h>
#include <netrove/response.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string_view>

namespace netrove {

class RetryPolicy {
public:
    // `random` returns numbers from 0 up to, but not including, 1.
    RetryPolicy(std::function<double()> random, std::function<WallClock::time_point()> now)
        : Random(std::move(random)), Now(std::move(now)) {}

    // How long to wait before the next attempt, after this many; nothing if there is to be none. `requested` is what
    // was asked for at first, with its retry settings complete. Raises RetryTooLate, with the failure's response, where
    // the server asks for more time than the settings allow, or than there is left (negative: no limit).
    std::optional<Limit> waitAfter(int attempts, const Request& requested, const Error& failed, Limit left) const;

private:
    std::function<double()> Random;
    std::function<WallClock::time_point()> Now;
};

// True for methods that have the same effect when repeated (RFC 9110, section 9.2.2).
bool isIdempotent(std::string_view method);

} // namespace netrove
