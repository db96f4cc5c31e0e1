#include "embedded/proxy/SerialCalls.h"

#include "embedded/scope/SignalsBlocked.h"

#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

namespace vantik::detail {

namespace {

// How often whoever waits checks whether to go on. A request to stop comes from a signal handler, which cannot wake
// anyone.
constexpr std::chrono::milliseconds kLookInterval{20};

// One call, shared by the thread that waits for it and the one that runs it. The result is written before `Done`, under
// the guard of both.
struct Call {
    std::function<SerialCalls::Answer()> What;
    SerialCalls::Answer Result;
    std::string Failure; // what was raised, as text
    bool Failed = false;
    bool Done = false;
};

void runKeepingWords(Call& call) {
    try {
        call.Result = call.What();
        return;
    } catch (const std::exception& failure) {
        call.Failure = failure.what();
    } catch (...) {
        call.Failure = "unknown failure";
    }
    call.Failed = true;
}

} // namespace

struct SerialCalls::State {
    std::mutex Guard;
    std::condition_variable Changed;
    bool Busy = false;

    template <class Condition>
    void await(std::unique_lock<std::mutex>& lock, const std::function<void()>& checkStop, Condition condition) {
        while (!condition()) {
            lock.unlock();
            checkStop();
            lock.lock();
            Changed.wait_for(lock, kLookInterval, condition);
        }
    }
};

SerialCalls::SerialCalls() : Shared(std::make_shared<State>()) {}

SerialCalls::~SerialCalls() = default;

// Each call has a thread of its own, which ends with it: nothing remains that a process which forks, or ends,
// would have to take care of.
SerialCalls::Answer SerialCalls::run(std::function<Answer()> what, const std::function<void()>& checkStop) {
    const auto call = std::make_shared<Call>();
    call->What = std::move(what);
    State& state = *Shared;
    std::unique_lock lock(state.Guard);
    state.await(lock, checkStop, [&] { return !state.Busy; });
    {
        const SignalsBlocked blocked;
        std::thread([shared = Shared, call] {
            runKeepingWords(*call);
            const std::lock_guard guard(shared->Guard);
            call->Done = true;
            shared->Busy = false;
            shared->Changed.notify_all();
        }).detach();
    }
    state.Busy = true; // still under the guard, which the thread needs to take that back
    state.await(lock, checkStop, [&] { return call->Done; });
    if (call->Failed) {
        throw std::runtime_error(call->Failure);
    }
    return std::move(call->Result);
}

} // namespace vantik::detail
