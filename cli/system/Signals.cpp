#include "cli/system/Signals.h"

#include <netrove/temporaryentry.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace netrove::cli {

namespace {

// Everything that the handler uses is lock-free or async-signal-safe.
std::atomic<void*> theTarget = nullptr;
std::atomic<void (*)(void*) noexcept> theInterrupt = nullptr;
std::atomic<int> theSignal = 0;
// A pipe that the handler writes to, so that a poll cannot miss a signal that came before it.
std::atomic<int> theWakeEnd = -1;
int theReadEnd = -1;

struct sigaction previousHup;
struct sigaction previousInt;
struct sigaction previousTerm;
struct sigaction previousPipe;
struct sigaction previousXfsz;

extern "C" void onSignal(int number) {
    const int savedErrno = errno;
    int none = 0;
    if (!theSignal.compare_exchange_strong(none, number)) {
        removeTemporaryEntries();
        _exit(128 + number);
    }
    if (void* target = theTarget.load()) {
        theInterrupt.load()(target);
    }
    if (const int end = theWakeEnd.load(); end >= 0) {
        [[maybe_unused]] const auto written = write(end, "!", 1); // full: the reader wakes anyway
    }
    errno = savedErrno;
}

void handleUnlessIgnored(int number, const struct sigaction& action, struct sigaction& previous) {
    sigaction(number, nullptr, &previous);
    if (previous.sa_handler != SIG_IGN) {
        sigaction(number, &action, nullptr);
    }
}

int remainingMs(std::optional<Clock::time_point> until) {
    if (!until) {
        return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*until - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, INT_MAX));
}

Waited waitFor(int descriptor, short events, std::optional<Clock::time_point> until) {
    for (;;) {
        if (signalSeen() != 0) {
            return Waited::Interrupted;
        }
        pollfd entries[2] = {{descriptor, events, 0}, {theReadEnd, POLLIN, 0}};
        const int ready = poll(entries, 2, remainingMs(until));
        if (ready < 0 && errno != EINTR) {
            return Waited::Ready;
        }
        if (signalSeen() != 0) {
            return Waited::Interrupted;
        }
        if (ready > 0 && entries[0].revents != 0) {
            return Waited::Ready;
        }
        if (until && Clock::now() >= *until) {
            return Waited::TimedOut;
        }
    }
}

} // namespace

SignalScope::SignalScope(void* target, Interrupt interrupt) {
    theSignal = 0;
    if (int ends[2]; pipe2(ends, O_CLOEXEC | O_NONBLOCK) == 0) {
        theReadEnd = ReadEnd.Number = ends[0];
        theWakeEnd = WakeEnd.Number = ends[1];
    }
    theInterrupt = interrupt;
    theTarget = target;
    struct sigaction action = {};
    action.sa_handler = onSignal; // without SA_RESTART: a blocked read or write of this program must return
    sigemptyset(&action.sa_mask);
    // A shell ignores Ctrl-C for what it runs in the background, and nohup ignores the end of the terminal.
    handleUnlessIgnored(SIGHUP, action, previousHup);
    handleUnlessIgnored(SIGINT, action, previousInt);
    sigaction(SIGTERM, &action, &previousTerm);
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN; // a reader that went away is a failed write
    sigaction(SIGPIPE, &ignore, &previousPipe);
    sigaction(SIGXFSZ, &ignore, &previousXfsz); // and so is a file that may not grow further
}

SignalScope::~SignalScope() {
    sigaction(SIGHUP, &previousHup, nullptr);
    sigaction(SIGINT, &previousInt, nullptr);
    sigaction(SIGTERM, &previousTerm, nullptr);
    sigaction(SIGPIPE, &previousPipe, nullptr);
    sigaction(SIGXFSZ, &previousXfsz, nullptr);
    theTarget = nullptr;
    theWakeEnd = -1; // before the members close the pipe
    theReadEnd = -1;
}

int signalSeen() noexcept {
    return theSignal.load();
}

Waited waitReadable(int descriptor, std::optional<Clock::time_point> until) {
    return waitFor(descriptor, POLLIN, until);
}

Waited waitWritable(int descriptor, std::optional<Clock::time_point> until) {
    return waitFor(descriptor, POLLOUT, until);
}

} // namespace netrove::cli
