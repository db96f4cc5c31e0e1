#include "python/extension/Lifetime.h"

#include <netrove/error.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <pthread.h>

namespace netrove::python {

namespace {

constexpr std::chrono::milliseconds kAskAgainAfter(50); // a stop that comes between two calls is not seen by either

struct Registry {
    std::mutex Guard;
    std::condition_variable Changed;
    std::map<std::uint64_t, std::function<void()>> Stops;
    std::uint64_t NextNumber = 0;
    bool Exiting = false;
};

std::atomic<std::uint64_t> generation = 0;
Registry* registry = new Registry; // never freed: threads may outlast the interpreter

[[noreturn]] void refuse(const char* text) {
    throw Error(ErrorKind::Usage, "NETROVE:client:Usage", {}, text);
}

// Another thread of the parent may have held the lock at that moment.
void afterFork() {
    ++generation;
    registry = new Registry;
}

} // namespace

std::uint64_t processGeneration() noexcept {
    return generation;
}

void requireOwnProcess(std::uint64_t made) {
    if (made != generation) {
        refuse("this was made before a fork: its connections belong to the parent process; make a new one in each "
               "process");
    }
}

Running::Running(std::function<void()> stop) {
    const std::lock_guard lock(registry->Guard);
    if (registry->Exiting) {
        refuse("the interpreter is about to end");
    }
    Number = registry->NextNumber++;
    registry->Stops.emplace(Number, std::move(stop));
}

Running::~Running() {
    const std::lock_guard lock(registry->Guard);
    registry->Stops.erase(Number);
    registry->Changed.notify_all();
}

void withGil(const std::function<void()>& run) {
    if (Py_IsInitialized() == 0) {
        return;
    }
    if (PyGILState_Check() != 0) {
        return run();
    }
    try {
        const Running running([] {});
        const py::gil_scoped_acquire gil;
        run();
    } catch (const Error&) {
        // About to end: what is left goes with the process.
    }
}

GilBreak::GilBreak() {
    try {
        Keeps.emplace([] {});
        Released.emplace();
    } catch (const Error&) {
        // About to end, and so are the other threads.
    }
}

void stopAll() {
    const py::gil_scoped_release released;
    std::unique_lock lock(registry->Guard);
    registry->Exiting = true;
    while (!registry->Stops.empty()) {
        for (const auto& [number, stop] : registry->Stops) {
            stop();
        }
        registry->Changed.wait_for(lock, kAskAgainAfter);
    }
}

void watchForks() {
    pthread_atfork(nullptr, nullptr, afterFork);
}

} // namespace netrove::python
