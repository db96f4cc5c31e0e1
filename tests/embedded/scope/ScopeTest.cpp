// Scopes, and what one does around each stretch that runs on the user's behalf.
#include "embedded/scope/Scope.h"

#include "host/State.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

using services::state::ImpersonationGuard;
using vantik::detail::Scope;
using vantik::detail::ScopeEntry;

TEST(Scopes, CurrentOneIsTheInnermostEntry) {
    EXPECT_EQ(Scope::currentOrNull(), nullptr);
    EXPECT_THROW(Scope::current(), std::logic_error);
    const auto outer = std::make_shared<Scope>();
    const auto inner = std::make_shared<Scope>();
    EXPECT_EQ(Scope::currentOrNull(), nullptr);
    {
        const ScopeEntry outerEntry(outer);
        {
            const Scope built; // which alone changes nothing
            EXPECT_EQ(&Scope::current(), outer.get());
            const ScopeEntry innerEntry(inner);
            EXPECT_EQ(&Scope::current(), inner.get());
            const ScopeEntry again(outer);
            EXPECT_EQ(&Scope::current(), outer.get());
        }
        EXPECT_EQ(&Scope::current(), outer.get());
    }
    EXPECT_EQ(Scope::currentOrNull(), nullptr);
}

TEST(Scopes, SingletonsGoInsideTheirScopeAndBeforeTheServicesOfTheProcess) {
    static Scope* seen = nullptr;
    static std::string log;
    log.clear();
    auto scope = std::make_shared<Scope>();
    Scope* const address = scope.get();
    scope->keepAlive(std::shared_ptr<void>(new int(0), [](int* service) {
        delete service;
        log += "service ";
    }));
    scope->Singletons.findOrInsert(1, typeid(int), {new int(1), [](void* object) {
                                                        delete static_cast<int*>(object);
                                                        log += "singleton ";
                                                        seen = Scope::currentOrNull();
                                                    }});
    scope.reset();
    EXPECT_EQ(log, "singleton service ");
    EXPECT_EQ(seen, address);
    EXPECT_EQ(Scope::currentOrNull(), nullptr);
}

TEST(Scopes, EachThreadEntersItsOwnAndKeepsItAlive) {
    const auto here = std::make_shared<Scope>();
    const ScopeEntry entry(here);
    std::thread([] {
        EXPECT_EQ(Scope::currentOrNull(), nullptr);
        auto there = std::make_shared<Scope>();
        const std::weak_ptr<Scope> watched = there;
        {
            const ScopeEntry otherEntry(std::move(there));
            EXPECT_FALSE(watched.expired());
            EXPECT_EQ(&Scope::current(), watched.lock().get());
        }
        EXPECT_TRUE(watched.expired());
    }).join();
    EXPECT_EQ(&Scope::current(), here.get());
}

class Impersonation : public testing::Test {
protected:
    std::shared_ptr<Scope> Home = std::make_shared<Scope>();
    ScopeEntry Entry{Home};
};

TEST_F(Impersonation, GuardCountsAndCallsHooks) {
    std::string log;
    Home->Impersonation.OnEntry = [&] { log += "in" + std::to_string(Home->Impersonation.Depth) + " "; };
    Home->Impersonation.OnExit = [&] { log += "out" + std::to_string(Home->Impersonation.Depth) + " "; };
    {
        const ImpersonationGuard outer;
        EXPECT_EQ(Home->Impersonation.Depth, 1U);
        const ImpersonationGuard inner;
        EXPECT_EQ(Home->Impersonation.Depth, 2U);
    }
    EXPECT_EQ(Home->Impersonation.Depth, 0U);
    EXPECT_EQ(log, "in0 in1 out1 out0 ");
}

TEST_F(Impersonation, FailedEntryIsNotCountedAndFailedExitIsSwallowed) {
    bool left = false;
    Home->Impersonation.OnEntry = [] { throw std::runtime_error("refused"); };
    Home->Impersonation.OnExit = [&] {
        left = true;
        throw std::runtime_error("exit");
    };
    EXPECT_THROW(ImpersonationGuard(), std::runtime_error);
    EXPECT_EQ(Home->Impersonation.Depth, 0U);
    EXPECT_FALSE(left);
    Home->Impersonation.OnEntry = nullptr;
    try {
        const ImpersonationGuard guard;
        throw std::invalid_argument("first");
    } catch (const std::invalid_argument& failure) {
        EXPECT_STREQ(failure.what(), "first");
    }
    EXPECT_TRUE(left);
    EXPECT_EQ(Home->Impersonation.Depth, 0U);
}
