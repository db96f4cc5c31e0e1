#include "embedded/scope/InterruptState.h"

#include <cerrno>
#include <sys/eventfd.h>
#include <unistd.h>

namespace vantik::detail {

InterruptState::~InterruptState() {
    if (Bell != kNone) {
        ::close(Bell);
    }
}

void InterruptState::request() noexcept {
    Requested.store(true);
    ring();
}

void InterruptState::ring() noexcept {
    const int bell = Bell.load();
    if (bell != kNone) {
        const int before = errno; // a signal handler must leave it as it is
        [[maybe_unused]] const int written = ::eventfd_write(bell, 1);
        errno = before;
        Rung.store(true); // after the write, so that whoever sees it finds something to read
    }
}

// A request is noted before the bell is rung, and looked for after the bell was made or silenced: in whatever order
// both threads run, one of them rings.
int InterruptState::descriptor() noexcept {
    if (Bell.load() == kNone) {
        Bell.store(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)); // -1 where it fails, and the next wait tries again
    } else if (!Rung.load() || Requested.load()) {
        return Bell.load(); // silent, or rightly readable
    } else {
        eventfd_t ignored = 0;
        static_cast<void>(::eventfd_read(Bell.load(), &ignored));
        Rung.store(false);
    }
    if (Requested.load()) { // made meanwhile
        ring();
    }
    return Bell.load();
}

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
