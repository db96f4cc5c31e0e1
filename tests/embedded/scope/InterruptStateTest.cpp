// The request to stop, and what the host raises for it.
#include "embedded/scope/InterruptState.h"

#include "embedded/scope/InterruptOrigin.h"
#include "embedded/scope/Scope.h"
#include "host/Interrupt.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <poll.h>
#include <stdexcept>
#include <thread>
#include <type_traits>

using namespace std::chrono_literals;
using vantik::detail::InterruptState;
using vantik::detail::Scope;
using vantik::detail::ScopeEntry;
using Zentorak::System::InterruptException;

TEST(InterruptState, RequestIsTakenOnceOrDroppedAndWhatItStoppedIsRemembered) {
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
    EXPECT_FALSE(state.stopped()) << "taking alone stops nothing";
    state.noteStopped();
    EXPECT_TRUE(state.stopped());
    state.request();
    state.clear();
    EXPECT_FALSE(state.take());
    EXPECT_FALSE(state.stopped());
}

TEST(InterruptState, TimeIsOverOnceAndReplacedByTheNext) {
    InterruptState state;
    for (const auto time : {0ns, -5ns, std::chrono::nanoseconds::min()}) {
        state.requestAfter(24h);
        state.requestAfter(time);
        EXPECT_TRUE(state.pending());
        EXPECT_TRUE(state.take());
        EXPECT_FALSE(state.take());
    }
    state.requestAfter(24h);
    EXPECT_FALSE(state.pending());
    EXPECT_FALSE(state.take());
    state.request();
    EXPECT_TRUE(state.take());
    EXPECT_FALSE(state.pending());
    // The last one is beyond the clock's range.
    for (const auto never : {std::chrono::nanoseconds::max(), std::chrono::nanoseconds::max() - 1ns}) {
        state.requestAfter(0ns);
        state.requestAfter(never);
        EXPECT_FALSE(state.pending());
    }
    const auto start = InterruptState::Clock::now();
    state.requestAfter(1ms);
    while (!state.take()) {
        std::this_thread::yield();
    }
    EXPECT_GE(InterruptState::Clock::now() - start, 1ms);
}

static bool isReadable(int descriptor) {
    pollfd entry = {.fd = descriptor, .events = POLLIN, .revents = 0};
    return poll(&entry, 1, 0) == 1;
}

TEST(InterruptState, DescriptorIsReadableFromTheRequestUntilItWasTaken) {
    for (const bool early : {false, true}) {
        InterruptState state;
        if (early) {
            state.request(); // before anybody has waited
        }
        const int descriptor = state.descriptor();
        ASSERT_GE(descriptor, 0);
        EXPECT_EQ(isReadable(descriptor), early);
        for (int round = 0; round < 2; ++round) {
            state.request();
            state.request();
            EXPECT_TRUE(isReadable(descriptor));
            EXPECT_EQ(state.descriptor(), descriptor);
            EXPECT_TRUE(isReadable(descriptor)) << "nobody has taken it";
            EXPECT_TRUE(state.take());
            EXPECT_FALSE(isReadable(state.descriptor()));
        }
    }
}

TEST(InterruptState, RequestOfAnotherThreadEndsAWait) {
    InterruptState state;
    for (int round = 0; round < 1000; ++round) {
        std::thread other([&state] { state.request(); });
        pollfd entry = {.fd = state.descriptor(), .events = POLLIN, .revents = 0};
        EXPECT_EQ(poll(&entry, 1, -1), 1);
        EXPECT_TRUE(state.take());
        other.join();
        EXPECT_FALSE(isReadable(state.descriptor()));
    }
}

static InterruptState* signalled = nullptr;

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
    const int descriptor = state.descriptor();
    std::raise(SIGUSR1);
    std::signal(SIGUSR1, previous);
    EXPECT_TRUE(isReadable(descriptor));
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

TEST(Interrupt, IsInternalAndStandardButNotAUserExceptionAndItsCloneKeepsTheOrigin) {
    for (const bool byProgram : {false, true}) {
        const InterruptException interrupt(byProgram);
        EXPECT_THROW(interrupt.rethrow(), foundation::core::except::IInternalException);
        EXPECT_THROW(interrupt.rethrow(), std::exception);
        const std::unique_ptr<const boost::exception_detail::clone_base> copy(interrupt.clone());
        try {
            copy->rethrow();
            FAIL();
        } catch (const foundation::core::except::IUserException&) {
            ADD_FAILURE() << "an interrupt carries no message identifier";
        } catch (const InterruptException& thrown) {
            EXPECT_EQ(vantik::detail::requestedByProgram(thrown), byProgram);
        }
    }
    static_assert(std::is_convertible_v<InterruptException*, foundation::core::except::IException*>);
    static_assert(std::is_convertible_v<InterruptException*, boost::exception*>);
}
