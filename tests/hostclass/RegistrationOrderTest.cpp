// What registering asks of the host, call by call: the packages, the class, and everything that defines it, in order.
#include "host/Messages.h"
#include "hostclass/ClassRegistration.h"
#include "tests/hostclass/ClassFixture.h"
#include "tests/hostclass/HostCalls.h"
#include "tests/hostclass/RecordingClass.h"
#include "tests/support/host/FailureText.h"

#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

using Texts = std::vector<std::string>;

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

    HostCalls Calls;
    std::map<std::string, std::unique_ptr<Package>> Packages;
};

class RegistrationOrder : public ScopeFixture {};

const std::string kClassAdded = "class HTTPConnectionAdapter 0 2 into vantik.internal.webservices";

} // namespace

TEST_F(RegistrationOrder, MissingPackagesAreMadeFromTheRootOn) {
    PlayedPackages host({});
    registerAdapterClass();
    EXPECT_THAT(host.Log,
                ElementsAre("find vantik", "add vantik to the root", "find vantik", "find vantik.internal",
                            "add internal to vantik", "find vantik.internal", "find vantik.internal.webservices",
                            "add webservices to vantik.internal", "find vantik.internal.webservices", kClassAdded));
}

TEST_F(RegistrationOrder, PackagesThatAreThereAreReused) {
    PlayedPackages host({"vantik", "vantik.internal", "vantik.internal.webservices"});
    registerAdapterClass();
    EXPECT_THAT(host.Log,
                ElementsAre("find vantik", "find vantik.internal", "find vantik.internal.webservices", kClassAdded));
}

TEST_F(RegistrationOrder, OnlyTheMissingPackagesAreMade) {
    PlayedPackages host({"vantik", "vantik.internal"});
    registerAdapterClass();
    EXPECT_THAT(host.Log,
                ElementsAre("find vantik", "find vantik.internal", "find vantik.internal.webservices",
                            "add webservices to vantik.internal", "find vantik.internal.webservices", kClassAdded));
}

TEST_F(RegistrationOrder, RootThatTheHostDoesNotKeepIsReportedAndNothingIsAddedToIt) {
    PlayedPackages host({});
    host.KeepsWhatIsAdded = false;
    EXPECT_EQ(testsupport::failureText([] { registerAdapterClass(); }),
              testsupport::internalError("Package vantik.internal.webservices not found"));
    EXPECT_THAT(host.Log, ElementsAre("find vantik", "add vantik to the root", "find vantik"));
}

namespace {

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

} // namespace

TEST_F(RegistrationOrder, ClassIsDefinedInThisOrder) {
    RecordingClass definition(vcos::internal::makeInterned("a.b.C"));
    std::map<std::string, LoadedClass> classes;
    for (const char* name : {kReporterName, kProviderName, kConsumerName}) {
        classes.emplace(std::piecewise_construct, std::forward_as_tuple(name),
                        std::forward_as_tuple(name, definition.Order));
    }
    HostCalls calls;
    calls.OnGetClass = [&](const std::string& name) { return &classes.at(name); };
    HTTPConnectionAdapterClassInfo().defineClass(definition);
    EXPECT_THAT(definition.Order, ElementsAreArray({
                                      "URL: unicodeString",
                                      "CertificateFilename: unicodeString",
                                      "ContentType: unicodeString",
                                      "ContentEncoding: unicodeString",
                                      "ProxyUsername: unicodeString",
                                      "ProxyPassword: unicodeString",
                                      "Username: unicodeString",
                                      "Password: unicodeString",
                                      "ResponseCode: double scalar",
                                      "RedirectURL: unicodeString",
                                      "RequestMethod: unicodeString",
                                      "PostData: unicodeString",
                                      "Payload: uint8 vector",
                                      "ResponsePayload: uint8 vector",
                                      "TimeoutInMilliseconds: double vector",
                                      "Sent: logical scalar",
                                      "VerifyServerName: logical scalar",
                                      "Decode: logical scalar",
                                      "ProviderBufferSize: uint64 scalar",
                                      "Chunked: logical scalar",
                                      "Debug: int32 scalar",
                                      "load vantik.net.http.internal.ProgressReporter fully",
                                      "ProgressReporter: any",
                                      "load vantik.net.http.io.ContentProvider fully",
                                      "Provider: any",
                                      "load vantik.net.http.io.ContentConsumer fully",
                                      "Consumer: any",
                                      "HTTPConnectionAdapter()",
                                      "openConnection()",
                                      "openProxyConnection()",
                                      "closeConnection()",
                                      "copyContentToByteArray()",
                                      "copyContentToFile()",
                                      "setRequestProperty()",
                                      "setFields()",
                                      "removeField()",
                                      "getRequestFields()",
                                      "getRequestURI()",
                                      "getRequestMethod()",
                                      "getResponseFields()",
                                      "getResponseField()",
                                      "getRequestLine()",
                                      "getStatusLine()",
                                      "setAuthenticationSchemes()",
                                      "closeAllConnections()",
                                  }));
}

TEST_F(RegistrationOrder, MissingHostClassIsNamedAndStopsTheDefinitionThere) {
    struct Row {
        const char* Missing;
        std::size_t PropertiesBefore;
        const char* LastAdded;
    };
    for (const Row& row : {Row{kReporterName, 21, "Debug"}, Row{kProviderName, 22, "ProgressReporter"},
                           Row{kConsumerName, 23, "Provider"}}) {
        RecordingClass definition(vcos::internal::makeInterned("a.b.C"));
        HostCalls calls;
        LoadedClass other("other", definition.Order);
        calls.OnGetClass = [&](const std::string& name) { return name == row.Missing ? nullptr : &other; };
        EXPECT_EQ(testsupport::failureText([&] { HTTPConnectionAdapterClassInfo().defineClass(definition); }),
                  "VANTIK:legacy_two_part:undefinedVarOrClass[N:" + std::string(row.Missing) + "]");
        ASSERT_EQ(definition.Properties.size(), row.PropertiesBefore);
        EXPECT_EQ(*definition.Properties.back()->getName(), row.LastAdded);
        EXPECT_TRUE(definition.Methods.empty());
    }
}

TEST_F(RegistrationOrder, EachMissingHostClassLeavesTheScopeWithoutTheClassUntilItIsThere) {
    for (const char* missing : {kReporterName, kProviderName, kConsumerName}) {
        ASSERT_TRUE(scope().Classes.removeClass(missing));
        EXPECT_EQ(testsupport::failureText([] { VKInitialize_netrove(); }),
                  "VANTIK:legacy_two_part:undefinedVarOrClass[N:" + std::string(missing) + "]");
        EXPECT_EQ(vcos::COSClass::getClass(vcos::internal::makeInterned(kAdapterClass)), nullptr);
        vantik::HostClass(missing).defineIn(host());
    }
    VKInitialize_netrove();
    EXPECT_NE(vcos::COSClass::getClass(vcos::internal::makeInterned(kAdapterClass)), nullptr);
}
