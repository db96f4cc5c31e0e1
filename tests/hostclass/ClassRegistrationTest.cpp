// What registering asks of the host, call by call: the packages, the class, everything that defines it, in order; and
// memory that runs out on the way.
#include "hostclass/ClassRegistration.h"

#include "host/Messages.h"
#include "tests/hostclass/ClassFixture.h"
#include "tests/hostclass/HostCalls.h"
#include "tests/hostclass/RecordingClass.h"

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using testing::ElementsAre;
using testsupport::failureText;

namespace {

using Texts = std::vector<std::string>;

constexpr std::size_t kProperties = 24;
constexpr std::size_t kMethods = 18; // the constructor among them

// A host's packages, played by the test.
class PlayedPackages {
public:
    explicit PlayedPackages(const Texts& known) {
        for (const std::string& name : known) {
            Packages.emplace(name, std::make_unique<Package>(*this, name));
        }
        Calls.OnGetNamespace = [this](vcos::InternedName name) {
            Log.push_back("find " + *name);
            const auto found = Packages.find(*name);
            return found == Packages.end() ? nullptr : found->second.get();
        };
        Calls.OnAddNamespace = [this](vcos::COSNamespaceInfo* description) { add("", description); };
    }

    Texts Log;
    bool KeepsWhatIsAdded = true;
    HostCalls Calls;

private:
    struct Package final : vcos::COSPackage {
        Package(PlayedPackages& owner, std::string name) : Owner(owner), Name(std::move(name)) {}
        void addInnerNamespace(vcos::COSNamespaceInfo* description) override { Owner.add(Name, description); }
        void addClass(vcos::COSClassInfo* description, int access, int kind) override {
            const std::unique_ptr<vcos::COSClassInfo> owned(description);
            Owner.Log.push_back("class " + (owned ? owned->getName() : "(null)") + " " + std::to_string(access) + " " +
                                std::to_string(kind) + " into " + Name);
        }
        std::string getFullName() const override { return Name; }

        PlayedPackages& Owner;
        std::string Name;
    };

    void add(const std::string& parent, vcos::COSNamespaceInfo* description) {
        const std::unique_ptr<vcos::COSNamespaceInfo> owned(description);
        Log.push_back("add " + owned->getName() + " to " + (parent.empty() ? "the root" : parent));
        const std::string name = parent.empty() ? owned->getName() : parent + "." + owned->getName();
        if (KeepsWhatIsAdded) {
            Packages.emplace(name, std::make_unique<Package>(*this, name));
        }
    }

    std::map<std::string, std::unique_ptr<Package>> Packages;
};

class Registration : public ScopeFixture {};
class ClassInfo : public ClassFixture {};

void defineIn(vcos::COSClass& definition) {
    HTTPConnectionAdapterClassInfo().defineClass(definition);
}

} // namespace

TEST_F(Registration, MakesThePackagesThatAreMissing) {
    const std::pair<Texts, Texts> rows[] = {
        {{},
         {"find vantik", "add vantik to the root", "find vantik", "find vantik.internal", "add internal to vantik",
          "find vantik.internal", "find vantik.internal.webservices", "add webservices to vantik.internal",
          "find vantik.internal.webservices"}},
        {{"vantik", "vantik.internal"},
         {"find vantik", "find vantik.internal", "find vantik.internal.webservices",
          "add webservices to vantik.internal", "find vantik.internal.webservices"}},
        {{"vantik", "vantik.internal", "vantik.internal.webservices"},
         {"find vantik", "find vantik.internal", "find vantik.internal.webservices"}},
    };
    for (auto [known, log] : rows) {
        for (const bool hasMemory : {true, false}) { // without it the class is passed on as null
            PlayedPackages host(known);
            host.Calls.FailingClassInfo = hasMemory ? 0 : 1;
            registerAdapterClass();
            ASSERT_FALSE(host.Log.empty());
            EXPECT_EQ(host.Log.back(), std::string("class ") + (hasMemory ? "HTTPConnectionAdapter" : "(null)") +
                                           " 0 2 into vantik.internal.webservices");
            host.Log.pop_back();
            EXPECT_EQ(host.Log, log);
        }
    }
}

TEST_F(Registration, RootThatTheHostDoesNotKeepIsReportedAndNothingIsAddedToIt) {
    PlayedPackages host({});
    host.KeepsWhatIsAdded = false;
    EXPECT_EQ(failureText([] { registerAdapterClass(); }),
              testsupport::internalError("Package vantik.internal.webservices not found"));
    EXPECT_THAT(host.Log, ElementsAre("find vantik", "add vantik to the root", "find vantik"));
    EXPECT_EQ(getChildPackage(nullptr, "internal"), nullptr);
}

// The names and types of the members, in order, are those of PropertyTableTest and MethodTableTest.
TEST_F(Registration, LoadsTheClassOfAnObjectPropertyBeforeThePropertyAndAddsMethodsLast) {
    RecordingClass definition("a.b.C");
    HostCalls calls;
    calls.OnGetClass = [&](vcos::InternedName name) {
        definition.Order.push_back(*name); // the definition stands for that class too
        return &definition;
    };
    defineIn(definition);
    ASSERT_EQ(definition.Order.size(), kProperties + 2 * 3 + kMethods);
    const auto numbers = definition.Order.begin() + 20;
    EXPECT_THAT(Texts(numbers, numbers + 12),
                ElementsAre("Debug: int32 scalar", "vantik.net.http.internal.ProgressReporter", "loaded fully",
                            "ProgressReporter: any", "vantik.net.http.io.ContentProvider", "loaded fully",
                            "Provider: any", "vantik.net.http.io.ContentConsumer", "loaded fully", "Consumer: any",
                            "HTTPConnectionAdapter()", "openConnection()"));
}

TEST_F(Registration, MissingHostClassIsNamedAndStopsTheDefinitionThere) {
    std::size_t propertiesBefore = kProperties - 3;
    for (const auto& [missing, lastAdded] : {std::pair{"vantik.net.http.internal.ProgressReporter", "Debug"},
                                             {"vantik.net.http.io.ContentProvider", "ProgressReporter"},
                                             {"vantik.net.http.io.ContentConsumer", "Provider"}}) {
        const std::string failure = "VANTIK:legacy_two_part:undefinedVarOrClass[N:" + std::string(missing) + "]";
        ASSERT_TRUE(scope().Classes.removeClass(missing));
        RecordingClass definition("a.b.C");
        EXPECT_EQ(failureText([&] { defineIn(definition); }), failure);
        ASSERT_EQ(definition.Properties.size(), propertiesBefore++);
        EXPECT_EQ(*definition.Properties.back()->getName(), lastAdded);
        EXPECT_TRUE(definition.Methods.empty());
        // The scope goes without the class until the missing one is there.
        EXPECT_EQ(failureText([] { VKInitialize_netrove(); }), failure);
        EXPECT_EQ(registeredClass(), nullptr);
        vantik::HostClass(missing).defineIn(host());
    }
    VKInitialize_netrove();
    EXPECT_NE(registeredClass(), nullptr);
}

TEST_F(Registration, PropertyWithoutMemoryRaisesAndKeepsThoseBeforeIt) {
    for (std::size_t failing = 1; failing <= kProperties; ++failing) {
        RecordingClass definition("a.b.C");
        HostCalls calls;
        calls.FailingPropertyBlock = static_cast<int>(failing);
        EXPECT_THROW(defineIn(definition), foundation::core::except::bad_alloc);
        EXPECT_EQ(definition.Validated.size(), failing);
        EXPECT_EQ(definition.Properties.size(), failing - 1);
        EXPECT_TRUE(definition.Methods.empty());
    }
}

TEST_F(Registration, MethodWithoutMemoryIsPassedOnAsNullAndTheOthersAreAdded) {
    for (std::size_t failing = 0; failing < kMethods; ++failing) {
        RecordingClass definition("a.b.C");
        HostCalls calls;
        calls.FailingMethodInfo = static_cast<int>(failing) + 1;
        defineIn(definition);
        ASSERT_EQ(definition.Methods.size(), kMethods);
        for (std::size_t i = 0; i < kMethods; ++i) {
            EXPECT_EQ(definition.Methods[i] == nullptr, i == failing) << i;
        }
    }
}

TEST_F(Registration, HostReportsMissingMemoryAndTheNextAttemptSucceeds) {
    for (const auto& [failing, which] : {std::pair{&HostCalls::FailingPropertyBlock, 5},
                                         {&HostCalls::FailingMethodInfo, 3},
                                         {&HostCalls::FailingClassInfo, 1}}) {
        {
            HostCalls calls;
            calls.*failing = which;
            EXPECT_THROW(VKInitialize_netrove(), foundation::core::except::bad_alloc);
        }
        EXPECT_EQ(registeredClass(), nullptr);
        VKInitialize_netrove();
        EXPECT_TRUE(scope().Classes.removeClass(kAdapterClass));
    }
}

TEST_F(ClassInfo, AnswersWhatTheClassSystemAsks) {
    const HTTPConnectionAdapterClassInfo info;
    EXPECT_EQ(info.getName(), "HTTPConnectionAdapter");
    EXPECT_TRUE(info.isConstructible());
    EXPECT_TRUE(info.isHandle());
    EXPECT_TRUE(info.isTransient());
}

TEST_F(ClassInfo, MakesAndDestroysInstancesAndReturnsNullWithoutMemory) {
    HTTPConnectionAdapterClassInfo info;
    HostCalls calls;
    calls.FailingInstance = 1;
    EXPECT_EQ(info.createInstance(), nullptr);
    void* instance = info.createInstance();
    ASSERT_NE(instance, nullptr);
    info.destroyInstance(instance);
    info.destroyInstance(nullptr);
    calls.FailingInstance = 1;
    EXPECT_EQ(failureOf([&] { makeAdapter({}); }).identifier(), "VANTIK:host:OutOfMemory");
    EXPECT_EQ(makeAdapter({}).get("RequestMethod").text(), "") << "the next one is good";
}

TEST_F(ClassInfo, ConstructorTakesTheModeAndNothingElse) {
    EXPECT_FALSE(native(makeAdapter({})).Connection.Settings.HTTPOptionsMode);
    EXPECT_FALSE(native(makeAdapter({false})).Connection.Settings.HTTPOptionsMode);
    EXPECT_TRUE(native(makeAdapter({true})).Connection.Settings.HTTPOptionsMode);
    EXPECT_THROW(makeAdapter({true, true}), vantik::Failure);
    EXPECT_THROW(makeAdapter({"yes"}), vantik::Failure);
}
