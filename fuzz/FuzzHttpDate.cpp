// Dates of header fields, and Retry-After: no text makes a moment that a clock cannot count, or a wait before now.
#include "client/text/HttpDate.h"
#include "fuzz/FuzzInput.h"

#include <chrono>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace std::chrono_literals;
    const netrove::WallClock::time_point now = std::chrono::sys_days(2024y / 2 / 29) + 12h;
    const std::string_view text = textOf(data, size);
    if (const auto moment = netrove::parseHttpDate(text, now)) {
        require(*moment >= std::chrono::sys_days(0y / 1 / 1) && *moment <= std::chrono::sys_days(10000y / 1 / 1),
                "a date has a year of four digits");
    }
    if (const auto wait = netrove::parseRetryAfter(text, now)) {
        require(*wait >= 0 && *wait <= 1e12, "a wait is a number of seconds from now on");
    }
    return 0;
}
