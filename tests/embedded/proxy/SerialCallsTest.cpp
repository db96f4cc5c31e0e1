#include "embedded/proxy/SerialCalls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <future>
#include <memory>
#include <pthread.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using testing::ElementsAre;
using vantik::detail::SerialCalls;

namespace {

using Answer = SerialCalls::Answer;

const auto kNeverGiveUp = [] {};

struct GivenUp {};

// A call that says that it has begun and goes on until it is released.
class HeldCall {
public:
    std::function<Answer()> call() {
        return [state = Held] {
            state->Begun.set_value();
            state->Released.get_future().wait();
            state->Over = true;
            return Answer{"held"};
        };
    }
    void awaitBegun() { Held->Begun.get_future().wait(); }
    void release() { Held->Released.set_value(); }
    bool over() const { return Held->Over; }

private:
    struct State {
        std::promise<void> Begun;
        std::promise<void> Released;
        std::atomic<bool> Over{false};
    };
    std::shared_ptr<State> Held = std::make_shared<State>();
};

} // namespace

TEST(SerialCallsOfAThread, AnswerReachesTheCaller) {
    SerialCalls calls;
    EXPECT_THAT(calls.run([] { return Answer{"a", "b"}; }, kNeverGiveUp), ElementsAre("a", "b"));
    EXPECT_THAT(calls.run([] { return Answer{}; }, kNeverGiveUp), ElementsAre());
}

TEST(SerialCallsOfAThread, FailureReachesTheCallerWithItsWords) {
    SerialCalls calls;
    try {
        calls.run([]() -> Answer { throw std::logic_error("on purpose"); }, kNeverGiveUp);
        FAIL() << "nothing was raised";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(), "on purpose");
    }
    EXPECT_THROW(calls.run([]() -> Answer { throw 42; }, kNeverGiveUp), std::runtime_error);
    EXPECT_THAT(calls.run([] { return Answer{"again"}; }, kNeverGiveUp), ElementsAre("again"));
}

TEST(SerialCallsOfAThread, CallRunsElsewhereAndTakesNoSignal) {
    SerialCalls calls;
    const std::thread::id here = std::this_thread::get_id();
    const Answer seen = calls.run(
        [here] {
            sigset_t blocked;
            pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
            return Answer{std::this_thread::get_id() == here ? "here" : "elsewhere",
                          sigismember(&blocked, SIGINT) == 1 ? "blocked" : "open"};
        },
        kNeverGiveUp);
    EXPECT_THAT(seen, ElementsAre("elsewhere", "blocked"));
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    EXPECT_EQ(sigismember(&blocked, SIGINT), 0) << "the caller still takes it";
}

TEST(SerialCallsOfAThread, CallerThatGivesUpLeavesTheCallRunning) {
    SerialCalls calls;
    HeldCall held;
    EXPECT_THROW(calls.run(held.call(),
                           [&] {
                               held.awaitBegun();
                               throw GivenUp();
                           }),
                 GivenUp);
    EXPECT_FALSE(held.over());
    // The next one waits for its turn, and can give up before it comes.
    bool ran = false;
    EXPECT_THROW(calls.run(
                     [&] {
                         ran = true;
                         return Answer{};
                     },
                     [] { throw GivenUp(); }),
                 GivenUp);
    EXPECT_FALSE(ran);
    held.release();
    EXPECT_THAT(calls.run([&] { return Answer{held.over() ? "after" : "beside"}; }, kNeverGiveUp), ElementsAre("after"));
}

TEST(SerialCallsOfAThread, CallOutlivesWhatRanIt) {
    HeldCall held;
    {
        SerialCalls calls;
        EXPECT_THROW(calls.run(held.call(), [] { throw GivenUp(); }), GivenUp);
    }
    held.awaitBegun();
    EXPECT_FALSE(held.over());
    held.release();
}

TEST(SerialCallsOfManyThreads, RunOneAtATime) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 25;
    SerialCalls calls;
    int count = 0; // no atomic: the calls themselves keep out of each other's way
    std::atomic<int> right{0};
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < kRounds; ++round) {
                const Answer answer = calls.run([&] { return Answer{std::to_string(++count)}; }, kNeverGiveUp);
                right += answer.size() == 1 ? 1 : 0;
            }
        });
    }
    threads.clear(); // waits for them
    EXPECT_EQ(right, kThreads * kRounds);
    EXPECT_EQ(count, kThreads * kRounds);
}
