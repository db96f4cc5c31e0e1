// The request to stop, and what the host raises for it.
#include "embedded/scope/InterruptState.h"

#include "embedded/scope/InterruptOrigin.h"
#include "embedded/scope/Scope.h"
#include "host/Interrupt.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <stdexcept>
#include <thread>

using namespace std::chrono_literals;
using vantik::detail::InterruptState;
using vantik::detail::Scope;
using vantik::detail::ScopeEntry;
using Zentorak::System::InterruptException;

TEST(InterruptState, RequestIsTakenOnceOrDropped) {
    InterruptState state;
    EXPECT_FALSE(state.pending());
    EXPECT_FALSE(state.take());
    state.request();
    state.request();
    EXPECT_TRUE(state.pending());
    EXPECT_TRUE(state.pending());
    EXPECT_TRUE(state.take());
    EXPECT_FALSE(state.pending());
    EXPECT_FALSE(state.take());
    state.request();
    state.clear();
    EXPECT_FALSE(state.take());
}

TEST(InterruptState, WhatWasStoppedIsRememberedUntilCleared) {
    InterruptState state;
    state.request();
    state.take();
    EXPECT_FALSE(state.stopped()) << "taking alone stops nothing";
    state.noteStopped();
    EXPECT_TRUE(state.stopped());
    state.clear();
    EXPECT_FALSE(state.stopped());
}

TEST(InterruptState, TimeWithoutLengthIsOverAtOnce) {
    for (const auto time : {0ns, -5ns, std::chrono::nanoseconds::min()}) {
        InterruptState state;
        state.requestAfter(time);
        EXPECT_TRUE(state.pending());
        EXPECT_TRUE(state.take());
        EXPECT_FALSE(state.take());
    }
}

TEST(InterruptState, TimeAheadIsNotPendingAndOutlivesARequest) {
    InterruptState state;
    state.requestAfter(24h);
    EXPECT_FALSE(state.pending());
    EXPECT_FALSE(state.take());
    state.request();
    EXPECT_TRUE(state.take());
    EXPECT_FALSE(state.pending());
    state.requestAfter(0ns); // replaces the first one
    EXPECT_TRUE(state.take());
    EXPECT_FALSE(state.take());
}

TEST(InterruptState, LongestTimesNeverCome) {
    InterruptState state;
    state.requestAfter(0ns);
    state.requestAfter(std::chrono::nanoseconds::max());
    EXPECT_FALSE(state.pending());
    state.requestAfter(std::chrono::nanoseconds::max() - 1ns); // beyond the clock's range
    EXPECT_FALSE(state.pending());
}

TEST(InterruptState, TimeComes) {
    InterruptState state;
    const auto start = InterruptState::Clock::now();
    state.requestAfter(1ms);
    while (!state.take()) {
        std::this_thread::yield();
    }
    EXPECT_GE(InterruptState::Clock::now() - start, 1ms);
}

namespace {

InterruptState* signalled = nullptr;

} // namespace

TEST(InterruptState, AnotherThreadOrASignalHandlerRequests) {
    InterruptState state;
    std::thread other([&state] { state.request(); });
    while (!state.take()) {
        std::this_thread::yield();
    }
    other.join();
    EXPECT_FALSE(state.pending());
    signalled = &state;
    const auto previous = std::signal(SIGUSR1, [](int) { signalled->request(); });
    std::raise(SIGUSR1);
    std::signal(SIGUSR1, previous);
    EXPECT_TRUE(state.take());
}

TEST(Interrupt, RaisesOnceAndLeavesOtherScopesAlone) {
    EXPECT_THROW(utInterruptState::ThrowIfInterruptPending(), std::logic_error) << "outside every scope";
    const auto first = std::make_shared<Scope>();
    const auto second = std::make_shared<Scope>();
    first->Interrupt.request();
    {
        const ScopeEntry entry(second);
        EXPECT_NO_THROW(utInterruptState::ThrowIfInterruptPending());
    }
    const ScopeEntry entry(first);
    EXPECT_FALSE(first->Interrupt.stopped());
    try {
        utInterruptState::ThrowIfInterruptPending();
        FAIL();
    } catch (const InterruptException& interrupt) {
        EXPECT_FALSE(vantik::detail::requestedByProgram(interrupt));
        EXPECT_STREQ(interrupt.what(), "The operation was stopped on request.");
    }
    EXPECT_TRUE(first->Interrupt.stopped());
    EXPECT_FALSE(second->Interrupt.stopped());
    EXPECT_NO_THROW(utInterruptState::ThrowIfInterruptPending());
}

TEST(Interrupt, IsInternalAndStandardButNotAUserException) {
    const InterruptException interrupt(true);
    EXPECT_THROW(interrupt.rethrow(), foundation::core::except::IInternalException);
    EXPECT_THROW(interrupt.rethrow(), foundation::core::except::IException);
    EXPECT_THROW(interrupt.rethrow(), std::exception);
    try {
        interrupt.rethrow();
    } catch (const foundation::core::except::IUserException&) {
        ADD_FAILURE() << "an interrupt carries no message identifier";
    } catch (const boost::exception&) {
    }
}

TEST(Interrupt, CloneAndRethrowKeepTypeAndOrigin) {
    for (const bool byProgram : {false, true}) {
        const InterruptException interrupt(byProgram);
        const std::unique_ptr<const boost::exception_detail::clone_base> copy(interrupt.clone());
        try {
            copy->rethrow();
            FAIL();
        } catch (const InterruptException& thrown) {
            EXPECT_EQ(vantik::detail::requestedByProgram(thrown), byProgram);
        }
    }
}
