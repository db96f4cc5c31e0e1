// Memory that runs out while the class is registered or an object is made, and a once primitive that fails.
#include "host/Messages.h"
#include "hostclass/ClassRegistration.h"
#include "hostclass/MethodTable.h"
#include "tests/hostclass/ClassFixture.h"
#include "tests/hostclass/HostCalls.h"
#include "tests/hostclass/RecordingClass.h"

#include <csignal>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kProperties = 24;
constexpr std::size_t kMethods = 18; // the constructor among them

class AllocationFailure : public ScopeFixture {
protected:
    static vcos::COSClass* registeredClass() {
        return vcos::COSClass::getClass(vcos::internal::makeInterned(kAdapterClass));
    }
};

} // namespace

TEST_F(AllocationFailure, OfAPropertyRaisesAndKeepsThoseBeforeIt) {
    for (int failing = 1; failing <= static_cast<int>(kProperties); ++failing) {
        RecordingClass definition(vcos::internal::makeInterned("a.b.C"));
        HostCalls calls;
        calls.FailingPropertyBlock = failing;
        EXPECT_THROW(HTTPConnectionAdapterClassInfo().defineClass(definition), foundation::core::except::bad_alloc);
        EXPECT_EQ(definition.Validated.size(), static_cast<std::size_t>(failing));
        EXPECT_EQ(definition.Properties.size(), static_cast<std::size_t>(failing) - 1);
        EXPECT_TRUE(definition.Methods.empty());
    }
}

TEST_F(AllocationFailure, OfAPropertyLeavesALaterRegistrationFree) {
    {
        HostCalls calls;
        calls.FailingPropertyBlock = 5;
        EXPECT_THROW(VKInitialize_netrove(), foundation::core::except::bad_alloc);
    }
    EXPECT_EQ(registeredClass(), nullptr);
    VKInitialize_netrove();
    EXPECT_NE(registeredClass(), nullptr);
}

// The constructor is the first of them.
TEST_F(AllocationFailure, OfAMethodIsPassedOnAndTheOthersAreAdded) {
    for (int failing = 1; failing <= static_cast<int>(kMethods); ++failing) {
        RecordingClass definition(vcos::internal::makeInterned("a.b.C"));
        HostCalls calls;
        calls.FailingMethodInfo = failing;
        HTTPConnectionAdapterClassInfo().defineClass(definition);
        ASSERT_EQ(definition.Methods.size(), kMethods);
        for (std::size_t i = 0; i < kMethods; ++i) {
            EXPECT_EQ(definition.Methods[i] == nullptr, i + 1 == static_cast<std::size_t>(failing)) << i;
        }
    }
}

TEST_F(AllocationFailure, OfAMethodIsReportedByTheHost) {
    {
        HostCalls calls;
        calls.FailingMethodInfo = 3;
        EXPECT_THROW(VKInitialize_netrove(), foundation::core::except::bad_alloc);
    }
    EXPECT_EQ(registeredClass(), nullptr);
    VKInitialize_netrove();
    EXPECT_NE(registeredClass(), nullptr);
}

namespace {

// Takes a class and says what it was given.
class NotingPackage final : public vcos::COSPackage {
public:
    explicit NotingPackage(std::string name) : Name(std::move(name)) {}
    void addInnerNamespace(vcos::COSNamespaceInfo*) override {}
    void addClass(vcos::COSClassInfo* description, int, int) override { Given.push_back(description); }
    std::string getFullName() const override { return Name; }

    std::vector<vcos::COSClassInfo*> Given;

private:
    std::string Name;
};

} // namespace

TEST_F(AllocationFailure, OfTheClassIsPassedOn) {
    NotingPackage package("any");
    HostCalls calls;
    calls.OnGetNamespace = [&](const std::string&) { return &package; };
    calls.FailingClassInfo = 1;
    registerAdapterClass();
    EXPECT_THAT(package.Given, testing::ElementsAre(nullptr));
}

TEST_F(AllocationFailure, OfTheClassIsReportedByTheHost) {
    {
        HostCalls calls;
        calls.FailingClassInfo = 1;
        EXPECT_THROW(VKInitialize_netrove(), foundation::core::except::bad_alloc);
    }
    EXPECT_EQ(registeredClass(), nullptr);
    VKInitialize_netrove();
    EXPECT_NE(registeredClass(), nullptr);
}

TEST_F(AllocationFailure, OfAnInstanceGivesNullAndTheNextOneIsThere) {
    HTTPConnectionAdapterClassInfo info;
    HostCalls calls;
    calls.FailingInstance = 1;
    EXPECT_EQ(info.createInstance(), nullptr);
    void* instance = info.createInstance();
    EXPECT_NE(instance, nullptr);
    info.destroyInstance(instance);
}

TEST_F(AllocationFailure, OfAnInstanceFailsTheConstructionAndTheNextOneIsGood) {
    VKInitialize_netrove();
    {
        HostCalls calls;
        calls.FailingInstance = 1;
        EXPECT_EQ(failureOf([&] { host().create(kAdapterClass); }).identifier(), "VANTIK:host:OutOfMemory");
    }
    EXPECT_EQ(host().create(kAdapterClass).get("RequestMethod").text(), "");
}

// The once flag belongs to the process, so this runs in one of its own.
TEST_F(AllocationFailure, OnceOnlyPrimitiveThatFailsEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    scope().RegistersPerScope = false;
    EXPECT_EXIT(
        {
            HostCalls calls;
            calls.OncePrimitiveFails = true;
            VKInitialize_netrove();
        },
        testing::KilledBySignal(SIGABRT), "");
}
