#include "hostclass/ModuleEntry.h"

#include "host/Messages.h"
#include "tests/hostclass/ClassFixture.h"

#include <algorithm>
#include <latch>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

constexpr const char* kConsumerName = "vantik.net.http.io.ContentConsumer";

class ModuleEntry : public ScopeFixture {
protected:
    bool hasClass() {
        const std::vector<std::string> names = host().classNames();
        return std::ranges::find(names, kAdapterClass) != names.end();
    }
};

// The identifier and the first argument of what registering raises.
std::pair<std::string, resource_core::MsgArgument> registrationFailure() {
    try {
        VKInitialize_netrove();
    } catch (const foundation::core::except::IMsgIDException& failure) {
        return {failure.get_error_id(), failure.msg_id().arguments().at(0)};
    }
    return {"none", std::string()};
}

const std::pair<std::string, resource_core::MsgArgument> kConsumerMissing = {
    "VANTIK:legacy_two_part:undefinedVarOrClass", std::string(kConsumerName)};

} // namespace

TEST_F(ModuleEntry, WithASystemForEachScopeEveryCallRegisters) {
    VKInitialize_netrove();
    vcos::COSClass* first = vcos::COSClass::getClass(vcos::internal::makeInterned(kAdapterClass));
    ASSERT_TRUE(scope().Classes.removeClass(kAdapterClass));
    VKInitialize_netrove();
    EXPECT_NE(first, nullptr);
    EXPECT_TRUE(hasClass());
    EXPECT_NO_THROW(VKInitialize_netrove()); // over itself
    EXPECT_TRUE(hasClass());
}

TEST_F(ModuleEntry, MissingHostClassIsNamedAndALaterCallSucceeds) {
    ASSERT_TRUE(scope().Classes.removeClass(kConsumerName));
    EXPECT_EQ(registrationFailure(), kConsumerMissing);
    EXPECT_FALSE(hasClass());
    vantik::HostClass(kConsumerName).defineIn(host());
    VKInitialize_netrove();
    EXPECT_TRUE(hasClass());
}

TEST_F(ModuleEntry, TerminateLeavesTheClass) {
    VKInitialize_netrove();
    VKTerminate_netrove();
    EXPECT_TRUE(hasClass());
}

// The once flag belongs to the process, so these tests run in processes of their own.
class ModuleEntryDeathTest : public ModuleEntry {
protected:
    ModuleEntryDeathTest() {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        scope().RegistersPerScope = false;
    }
    [[noreturn]] static void leave(bool asExpected) { std::_Exit(asExpected ? 0 : 1); }
};

TEST_F(ModuleEntryDeathTest, WithOneSystemForAllASecondCallDoesNothing) {
    EXPECT_EXIT(
        {
            VKInitialize_netrove();
            const bool registered = hasClass();
            scope().Classes.removeClass(kAdapterClass);
            VKInitialize_netrove();
            leave(registered && !hasClass());
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(ModuleEntryDeathTest, WithOneSystemForAllAFailureLeavesLaterCallsFreeToTryAgain) {
    EXPECT_EXIT(
        {
            scope().Classes.removeClass(kConsumerName);
            const bool failed = registrationFailure() == kConsumerMissing;
            const bool failedAgain = registrationFailure() == kConsumerMissing;
            vantik::HostClass(kConsumerName).defineIn(host());
            VKInitialize_netrove();
            leave(failed && failedAgain && hasClass());
        },
        testing::ExitedWithCode(0), "");
}

// Concurrent callers: one registers, in its own scope, and all of them return.
TEST_F(ModuleEntryDeathTest, WithOneSystemForAllOneOfManyThreadsRegisters) {
    EXPECT_EXIT(
        {
            constexpr std::size_t count = 8;
            std::latch start(count);
            std::vector<int> registered(count);
            std::vector<std::thread> threads;
            for (int& has : registered) {
                threads.emplace_back([&] {
                    vantik::Host own;
                    const vantik::detail::ScopeEntry entry(own.scope());
                    own.scope()->RegistersPerScope = false;
                    start.arrive_and_wait();
                    VKInitialize_netrove();
                    has = vcos::COSClass::getClass(vcos::internal::makeInterned(kAdapterClass)) != nullptr ? 1 : 0;
                });
            }
            for (std::thread& thread : threads) {
                thread.join();
            }
            leave(std::ranges::count(registered, 1) == 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(ModuleEntry, WithASystemForEachScopeEveryThreadRegisters) {
    std::vector<int> registered(4);
    std::vector<std::thread> threads;
    for (int& has : registered) {
        threads.emplace_back([&] {
            vantik::Host own;
            const vantik::detail::ScopeEntry entry(own.scope());
            VKInitialize_netrove();
            has = vcos::COSClass::getClass(vcos::internal::makeInterned(kAdapterClass)) != nullptr ? 1 : 0;
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(registered, std::vector<int>(4, 1));
}
