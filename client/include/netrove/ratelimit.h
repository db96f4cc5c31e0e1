/// @file
/// How fast content may move.
#pragma once

#include <netrove/api.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace netrove {

/// A speed that all calls share to whose Request it is given: content that is sent and content that is delivered count
/// together. Any thread, any number of clients.
class NETROVE_API RateLimit {
public:
    /// The clock that it counts by.
    using Clock = std::chrono::steady_clock;

    /// Bytes per second; 0: no limit.
    struct Rates {
        std::uint64_t total = 0; ///< of all calls together
        std::uint64_t host = 0;  ///< of those to one host and port
    };
    /// @param rates what is never exceeded for longer than a moment
    explicit RateLimit(Rates rates);
    ~RateLimit();
    RateLimit(const RateLimit&) = delete;
    RateLimit& operator=(const RateLimit&) = delete;

    /// Enters bytes that move now, and returns when the next may.
    /// @param host  as `host:port`
    /// @param bytes how many
    /// @param now   the present time
    Clock::time_point take(const std::string& host, std::uint64_t bytes, Clock::time_point now);
    /// How many bytes to move at a time, so that content flows evenly.
    std::uint64_t step() const;

private:
    struct State;
    std::unique_ptr<State> Own;
};

} // namespace netrove
