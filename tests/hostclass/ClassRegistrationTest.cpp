#include "hostclass/ClassRegistration.h"

#include "host/Messages.h"
#include "tests/hostclass/ClassFixture.h"
#include "tests/hostclass/RecordingClass.h"

#include <algorithm>
#include <string>
#include <vector>

namespace {

constexpr const char* kConsumerName = "vantik.net.http.io.ContentConsumer";

class Registration : public ScopeFixture {
protected:
    bool hasClass() {
        const std::vector<std::string> names = host().classNames();
        return std::ranges::find(names, kAdapterClass) != names.end();
    }
    static bool hasPackage(const char* name) {
        return vcos::COSPackage::getNamespace(vcos::internal::makeInterned(name)) != nullptr;
    }
};

} // namespace

TEST_F(Registration, MakesThePackagesAndTheClass) {
    EXPECT_FALSE(hasClass());
    VKInitialize_netrove();
    EXPECT_TRUE(hasPackage("vantik"));
    EXPECT_TRUE(hasPackage("vantik.internal"));
    EXPECT_TRUE(hasPackage("vantik.internal.webservices"));
    EXPECT_TRUE(hasClass());
}

TEST_F(Registration, PackagesAreReused) {
    vcos::COSPackage* first = getWebservicesPackage();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->getFullName(), "vantik.internal.webservices");
    EXPECT_EQ(getWebservicesPackage(), first);
}

TEST_F(Registration, ChildOfNoPackageIsNoPackage) {
    EXPECT_EQ(getChildPackage(nullptr, "internal"), nullptr);
}

TEST_F(Registration, ChildIsMadeUnderItsShortName) {
    vcos::COSPackage* root = vcos::COSPackage::getNamespace(vcos::internal::makeInterned("vantik"));
    ASSERT_NE(root, nullptr); // the host's own classes are in it
    vcos::COSPackage* child = getChildPackage(root, "fresh");
    ASSERT_NE(child, nullptr);
    EXPECT_EQ(child->getFullName(), "vantik.fresh");
    EXPECT_EQ(NetroveNamespace("fresh").getName(), "fresh");
}

TEST_F(Registration, MissingHostClassLeavesTheDefinitionUpToTheLastPropertyAdded) {
    ASSERT_TRUE(scope().Classes.removeClass(kConsumerName));
    RecordingClass definition(vcos::internal::makeInterned("a.b.C"));
    HTTPConnectionAdapterClassInfo info;
    EXPECT_THROW(info.defineClass(definition), foundation::core::except::IUserException);
    ASSERT_EQ(definition.Properties.size(), 23u);
    EXPECT_EQ(*definition.Properties.back()->getName(), "Provider");
    EXPECT_TRUE(definition.Methods.empty());
}

namespace {

class ClassInfo : public ClassFixture {};

} // namespace

TEST_F(ClassInfo, AnswersWhatTheClassSystemAsks) {
    const HTTPConnectionAdapterClassInfo info;
    EXPECT_EQ(info.getName(), "HTTPConnectionAdapter");
    EXPECT_TRUE(info.isConstructible());
    EXPECT_TRUE(info.isHandle());
    EXPECT_TRUE(info.isTransient());
}

TEST_F(ClassInfo, MakesAndDestroysInstances) {
    HTTPConnectionAdapterClassInfo info;
    void* instance = info.createInstance();
    ASSERT_NE(instance, nullptr);
    info.destroyInstance(instance);
    info.destroyInstance(nullptr);
}

TEST_F(ClassInfo, ConstructorInputBecomesTheMode) {
    EXPECT_FALSE(native(makeAdapter()).Connection.Settings.HTTPOptionsMode);
    EXPECT_FALSE(native(makeAdapter(false)).Connection.Settings.HTTPOptionsMode);
    EXPECT_TRUE(native(makeAdapter(true)).Connection.Settings.HTTPOptionsMode);
}

TEST_F(ClassInfo, ConstructorTakesNoMoreThanOneInput) {
    EXPECT_THROW(host().create(kAdapterClass, {vantik::Array(true), vantik::Array(true)}), vantik::Failure);
    EXPECT_THROW(host().create(kAdapterClass, {vantik::Array("yes")}), vantik::Failure);
}

TEST_F(ClassInfo, SecondObjectWhileAConnectionIsOpenIsRefused) {
    const vantik::Object first = makeAdapter();
    first.set("URL", "http://127.0.0.1:1/");
    first.call("openConnection");
    EXPECT_EQ(failureOf([&] { makeAdapter(); }).identifier(), "VANTIK:http:OnlyOneTransferAtATime");
    first.call("closeConnection");
    EXPECT_NO_THROW(makeAdapter());
}

TEST_F(ClassInfo, CopiesNameTheSameObject) {
    const vantik::Object adapter = makeAdapter();
    const vantik::Object copy = adapter;
    copy.set("Debug", vantik::Array(std::int32_t{0}));
    copy.set("Username", "me");
    EXPECT_EQ(adapter.get("Username").text(), "me");
    EXPECT_EQ(&native(copy), &native(adapter));
}
