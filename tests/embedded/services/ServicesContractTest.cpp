// What the service framework promises and the project relies on, by its documented interface alone: this file compiles
// and passes with the package CppMicroServices as well as with the subset in embedded/services/cppmicroservices/.
#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/FrameworkFactory.h>
#include <cppmicroservices/LDAPFilter.h>
#include <cppmicroservices/ServiceObjects.h>
#include <cppmicroservices/ServiceReference.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace sample {

struct Greeter {
    virtual ~Greeter() = default;
    virtual std::string greet() const = 0;
};
struct Counter {
    virtual ~Counter() = default;
    virtual int count() const = 0;
};
struct Nameless {
    virtual ~Nameless() = default;
};

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

using namespace cppmicroservices;
using sample::Both;
using sample::Counter;
using sample::Greeter;
using sample::Nameless;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::chrono::milliseconds kForEver{0};

std::shared_ptr<Both> both(const std::string& text, int number = 0) {
    return std::make_shared<Both>(text, number);
}

class ServicesContract : public testing::Test {
protected:
    ServicesContract() {
        Home.Start();
        Context = Home.GetBundleContext();
    }
    ~ServicesContract() override {
        Home.Stop();
        Home.WaitForStop(kForEver);
    }

    std::vector<std::string> greetings(const std::string& filter = {}) {
        std::vector<std::string> result;
        for (const auto& reference : Context.GetServiceReferences<Greeter>(filter)) {
            result.push_back(Context.GetService(reference)->greet());
        }
        return result;
    }

    Framework Home = FrameworkFactory().NewFramework();
    BundleContext Context;
};

} // namespace

TEST_F(ServicesContract, ElderServiceIsFoundFirstAndAReferenceThatNamesNothingIsRefused) {
    EXPECT_THAT(greetings(), IsEmpty());
    const ServiceReference<Greeter> found = Context.GetServiceReference<Greeter>();
    for (const auto& none : {found, ServiceReference<Greeter>()}) {
        EXPECT_FALSE(none);
        EXPECT_THROW(Context.GetService(none), std::invalid_argument);
        EXPECT_THROW(Context.GetServiceObjects(none), std::invalid_argument);
    }
    const auto first = Context.RegisterService<Greeter>(both("first"));
    const auto second = Context.RegisterService<Greeter>(both("second"));
    EXPECT_THAT(greetings(), ElementsAre("first", "second"));
    EXPECT_EQ(Context.GetService(Context.GetServiceReference<Greeter>())->greet(), "first");
    EXPECT_EQ(Context.GetServiceObjects(Context.GetServiceReference<Greeter>()).GetService()->greet(), "first");
}

TEST_F(ServicesContract, ServiceIsFoundByTheNameOfItsInterface) {
    EXPECT_EQ(us_service_interface_iid<Greeter>(), "sample.Greeter") << "as declared";
    EXPECT_EQ(us_service_interface_iid<Counter>(), "sample::Counter") << "that of the type";
    const auto object = both("hello", 42);
    const auto registration = Context.RegisterService<Counter>(object);
    EXPECT_THAT(greetings(), IsEmpty());
    EXPECT_EQ(Context.GetService(Context.GetServiceReference<Counter>())->count(), 42);
    EXPECT_EQ(Context.GetService(Context.GetServiceReference<Counter>()).get(), object.get());
}

TEST_F(ServicesContract, UnregisteredServiceIsGone) {
    auto registration = Context.RegisterService<Greeter>(both("gone"));
    const auto reference = Context.GetServiceReference<Greeter>();
    const auto objects = Context.GetServiceObjects(reference);
    const auto held = Context.GetService(reference);
    registration.Unregister();
    EXPECT_THAT(greetings(), IsEmpty());
    EXPECT_FALSE(reference);
    EXPECT_THROW(Context.GetService(reference), std::invalid_argument);
    EXPECT_THROW(Context.GetServiceObjects(reference), std::invalid_argument);
    EXPECT_EQ(objects.GetService(), nullptr);
    EXPECT_EQ(held->greet(), "gone"); // who has the object keeps it
    EXPECT_THROW(registration.Unregister(), std::logic_error);
}

TEST_F(ServicesContract, ServiceOutlivesItsRegistration) {
    { const auto registration = Context.RegisterService<Greeter>(both("stays")); }
    auto registration = Context.RegisterService<Greeter>(both("stays too"));
    registration = nullptr;
    EXPECT_THAT(greetings(), ElementsAre("stays", "stays too"));
    EXPECT_THROW(registration.Unregister(), std::logic_error);
}

TEST_F(ServicesContract, RegistrationNeedsAnObjectAndAnInterfaceWithAName) {
    EXPECT_THROW(static_cast<void>(Context.RegisterService<Greeter>(std::shared_ptr<Both>())), std::invalid_argument);
    EXPECT_THROW(static_cast<void>(Context.RegisterService<Nameless>(std::make_shared<Nameless>())),
                 std::invalid_argument);
    EXPECT_THROW(Context.GetServiceReference<Nameless>(), ServiceException);
    try {
        Context.GetServiceReferences<Nameless>();
        ADD_FAILURE() << "found";
    } catch (const ServiceException& failure) {
        EXPECT_STREQ(failure.what(),
                     "The service interface class has no CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE macro");
    }
}

// Without a service of the interface a filter need not be read. The subset refuses every filter; the package
// applies it.
TEST_F(ServicesContract, FilterIsAppliedOrRefusedAndNeverIgnored) {
    EXPECT_EQ(LDAPFilter().ToString(), "");
    const auto registration = Context.RegisterService<Greeter>(both("x"));
    for (const char* filter : {"x", "(", "()", "(a=b", "(a=b)x", "(a>b)", "(&)"}) {
        EXPECT_THROW(Context.GetServiceReferences<Greeter>(filter), std::invalid_argument) << filter;
    }
    try {
        EXPECT_THAT(greetings("(service.colour=*)"), IsEmpty());
    } catch (const std::invalid_argument& refusal) {
        EXPECT_THAT(refusal.what(), testing::HasSubstr("(service.colour=*)"));
    }
}

TEST_F(ServicesContract, InvalidContextRefusesAll) {
    const auto registration = Context.RegisterService<Greeter>(both("x"));
    const auto reference = Context.GetServiceReference<Greeter>();
    BundleContext none;
    EXPECT_FALSE(none);
    EXPECT_FALSE(FrameworkFactory().NewFramework().GetBundleContext()) << "not started";
    EXPECT_THROW(static_cast<void>(none.RegisterService<Greeter>(both("x"))), std::runtime_error);
    EXPECT_THROW(none.GetServiceReferences<Greeter>(), std::runtime_error);
    EXPECT_THROW(none.GetServiceReference<Greeter>(), std::runtime_error);
    EXPECT_THROW(none.GetService(reference), std::runtime_error);
    EXPECT_THROW(none.GetServiceObjects(reference), std::runtime_error);
}

TEST_F(ServicesContract, StopInvalidatesContextsAndServicesAndARestartBeginsAnew) {
    auto registration = Context.RegisterService<Greeter>(both("x"));
    const auto reference = Context.GetServiceReference<Greeter>();
    const auto objects = Context.GetServiceObjects(reference);
    const auto held = Context.GetService(reference);
    const Framework copy = Home;
    EXPECT_EQ(Home.WaitForStop(std::chrono::milliseconds(1)).GetType(), FrameworkEvent::FRAMEWORK_WAIT_TIMEDOUT);
    Home.Stop();
    EXPECT_EQ(Home.WaitForStop(kForEver).GetType(), FrameworkEvent::FRAMEWORK_STOPPED);
    Home.Stop(); // once more changes nothing
    EXPECT_FALSE(copy.GetBundleContext());
    EXPECT_FALSE(reference);
    EXPECT_THROW(static_cast<void>(Context.RegisterService<Greeter>(both("y"))), std::runtime_error);
    EXPECT_THROW(Context.GetServiceReferences<Greeter>(), std::runtime_error);
    EXPECT_THROW(Context.GetServiceReference<Greeter>(), std::runtime_error);
    EXPECT_THROW(Context.GetService(reference), std::invalid_argument);
    EXPECT_THROW(Context.GetServiceObjects(reference), std::invalid_argument);
    EXPECT_EQ(objects.GetService(), nullptr);
    EXPECT_THROW(registration.Unregister(), std::logic_error);
    EXPECT_EQ(held->greet(), "x");
    Home.Start();
    EXPECT_FALSE(Context);
    Context = Home.GetBundleContext();
    EXPECT_TRUE(Context);
    EXPECT_THAT(greetings(), IsEmpty());
}

TEST_F(ServicesContract, ManyThreadsRegisterAndFind) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 200;
    std::atomic<int> found{0};
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            BundleContext context = Home.GetBundleContext();
            for (int round = 0; round < kRounds; ++round) {
                auto registration = context.RegisterService<Greeter>(both("x"));
                for (const auto& reference : context.GetServiceReferences<Greeter>()) {
                    try {
                        found += context.GetService(reference)->greet() == "x" ? 1 : 0;
                        break;
                    } catch (const std::invalid_argument&) {
                        // Another thread has taken this service back. The one of this thread is still to come.
                    }
                }
                registration.Unregister();
            }
        });
    }
    threads.clear(); // waits for them
    EXPECT_EQ(found, kThreads * kRounds);
    EXPECT_THAT(greetings(), IsEmpty());
}
