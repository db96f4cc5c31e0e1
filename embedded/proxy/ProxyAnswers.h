// Answers about proxies that are kept, so that a run asks once about each server and not for each request.
#pragma once

#include "embedded/proxy/SerialCalls.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace vantik::detail {

// For any threads. Like its calls it is never destroyed while one of them runs.
class ProxyAnswers {
public:
    using Answer = SerialCalls::Answer;
    using Clock = std::chrono::steady_clock;

    // Long enough for a run, and short enough for a service to see that its machine is in another network.
    static constexpr std::chrono::minutes kLifetime{5};
    static constexpr std::size_t kMost = 10'000; // a list of many servers must not fill the memory

    explicit ProxyAnswers(std::function<Clock::time_point()> now = &Clock::now) : Now(std::move(now)) {}

    // The answer to `question`: one that is kept, or what `ask` returns, as SerialCalls runs it. Whoever waits for the
    // same question takes the answer of the first, even if that one has given up meanwhile. Failures are not kept.
    Answer get(const std::string& question, std::function<Answer()> ask, const std::function<void()>& checkStop);

private:
    std::optional<Answer> find(const std::string& question);
    void keep(const std::string& question, const Answer& answer);

    struct Kept {
        Answer Text;
        Clock::time_point Until;
    };
    SerialCalls Calls;
    std::function<Clock::time_point()> Now;
    std::mutex Guard;
    std::map<std::string, Kept> Known;
};

} // namespace vantik::detail
