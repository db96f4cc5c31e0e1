// The request to stop what runs in a scope: made by a person, by another thread, or when a total time is over.
//
// Whoever waits for something else meanwhile waits for the descriptor as well. It belongs to the scope's thread, which
// makes it and empties it; who makes a request writes there.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <limits>

namespace vantik::detail {

// Everything here but `descriptor` is lock-free and may be called by a signal handler and by any thread.
class InterruptState {
public:
    using Clock = std::chrono::steady_clock;

    InterruptState() = default;
    ~InterruptState();
    InterruptState(const InterruptState&) = delete;
    InterruptState& operator=(const InterruptState&) = delete;

    void request() noexcept;
    // As `request`, once `time` has passed. Zero or less: at once. nanoseconds::max(): never. Replaces an earlier time.
    void requestAfter(std::chrono::nanoseconds time) noexcept;

    // A request was made, or its time has come, and it has not been taken yet.
    bool pending() const noexcept;
    // Returns what `pending` returns and drops the request. A time that lies ahead stays set.
    bool take() noexcept;
    // Drops the request, and the memory of one that was seen.
    void clear() noexcept;

    // Readable from a request on until it is asked for again after the request was taken. Negative where the system has
    // none to give. A time that is over does not make it readable.
    int descriptor() noexcept;

    // A request has stopped something since the last `clear`: noted by whoever raises for it.
    void noteStopped() noexcept { Stopped.store(true, std::memory_order_release); }
    bool stopped() const noexcept { return Stopped.load(std::memory_order_acquire); }

private:
    static constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();
    static constexpr int kNone = -1;
    static std::int64_t now() noexcept;
    void ring() noexcept;

    std::atomic<bool> Requested{false};
    std::atomic<bool> Stopped{false};
    std::atomic<std::int64_t> Deadline{kNever}; // ns of the steady clock
    std::atomic<int> Bell{kNone};               // an eventfd
    std::atomic<bool> Rung{false};              // it may be readable
    static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<int>::is_always_lock_free &&
                      std::atomic<std::int64_t>::is_always_lock_free,
                  "a signal handler must not wait for a lock");
};

} // namespace vantik::detail
