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
#include <tuple>
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
        Calls.OnGetNamespace = [this](const std::string& name) {
            Log.push_back("find " + name);
            const auto found = Packages.find(name);
            return found == Packages.end() ? nullptr : found->second.get();
        };
        Calls.OnAddNamespace = [this](vcos::COSNamespaceInfo* description) { add("", description); };
    }

    Texts Log;
    bool KeepsWhatIsAdded = true;
    HostCalls Calls;

private:
    class Package final : public vcos::COSPackage {
    public:
        Package(PlayedPackages& owner, std::string name) : Owner(owner), Name(std::move(name)) {}
        void addInnerNamespace(vcos::COSNamespaceInfo* description) override { Owner.add(Name, description); }
        void addClass(vcos::COSClassInfo* description, int access, int kind) override {
            const std::unique_ptr<vcos::COSClassInfo> owned(description);
            Owner.Log.push_back("class " + (owned ? owned->getName() : "(null)") + " " + std::to_string(access) + " " +
                                std::to_string(kind) + " into " + Name);
        }
        std::string getFullName() const override { return Name; }

    private:
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

// A host class that notes that it is made usable.
class LoadedClass final : public vcos::COSClass {
public:
    LoadedClass(std::string name, Texts& log) : Name(std::move(name)), Log(log) {}
    void load(bool fully) override { Log.push_back("load " + Name + (fully ? " fully" : " in part")); }
    vcos::InternedName getFullName() const override { return &Name; }
    vcos::COSDataTypePtr validatePropertyType(vcos::InternedName, vcos::InternedName) override { return nullptr; }
    void addProperty(vcos::COSPropT*) override {}
    void addMethod(vcos::COSMethodInfo*) override {}

private:
    std::string Name;
    Texts& Log;
};

constexpr const char* kReporterName = "vantik.net.http.internal.ProgressReporter";
constexpr const char* kProviderName = "vantik.net.http.io.ContentProvider";
constexpr const char* kConsumerName = "vantik.net.http.io.ContentConsumer";

class Registration : public ScopeFixture {
protected:
    RecordingClass Definition{vcos::internal::makeInterned("a.b.C")};
};

class ClassInfo : public ClassFixture {};

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
        PlayedPackages host(known);
        registerAdapterClass();
        log.push_back("class HTTPConnectionAdapter 0 2 into vantik.internal.webservices");
        EXPECT_EQ(host.Log, log);
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
    std::map<std::string, LoadedClass> classes;
    for (const char* name : {kReporterName, kProviderName, kConsumerName}) {
        classes.emplace(std::piecewise_construct, std::forward_as_tuple(name),
                        std::forward_as_tuple(name, Definition.Order));
    }
    HostCalls calls;
    calls.OnGetClass = [&](const std::string& name) { return &classes.at(name); };
    HTTPConnectionAdapterClassInfo().defineClass(Definition);
    ASSERT_EQ(Definition.Order.size(), kProperties + 3 + kMethods);
    const auto numbers = Definition.Order.begin() + 20;
    EXPECT_THAT(Texts(numbers, numbers + 9),
                ElementsAre("Debug: int32 scalar", "load vantik.net.http.internal.ProgressReporter fully",
                            "ProgressReporter: any", "load vantik.net.http.io.ContentProvider fully", "Provider: any",
                            "load vantik.net.http.io.ContentConsumer fully", "Consumer: any", "HTTPConnectionAdapter()",
                            "openConnection()"));
}

TEST_F(Registration, MissingHostClassIsNamedAndStopsTheDefinitionThere) {
    struct Row {
        const char* Missing;
        std::size_t PropertiesBefore;
        const char* LastAdded;
    };
    for (const Row& row : {Row{kReporterName, 21, "Debug"}, Row{kProviderName, 22, "ProgressReporter"},
                           Row{kConsumerName, 23, "Provider"}}) {
        const std::string failure = "VANTIK:legacy_two_part:undefinedVarOrClass[N:" + std::string(row.Missing) + "]";
        ASSERT_TRUE(scope().Classes.removeClass(row.Missing));
        RecordingClass definition(vcos::internal::makeInterned("a.b.C"));
        EXPECT_EQ(failureText([&] { HTTPConnectionAdapterClassInfo().defineClass(definition); }), failure);
        ASSERT_EQ(definition.Properties.size(), row.PropertiesBefore);
        EXPECT_EQ(*definition.Properties.back()->getName(), row.LastAdded);
        EXPECT_TRUE(definition.Methods.empty());
        // The scope goes without the class until the missing one is there.
        EXPECT_EQ(failureText([] { VKInitialize_netrove(); }), failure);
        EXPECT_EQ(registeredClass(), nullptr);
        vantik::HostClass(row.Missing).defineIn(host());
    }
    VKInitialize_netrove();
    EXPECT_NE(registeredClass(), nullptr);
}

TEST_F(Registration, PropertyWithoutMemoryRaisesAndKeepsThoseBeforeIt) {
    for (std::size_t failing = 1; failing <= kProperties; ++failing) {
        RecordingClass definition(vcos::internal::makeInterned("a.b.C"));
        HostCalls calls;
        calls.FailingPropertyBlock = static_cast<int>(failing);
        EXPECT_THROW(HTTPConnectionAdapterClassInfo().defineClass(definition), foundation::core::except::bad_alloc);
        EXPECT_EQ(definition.Validated.size(), failing);
        EXPECT_EQ(definition.Properties.size(), failing - 1);
        EXPECT_TRUE(definition.Methods.empty());
    }
}

TEST_F(Registration, MethodWithoutMemoryIsPassedOnAsNullAndTheOthersAreAdded) {
    for (std::size_t failing = 0; failing < kMethods; ++failing) {
        RecordingClass definition(vcos::internal::makeInterned("a.b.C"));
        HostCalls calls;
        calls.FailingMethodInfo = static_cast<int>(failing) + 1;
        HTTPConnectionAdapterClassInfo().defineClass(definition);
        ASSERT_EQ(definition.Methods.size(), kMethods);
        for (std::size_t i = 0; i < kMethods; ++i) {
            EXPECT_EQ(definition.Methods[i] == nullptr, i == failing) << i;
        }
    }
}

TEST_F(Registration, ClassWithoutMemoryIsPassedOnAsNull) {
    PlayedPackages host({"vantik", "vantik.internal", "vantik.internal.webservices"});
    host.Calls.FailingClassInfo = 1;
    registerAdapterClass();
    EXPECT_EQ(host.Log.back(), "class (null) 0 2 into vantik.internal.webservices");
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
    EXPECT_EQ(failureOf([&] { makeAdapter(); }).identifier(), "VANTIK:host:OutOfMemory");
    EXPECT_EQ(makeAdapter().get("RequestMethod").text(), "") << "the next one is good";
}

TEST_F(ClassInfo, ConstructorTakesTheModeAndNothingElse) {
    EXPECT_FALSE(native(makeAdapter()).Connection.Settings.HTTPOptionsMode);
    EXPECT_FALSE(native(makeAdapter(false)).Connection.Settings.HTTPOptionsMode);
    EXPECT_TRUE(native(makeAdapter(true)).Connection.Settings.HTTPOptionsMode);
    EXPECT_THROW(host().create(kAdapterClass, {vantik::Array(true), vantik::Array(true)}), vantik::Failure);
    EXPECT_THROW(host().create(kAdapterClass, {vantik::Array("yes")}), vantik::Failure);
}
