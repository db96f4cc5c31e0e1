// Waiting for what nobody reports: a condition is looked at again and again.
#pragma once

#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

namespace testsupport {

enum class Awaited { Held, Ended, TooLong };

// Until `condition` holds, or until `hasEnded` says that whoever could make it true has ended. What was done before the
// end counts, so the condition is checked once more after it.
inline Awaited awaitOrEnd(const std::function<bool()>& condition, const std::function<bool()>& hasEnded) {
    constexpr std::chrono::seconds unreasonable{60};
    constexpr std::chrono::milliseconds betweenLooks{10};
    const auto limit = std::chrono::steady_clock::now() + unreasonable;
    for (;;) {
        const bool ended = hasEnded();
        if (condition()) {
            return Awaited::Held;
        }
        if (ended) {
            return Awaited::Ended;
        }
        if (std::chrono::steady_clock::now() > limit) {
            return Awaited::TooLong;
        }
        std::this_thread::sleep_for(betweenLooks);
    }
}

// Where `name` is who could bring it about. Raises std::runtime_error where the condition does not come to hold.
inline void awaitOrRaise(const std::string& name, const std::function<bool()>& condition, const std::string& what,
                         const std::function<bool()>& hasEnded, const std::function<std::string()>& printed) {
    const Awaited result = awaitOrEnd(condition, hasEnded);
    if (result != Awaited::Held) {
        throw std::runtime_error(name + (result == Awaited::Ended ? " has ended before " : " takes too long until ") +
                                 what + ":\n" + printed());
    }
}

} // namespace testsupport
