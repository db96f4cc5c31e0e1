#include "embedded/Services.h"
#include "embedded/Scope.h"
#include "host/ProxySelector.h"
#include "host/Services.h"

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/FrameworkFactory.h>
#include <cppmicroservices/LDAPFilter.h>
#include <cppmicroservices/ServiceObjects.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using cppmicroservices::Any;
using cppmicroservices::BundleContext;
using cppmicroservices::Framework;
using cppmicroservices::FrameworkFactory;
using cppmicroservices::LDAPFilter;
using cppmicroservices::ServiceProperties;
using foundation::cppmicroservices::getFramework;
using foundation::httpclient_core::libcurlinitializer::LibCurlInitializer;
using foundation::httpproxy::ProxySelector;
using testing::ElementsAre;
using testing::HasSubstr;
using vantik::detail::FrameworkReplacement;
using vantik::detail::makeEmptyFramework;

namespace sample {

struct Greeter {
    virtual ~Greeter() = default;
    virtual std::string greet() const = 0;
};
struct Counter {
    virtual ~Counter() = default;
    virtual int count() const = 0;
};
struct Nameless {};
struct Undeclared {};

// Two bases, so that a pointer to the second one differs from a pointer to the object.
struct Both final : Greeter, Counter {
    explicit Both(std::string text, int number = 0) : Text(std::move(text)), Number(number) {}
    std::string greet() const override { return Text; }
    int count() const override { return Number; }
    std::string Text;
    int Number;
};

} // namespace sample

CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE(sample::Greeter, "sample.Greeter")
CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE(sample::Nameless, "")

using sample::Both;
using sample::Counter;
using sample::Greeter;

namespace {

template <class Operation>
std::string failureText(Operation operation) {
    try {
        operation();
    } catch (const std::exception& failure) {
        return failure.what();
    }
    return "no failure";
}

std::shared_ptr<Both> both(const std::string& text, int number = 0) {
    return std::make_shared<Both>(text, number);
}

class Registry : public testing::Test {
protected:
    std::shared_ptr<Framework> Home = makeEmptyFramework();
    BundleContext Context = Home->GetBundleContext();

    std::vector<std::string> greetings(const std::string& filter = {}) {
        std::vector<std::string> result;
        for (const auto& reference : Context.GetServiceReferences<Greeter>(filter)) {
            result.push_back(Context.GetService(reference)->greet());
        }
        return result;
    }
};

constexpr const char* kInvalid = "The bundle context is no longer valid";

} // namespace

TEST_F(Registry, EmptyOneFindsNothing) {
    EXPECT_THAT(greetings(), ElementsAre());
    EXPECT_FALSE(Context.GetServiceReference<Greeter>());
    EXPECT_EQ(Context.GetService(Context.GetServiceReference<Greeter>()), nullptr);
}

TEST_F(Registry, ElderServiceIsFoundFirst) {
    auto first = Context.RegisterService<Greeter>(both("first"));
    auto second = Context.RegisterService<Greeter>(both("second"));
    EXPECT_THAT(greetings(), ElementsAre("first", "second"));
    EXPECT_EQ(Context.GetService(Context.GetServiceReference<Greeter>())->greet(), "first");
    EXPECT_TRUE(second.GetReference() < first.GetReference());
    EXPECT_FALSE(first.GetReference() < second.GetReference());
    EXPECT_FALSE(first.GetReference() == second.GetReference());
}

TEST_F(Registry, HigherRankingIsFoundFirst) {
    static_cast<void>(Context.RegisterService<Greeter>(both("plain")));
    static_cast<void>(Context.RegisterService<Greeter>(both("low"), {{"service.ranking", Any(-1)}}));
    static_cast<void>(Context.RegisterService<Greeter>(both("high"), {{"service.ranking", Any(5)}}));
    static_cast<void>(Context.RegisterService<Greeter>(both("high too"), {{"Service.Ranking", Any(5)}}));
    EXPECT_THAT(greetings(), ElementsAre("high", "high too", "plain", "low"));
}

TEST_F(Registry, OneObjectServesSeveralInterfaces) {
    const auto object = both("hello", 42);
    auto registration = Context.RegisterService<Greeter, Counter>(object);
    const auto counter = Context.GetServiceReference<Counter>();
    ASSERT_TRUE(counter);
    EXPECT_EQ(Context.GetService(counter)->count(), 42);
    EXPECT_EQ(Context.GetService(Context.GetServiceReference<Greeter>())->greet(), "hello");
    EXPECT_EQ(Context.GetService(registration.GetReference<Counter>())->count(), 42);
    EXPECT_EQ(counter.GetInterfaceId(), "sample::Counter"); // no name of its own: the type's
    EXPECT_TRUE(cppmicroservices::ServiceReference<Greeter>(counter));
}

TEST_F(Registry, ReferenceToAMissingInterfaceNamesNothing) {
    static_cast<void>(Context.RegisterService<Greeter>(both("x")));
    const cppmicroservices::ServiceReference<Counter> counter(Context.GetServiceReference<Greeter>());
    EXPECT_FALSE(counter);
    EXPECT_EQ(Context.GetService(counter), nullptr);
}

TEST_F(Registry, UnregisteredServiceIsGone) {
    auto registration = Context.RegisterService<Greeter>(both("gone"), {{"kind", Any(std::string("short"))}});
    const auto reference = registration.GetReference();
    const auto held = Context.GetServiceObjects(reference).GetService();
    registration.Unregister();
    EXPECT_THAT(greetings(), ElementsAre());
    EXPECT_FALSE(reference);
    EXPECT_EQ(Context.GetService(reference), nullptr);
    EXPECT_EQ(Context.GetServiceObjects(reference).GetService(), nullptr);
    EXPECT_EQ(held->greet(), "gone"); // who has the object keeps it
    EXPECT_EQ(cppmicroservices::any_cast<std::string>(reference.GetProperty("KIND")), "short");
    EXPECT_THROW(registration.Unregister(), std::logic_error);
    EXPECT_THROW(registration.GetReference(), std::logic_error);
}

TEST_F(Registry, MistakesOfRegistrationAreRefused) {
    EXPECT_THROW(Context.RegisterService<Greeter>(std::shared_ptr<Both>()), std::invalid_argument);
    EXPECT_THROW(Context.RegisterService<sample::Nameless>(std::make_shared<sample::Nameless>()),
                 std::invalid_argument);
    EXPECT_THROW(Context.RegisterService(nullptr), std::invalid_argument);
    EXPECT_THROW(Context.RegisterService(std::make_shared<cppmicroservices::InterfaceMap>()), std::invalid_argument);
    EXPECT_THROW(cppmicroservices::ServiceRegistrationU().Unregister(), std::logic_error);
}

TEST_F(Registry, InterfaceWithoutNameIsRefusedByItsText) {
    EXPECT_EQ(failureText([&] { Context.GetServiceReferences<sample::Nameless>(); }),
              "The service interface class has no CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE macro");
    EXPECT_THROW(Context.GetServiceReference<sample::Nameless>(), cppmicroservices::ServiceException);
    EXPECT_NO_THROW(Context.GetServiceReferences<sample::Undeclared>());
}

TEST_F(Registry, PropertiesAreKeptWithTheId) {
    auto registration = Context.RegisterService<Greeter>(both("x"), {{"colour", Any(std::string("blue"))}});
    const auto reference = registration.GetReference();
    EXPECT_THAT(reference.GetPropertyKeys(), testing::UnorderedElementsAre("colour", "service.id"));
    EXPECT_EQ(cppmicroservices::any_cast<long>(reference.GetProperty("service.id")), 1L);
    EXPECT_FALSE(reference.GetProperty("nothing").has_value());
}

TEST_F(Registry, FilterChoosesByProperties) {
    static_cast<void>(Context.RegisterService<Greeter>(
        both("a"), {{"colour", Any(std::string("blue"))}, {"size", Any(7)}, {"on", Any(true)}}));
    static_cast<void>(Context.RegisterService<Greeter>(
        both("b"), {{"colour", Any(std::string("red"))}, {"size", Any(8L)}, {"ratio", Any(2.5)}}));
    EXPECT_THAT(greetings("(colour=blue)"), ElementsAre("a"));
    EXPECT_THAT(greetings("(COLOUR=red)"), ElementsAre("b"));
    EXPECT_THAT(greetings("(colour=Red)"), ElementsAre());
    EXPECT_THAT(greetings("(size=7)"), ElementsAre("a"));
    EXPECT_THAT(greetings("(size=8)"), ElementsAre("b"));
    EXPECT_THAT(greetings("(size=7x)"), ElementsAre());
    EXPECT_THAT(greetings("(ratio=2.5)"), ElementsAre("b"));
    EXPECT_THAT(greetings("(on=true)"), ElementsAre("a"));
    EXPECT_THAT(greetings("(on=*)"), ElementsAre("a"));
    EXPECT_THAT(greetings("(!(on=*))"), ElementsAre("b"));
    EXPECT_THAT(greetings("(&(colour=blue)(size=8))"), ElementsAre());
    EXPECT_THAT(greetings(" ( | (colour=blue) ( size = 8) ) "), ElementsAre("a"));
    EXPECT_THAT(greetings("(|(colour=blue)(size=8))"), ElementsAre("a", "b"));
    EXPECT_THAT(greetings(LDAPFilter().ToString()), ElementsAre("a", "b"));
}

TEST_F(Registry, UnreadableFilterIsRefusedWithItsPlace) {
    for (const char* filter :
         {"x", "(", "()", "(a)", "(a=b", "(a=b))", "(a>=1)", "(a~=b)", "(a=b*c)", "(&)", "(!(a=b)(c=d))"}) {
        EXPECT_THROW(Context.GetServiceReferences<Greeter>(filter), std::invalid_argument) << filter;
    }
    EXPECT_EQ(failureText([&] { LDAPFilter("(a>=1)"); }),
              "Filter \"(a>=1)\", position 2: only comparisons with '=' are supported");
    std::string deep;
    for (int i = 0; i < 100000; ++i) {
        deep += "(!";
    }
    EXPECT_THAT(failureText([&] { LDAPFilter{deep}; }), HasSubstr("nested too deeply"));
}

TEST(LDAPFilters, TextIsNormalized) {
    EXPECT_FALSE(LDAPFilter());
    EXPECT_EQ(LDAPFilter().ToString(), "");
    EXPECT_EQ(LDAPFilter(" ( & (a=b) (! ( c =*) ) ) ").ToString(), "(&(a=b)(!(c=*)))");
    EXPECT_EQ(LDAPFilter("(a=\\(b\\*\\)\\\\)").ToString(), "(a=\\(b\\*\\)\\\\)");
    EXPECT_TRUE(LDAPFilter("(a=\\*)").Match(ServiceProperties{{"a", Any(std::string("*"))}}));
    EXPECT_TRUE(LDAPFilter("(a=b)") == LDAPFilter(" (a=b) "));
    EXPECT_TRUE(LDAPFilter("(a=b)"));
}

TEST_F(Registry, StoppedFrameworkInvalidatesContexts) {
    const auto object = both("x");
    auto registration = Context.RegisterService<Greeter>(object);
    const auto reference = Context.GetServiceReference<Greeter>();
    auto objects = Context.GetServiceObjects(reference);
    EXPECT_EQ(object.use_count(), 2);
    EXPECT_EQ(Home->GetState(), cppmicroservices::Bundle::STATE_ACTIVE);
    Home->Stop();
    EXPECT_EQ(Home->WaitForStop(std::chrono::milliseconds::zero()).GetType(),
              cppmicroservices::FrameworkEvent::FRAMEWORK_STOPPED);
    EXPECT_EQ(Home->GetState(), cppmicroservices::Bundle::STATE_RESOLVED);
    EXPECT_FALSE(Context);
    EXPECT_FALSE(Home->GetBundleContext());
    EXPECT_FALSE(reference);
    EXPECT_EQ(failureText([&] { Context.GetServiceReferences<Greeter>(); }), kInvalid);
    EXPECT_EQ(failureText([&] { Context.GetServiceReference<Greeter>(); }), kInvalid);
    EXPECT_EQ(failureText([&] { Context.GetService(reference); }), kInvalid);
    EXPECT_EQ(failureText([&] { Context.GetServiceObjects(reference); }), kInvalid);
    EXPECT_EQ(failureText([&] { objects.GetService(); }), kInvalid);
    EXPECT_EQ(failureText([&] { static_cast<void>(Context.RegisterService<Greeter>(object)); }), kInvalid);
    EXPECT_THROW(registration.Unregister(), std::logic_error);
    EXPECT_EQ(object.use_count(), 2); // the registration and the references still name it
}

TEST_F(Registry, RestartedFrameworkHasANewContext) {
    static_cast<void>(Context.RegisterService<Greeter>(both("old")));
    Home->Stop();
    Home->Start();
    EXPECT_FALSE(Context);
    BundleContext fresh = Home->GetBundleContext();
    EXPECT_TRUE(fresh);
    EXPECT_TRUE(fresh != Context);
    EXPECT_TRUE(fresh.GetServiceReferences<Greeter>().empty());
}

TEST(Frameworks, ContextIsInvalidUntilTheStart) {
    Framework framework = FrameworkFactory().NewFramework();
    BundleContext early = framework.GetBundleContext();
    EXPECT_FALSE(early);
    EXPECT_EQ(failureText([&] { early.GetServiceReferences<Greeter>(); }), kInvalid);
    EXPECT_TRUE(early == BundleContext());
    framework.Init();
    EXPECT_EQ(framework.GetState(), cppmicroservices::Bundle::STATE_STARTING);
    BundleContext ready = framework.GetBundleContext();
    EXPECT_TRUE(ready);
    framework.Start();
    EXPECT_TRUE(framework.GetBundleContext() == ready);
    EXPECT_EQ(framework.WaitForStop(std::chrono::milliseconds(1)).GetType(),
              cppmicroservices::FrameworkEvent::FRAMEWORK_WAIT_TIMEDOUT);
    ready = nullptr;
    EXPECT_FALSE(ready);
    EXPECT_TRUE(framework.GetBundleContext());
}

TEST(Frameworks, InvalidBundleAnswersNothing) {
    const cppmicroservices::Bundle none;
    EXPECT_FALSE(none);
    EXPECT_THROW(none.GetBundleContext(), std::invalid_argument);
    EXPECT_THROW(none.GetState(), std::invalid_argument);
}

TEST_F(Registry, ManyThreadsRegisterAndFind) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 200;
    std::atomic<int> found{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            BundleContext context = Home->GetBundleContext();
            for (int round = 0; round < kRounds; ++round) {
                auto registration = context.RegisterService<Greeter>(both("x"));
                const auto reference = context.GetServiceReference<Greeter>();
                // Another thread may take its service back between both steps.
                const auto service = context.GetService(reference);
                found += service == nullptr || service->greet() == "x" ? 1 : 0;
                registration.Unregister();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(found, kThreads * kRounds);
    EXPECT_THAT(greetings(), ElementsAre());
}

TEST(HostServices, ProcessHasOneFrameworkWithBothServices) {
    const auto framework = getFramework();
    ASSERT_NE(framework, nullptr);
    EXPECT_EQ(getFramework(), framework);
    BundleContext context = framework->GetBundleContext();
    EXPECT_EQ(context.GetServiceReferences<LibCurlInitializer>(LDAPFilter().ToString()).size(), 1U);
    EXPECT_EQ(context.GetServiceReferences<ProxySelector>(LDAPFilter().ToString()).size(), 1U);
    EXPECT_EQ(context.GetServiceReference<LibCurlInitializer>().GetInterfaceId(),
              "foundation::httpclient_core::libcurlinitializer::LibCurlInitializer");
}

TEST(HostServices, FrameworkCanBeReplacedAndComesBack) {
    const auto own = getFramework();
    {
        const FrameworkReplacement none(nullptr);
        EXPECT_EQ(getFramework(), nullptr);
    }
    EXPECT_EQ(getFramework(), own);
    {
        const auto empty = makeEmptyFramework();
        const FrameworkReplacement replacement(empty);
        EXPECT_EQ(getFramework(), empty);
        EXPECT_TRUE(empty->GetBundleContext().GetServiceReferences<LibCurlInitializer>().empty());
    }
    EXPECT_EQ(getFramework(), own);
}

TEST(HostServices, ScopeThatLookedForServicesKeepsLibcurl) {
    auto scope = std::make_shared<vantik::detail::Scope>();
    BundleContext context = getFramework()->GetBundleContext();
    const std::weak_ptr<LibCurlInitializer> curl =
        context.GetService(context.GetServiceReference<LibCurlInitializer>());
    const long before = curl.use_count();
    {
        const vantik::detail::ScopeEntry entry(scope);
        getFramework();
        getFramework();
    }
    EXPECT_EQ(curl.use_count(), before + 1);
    scope.reset();
    EXPECT_EQ(curl.use_count(), before);
}
