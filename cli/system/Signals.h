// Ctrl-C, termination and a terminal that goes away. The first signal asks what runs to stop; a second one ends the
// program at once and removes files with a temporary name.
#pragma once

#include <netrove/descriptor.h>

#include <chrono>
#include <optional>

namespace netrove::cli {

// Installs the handlers for its lifetime. One at a time in a program.
class SignalScope {
public:
    // `target` has an `interrupt` that may be called in a signal handler.
    template <class Target>
    explicit SignalScope(Target& target)
        : SignalScope(&target, [](void* object) noexcept { static_cast<Target*>(object)->interrupt(); }) {}
    ~SignalScope();
    SignalScope(const SignalScope&) = delete;
    SignalScope& operator=(const SignalScope&) = delete;

private:
    using Interrupt = void (*)(void* target) noexcept;
    SignalScope(void* target, Interrupt interrupt);

    Descriptor ReadEnd{-1};
    Descriptor WakeEnd{-1};
};

// The first signal that arrived; 0 for none.
int signalSeen() noexcept;

using Clock = std::chrono::steady_clock;

enum class Waited { Ready, Interrupted, TimedOut };

// Blocks until `descriptor` can be read or written (or has failed, which the next call on it reports), a signal
// arrives, or the time has come.
Waited waitReadable(int descriptor, std::optional<Clock::time_point> until);
Waited waitWritable(int descriptor, std::optional<Clock::time_point> until);

} // namespace netrove::cli
