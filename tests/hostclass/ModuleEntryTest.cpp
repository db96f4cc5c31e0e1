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
#include <vector>

namespace {

constexpr const char* kConsumerName = "vantik.net.http.io.ContentConsumer";
constexpr std::size_t kThreads = 8;

// Whether a call of the module's entry left the class in a new scope, on this thread. `before` runs just before it.
bool registersInAScopeOfItsOwn(bool perScope, const std::function<void()>& before) {
    vantik::Host own;
    const vantik::detail::ScopeEntry entry(own.scope());
    own.scope()->RegistersPerScope = perScope;
    before();
    VKInitialize_netrove();
    return registeredClass() != nullptr;
}

// How many of the concurrent callers did so.
std::size_t registrationsOfConcurrentCallers(bool perScope) {
    std::latch start(kThreads);
    std::atomic<std::size_t> registered = 0;
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < kThreads; ++i) {
        threads.emplace_back(
            [&] { registered += registersInAScopeOfItsOwn(perScope, [&] { start.arrive_and_wait(); }) ? 1 : 0; });
    }
    threads.clear(); // waits for them
    return registered;
}

// Whether a thread of this process waits for something.
bool sleeps(pid_t thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    const std::string text(std::istreambuf_iterator<char>(file), {});
    return text.find(") S ") != std::string::npos;
}

class ModuleEntry : public ScopeFixture {};

// Where one system serves all scopes, the once flag belongs to the process, so these tests run in processes of their
// own.
class ModuleEntryDeathTest : public ModuleEntry {
protected:
    ModuleEntryDeathTest() {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        scope().RegistersPerScope = false;
    }
    static void expectInAnotherProcess(const std::function<bool()>& holds) {
        EXPECT_EXIT(std::_Exit(holds() ? 0 : 1), testing::ExitedWithCode(0), "");
    }
};

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

TEST_F(ModuleEntry, WithASystemForEachScopeEveryThreadRegisters) {
    EXPECT_EQ(registrationsOfConcurrentCallers(true), kThreads);
}

TEST_F(ModuleEntryDeathTest, WithOneSystemForAllASecondCallDoesNothing) {
    expectInAnotherProcess([&] {
        VKInitialize_netrove();
        const bool registered = registeredClass() != nullptr;
        scope().Classes.removeClass(kAdapterClass);
        VKInitialize_netrove();
        return registered && registeredClass() == nullptr;
    });
}

TEST_F(ModuleEntryDeathTest, WithOneSystemForAllAFailureLeavesLaterCallsFreeToTryAgain) {
    expectInAnotherProcess([&] {
        const auto fails = [] {
            return testsupport::failureText([] { VKInitialize_netrove(); }) ==
                   "VANTIK:legacy_two_part:undefinedVarOrClass[N:" + std::string(kConsumerName) + "]";
        };
        scope().Classes.removeClass(kConsumerName);
        const bool failedTwice = fails() && fails();
        vantik::HostClass(kConsumerName).defineIn(host());
        VKInitialize_netrove();
        return failedTwice && registeredClass() != nullptr;
    });
}

// One registers, in its own scope, and all of them return.
TEST_F(ModuleEntryDeathTest, WithOneSystemForAllOneOfManyThreadsRegisters) {
    expectInAnotherProcess([] { return registrationsOfConcurrentCallers(false) == 1; });
}

// The class is there for whoever returns, not for the one alone who registered it.
TEST_F(ModuleEntryDeathTest, WithOneSystemForAllACallWaitsForTheRegistrationThatRuns) {
    expectInAnotherProcess([] {
        HostCalls calls;
        std::atomic_flag held;
        std::latch begun(1);
        std::latch mayEnd(1);
        calls.OnGetNamespace = [&](vcos::InternedName name) {
            if (!held.test_and_set()) {
                begun.count_down();
                mayEnd.wait();
            }
            return HostCalls::hostNamespace(name);
        };
        bool firstRegistered = false;
        std::thread first([&] { firstRegistered = registersInAScopeOfItsOwn(false, [] {}); });
        begun.wait();
        std::atomic<pid_t> caller = 0;
        std::atomic<bool> returned = false;
        bool secondRegistered = true;
        std::thread second([&] {
            secondRegistered = registersInAScopeOfItsOwn(false, [&] { caller = gettid(); });
            returned = true;
        });
        const auto waits =
            testsupport::awaitOrEnd([&] { return caller != 0 && sleeps(caller); }, [&] { return returned.load(); });
        const bool tooEarly = returned;
        mayEnd.count_down();
        first.join();
        second.join();
        return waits == testsupport::Awaited::Held && !tooEarly && firstRegistered && !secondRegistered;
    });
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
