#include "hostclass/ModuleEntry.h"

#include "host/Messages.h"
#include "tests/hostclass/ClassFixture.h"
#include "tests/hostclass/HostCalls.h"
#include "tests/support/process/Await.h"
#include "tests/support/process/BuiltFile.h"
#include "tests/support/process/ElfFile.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <fstream>
#include <functional>
#include <iterator>
#include <latch>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

constexpr const char* kConsumerName = "vantik.net.http.io.ContentConsumer";

class ModuleEntry : public ScopeFixture {};

std::string registrationFailure() {
    return testsupport::failureText([] { VKInitialize_netrove(); });
}

// Whether a thread of this process waits for something.
bool sleeps(pid_t thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    const std::string text(std::istreambuf_iterator<char>(file), {});
    return text.find(") S ") != std::string::npos;
}

const std::string kConsumerMissing = "VANTIK:legacy_two_part:undefinedVarOrClass[N:" + std::string(kConsumerName) + "]";

} // namespace

// What the module lets others see, read from its dynamic symbol table.
TEST(ModuleExports, AreTheThreeEntryPointsAndNothingElse) {
    std::vector<std::string> names =
        testsupport::ElfFile(testsupport::builtFile("lib/libnetrove.so")).exportedSymbols();
    std::ranges::transform(names, names.begin(), testsupport::demangled);
    EXPECT_THAT(names,
                testing::UnorderedElementsAre("VKInitialize_netrove", "VKTerminate_netrove",
                                              "ws_base::getProxyInfoBuiltin(int, vxArray_tag**, int, vxArray_tag**)"));
}

TEST_F(ModuleEntry, WithASystemForEachScopeEveryCallRegisters) {
    EXPECT_EQ(registeredClass(), nullptr);
    VKInitialize_netrove();
    ASSERT_TRUE(scope().Classes.removeClass(kAdapterClass));
    VKInitialize_netrove();
    EXPECT_NE(registeredClass(), nullptr);
    EXPECT_NO_THROW(VKInitialize_netrove()); // over itself
    VKTerminate_netrove();
    EXPECT_NE(registeredClass(), nullptr) << "what is registered stays";
}

// The once flag belongs to the process, so these tests run in processes of their own.
class ModuleEntryDeathTest : public ModuleEntry {
protected:
    ModuleEntryDeathTest() {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        scope().RegistersPerScope = false;
    }
    // Whether a call of the module's entry left the class in a new scope, on this thread. `before` runs just before it.
    static bool registersInAScopeOfItsOwn(const std::function<void()>& before) {
        vantik::Host own;
        const vantik::detail::ScopeEntry entry(own.scope());
        own.scope()->RegistersPerScope = false;
        before();
        VKInitialize_netrove();
        return registeredClass() != nullptr;
    }
    [[noreturn]] static void leave(bool asExpected) { std::_Exit(asExpected ? 0 : 1); }
};

TEST_F(ModuleEntryDeathTest, WithOneSystemForAllASecondCallDoesNothing) {
    EXPECT_EXIT(
        {
            VKInitialize_netrove();
            const bool registered = registeredClass() != nullptr;
            scope().Classes.removeClass(kAdapterClass);
            VKInitialize_netrove();
            leave(registered && registeredClass() == nullptr);
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
            leave(failed && failedAgain && registeredClass() != nullptr);
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
                threads.emplace_back(
                    [&] { has = registersInAScopeOfItsOwn([&] { start.arrive_and_wait(); }) ? 1 : 0; });
            }
            for (std::thread& thread : threads) {
                thread.join();
            }
            leave(std::ranges::count(registered, 1) == 1);
        },
        testing::ExitedWithCode(0), "");
}

// The class is there for whoever returns, not for the one alone who registered it.
TEST_F(ModuleEntryDeathTest, WithOneSystemForAllACallWaitsForTheRegistrationThatRuns) {
    EXPECT_EXIT(
        {
            HostCalls calls;
            std::atomic_flag held;
            std::latch begun(1);
            std::latch mayEnd(1);
            calls.OnGetNamespace = [&](const std::string& name) {
                if (!held.test_and_set()) {
                    begun.count_down();
                    mayEnd.wait();
                }
                return HostCalls::hostNamespace(name);
            };
            bool firstRegistered = false;
            std::thread first([&] { firstRegistered = registersInAScopeOfItsOwn([] {}); });
            begun.wait();
            std::atomic<pid_t> caller = 0;
            std::atomic<bool> returned = false;
            bool secondRegistered = true;
            std::thread second([&] {
                secondRegistered = registersInAScopeOfItsOwn([&] { caller = gettid(); });
                returned = true;
            });
            const auto waits =
                testsupport::awaitOrEnd([&] { return caller != 0 && sleeps(caller); }, [&] { return returned.load(); });
            const bool tooEarly = returned;
            mayEnd.count_down();
            first.join();
            second.join();
            leave(waits == testsupport::Awaited::Held && !tooEarly && firstRegistered && !secondRegistered);
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
            has = registeredClass() != nullptr ? 1 : 0;
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(registered, std::vector<int>(4, 1));
}

TEST_F(ModuleEntryDeathTest, OncePrimitiveThatFailsEndsTheProcess) {
    EXPECT_EXIT(
        {
            HostCalls calls;
            calls.OncePrimitiveFails = true;
            VKInitialize_netrove();
        },
        testing::KilledBySignal(SIGABRT), "");
}
