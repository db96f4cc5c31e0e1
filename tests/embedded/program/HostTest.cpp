#include "vantik/Host.h"

#include "embedded/scope/Scope.h"
#include "host/Interrupt.h"
#include "tests/embedded/program/ProgramFixture.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

using Hosts = ProgramFixture;
using Names = std::vector<std::string>;

TEST_F(Hosts, HintIsInTheTextOfTheFailure) {
    defineCounter(*Home);
    for (const auto& [unknown, text] :
         {std::pair{"test.Countr", "There is no class \"test.Countr\". Did you mean \"test.Counter\"?"},
          {"elsewhere", "There is no class \"elsewhere\"."}}) {
        try {
            Home->create(unknown);
            FAIL();
        } catch (const vantik::Failure& failure) {
            EXPECT_STREQ(failure.what(), text);
        }
    }
}

TEST_F(Hosts, DescribeTheirClasses) {
    defineCounter(*Home);
    HostClass("test.Loud").derivesFrom("test.Counter").defineIn(*Home);
    const vantik::ClassDescription description = Home->describe("test.Loud");
    EXPECT_EQ(description.Name, "test.Loud");
    EXPECT_EQ(description.BaseClasses, Names{"test.Counter"});
    EXPECT_FALSE(description.Abstract);
    Names methods;
    std::ranges::transform(description.Methods, std::back_inserter(methods), &vantik::MethodDescription::Name);
    EXPECT_EQ(methods, (Names{"Counter", "add", "both"})) << "constructor first, nothing internal";
    EXPECT_FALSE(description.Methods[0].Declared);
    EXPECT_EQ(description.Methods[1].Inputs, (Names{"test.Counter scalar", "double scalar"}));
    EXPECT_EQ(description.Methods[1].Outputs, Names{"double scalar"});
    EXPECT_TRUE(Home->describe("vantik.net.http.io.ContentProvider").Abstract);
    EXPECT_EQ(Home->describe("vantik.net.http.AuthenticationScheme").Members,
              (Names{"Basic", "Digest", "NTLM", "Negotiate"}));
    EXPECT_EQ(Home->classNames().back(), "test.Loud");
    EXPECT_EQ(Home->classNames().size(), 6u);
    Home.emplace();
    EXPECT_EQ(Home->classNames().size(), 4u) << "a new host has nothing of an old one";
}

TEST_F(Hosts, RunOnThreadsOfTheirOwn) {
    std::atomic<int> failures = 0;
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([thread, &failures] {
            for (int round = 0; round < 200; ++round) {
                Host host;
                double sum = 0;
                HostClass("test.Sum")
                    .method("add", {"double scalar"}, {},
                            doing([&sum](std::span<const Array> inputs) { sum += inputs[1].number(); }))
                    .defineIn(host);
                const Object object = host.create("test.Sum");
                for (int step = 1; step <= 10; ++step) {
                    object.call("add", {Array(static_cast<double>(step * (thread + 1)))});
                }
                failures +=
                    failureOf([&] { object.call("ad"); }) == "VANTIK:vcos:UnknownMethod(test.Sum, ad, add)" ? 0 : 1;
                failures += sum == 55.0 * (thread + 1) ? 0 : 1;
            }
        });
    }
    threads.clear(); // waits for them
    EXPECT_EQ(failures, 0);
}

TEST_F(Hosts, InterruptStaysPendingUntilDropped) {
    EXPECT_FALSE(Home->interruptPending());
    Home->interrupt();
    EXPECT_TRUE(Home->interruptPending());
    Home->clearInterrupt();
    EXPECT_FALSE(Home->interruptPending());
    Home->interruptAfter(std::chrono::nanoseconds(0));
    EXPECT_TRUE(Home->interruptPending());
    Home->clearInterrupt();
    Home->interruptAfter(std::chrono::nanoseconds::max());
    EXPECT_FALSE(Home->interruptPending());
}

TEST_F(Hosts, AProgramThatIsAskedStopsWhatRuns) {
    bool stops = false;
    Home->onInterruptCheck([&] { return stops; });
    const vantik::detail::ScopeEntry entry(Home->scope());
    utInterruptState::ThrowIfInterruptPending();
    stops = true;
    EXPECT_THROW(utInterruptState::ThrowIfInterruptPending(), Zentorak::System::InterruptException);
    EXPECT_TRUE(Home->wasInterrupted());
    EXPECT_FALSE(Home->interruptPending()) << "taken";
    Home->onInterruptCheck({});
    utInterruptState::ThrowIfInterruptPending();
}

TEST(HostComponents, NameLibrariesAndVersions) {
    const Names components = vantik::hostComponents();
    for (const char* start : {"libcurl ", "ICU ", "Boost 1.", "libproxy 0.", "CppMicroServices "}) {
        EXPECT_THAT(components, testing::Contains(testing::StartsWith(start)));
    }
}
