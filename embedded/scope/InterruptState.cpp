#include "embedded/scope/InterruptState.h"

namespace vantik::detail {

std::int64_t InterruptState::now() noexcept {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
}

void InterruptState::requestAfter(std::chrono::nanoseconds time) noexcept {
    if (time == std::chrono::nanoseconds::max()) {
        Deadline.store(kNever, std::memory_order_release);
        return;
    }
    const std::int64_t start = now();
    // A time beyond the clock's range is as good as never.
    const std::int64_t wait = time.count() < 0 ? 0 : time.count();
    Deadline.store(wait > kNever - start ? kNever : start + wait, std::memory_order_release);
}

bool InterruptState::pending() const noexcept {
    if (Requested.load(std::memory_order_acquire)) {
        return true;
    }
    const std::int64_t deadline = Deadline.load(std::memory_order_acquire);
    return deadline != kNever && now() >= deadline;
}

void InterruptState::clear() noexcept {
    take();
    Stopped.store(false, std::memory_order_release);
}

bool InterruptState::take() noexcept {
    bool taken = Requested.exchange(false, std::memory_order_acq_rel);
    std::int64_t deadline = Deadline.load(std::memory_order_acquire);
    // Only the time that was seen is dropped: another one may be set meanwhile.
    if (deadline != kNever && now() >= deadline &&
        Deadline.compare_exchange_strong(deadline, kNever, std::memory_order_acq_rel)) {
        taken = true;
    }
    return taken;
}

} // namespace vantik::detail
