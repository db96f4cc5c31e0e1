// The three properties that hold host objects: what clears them, what they refuse, and what stays then.
#include "host/Messages.h"
#include "hostcalls/HostObjectCall.h"
#include "tests/hostclass/ClassFixture.h"
#include "tests/hostclass/HostCalls.h"
#include "tests/support/host/FailureText.h"
#include "tests/support/host/ScriptedObjects.h"

#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace vx = matrix::detail::noninlined::vx_array_api;
using vantik::Array;
using vantik::Object;

namespace {

struct Role {
    const char* Property;
    const char* ClassName;
    SharedHostArray RequestSettings::*Kept;
};

void PrintTo(const Role& role, std::ostream* stream) { // for GoogleTest
    *stream << role.Property;
}

constexpr Role kRoles[] = {
    {"ProgressReporter", "vantik.net.http.internal.ProgressReporter", &RequestSettings::ProgressReporter},
    {"Provider", "vantik.net.http.io.ContentProvider", &RequestSettings::Provider},
    {"Consumer", "vantik.net.http.io.ContentConsumer", &RequestSettings::Consumer},
};

class HostObjects : public ClassFixture, public testing::WithParamInterface<Role> {
protected:
    Object Adapter = makeAdapter();

    const vxArray_tag* kept() { return (native(Adapter).Connection.Settings.*GetParam().Kept).get(); }
    Object makeObject(const std::string& property) {
        if (property == "Provider") {
            return testsupport::makeScriptedProvider(host()).object();
        }
        return property == "Consumer" ? testsupport::makeScriptedConsumer(host()).object()
                                      : testsupport::makeScriptedReporter(host()).object();
    }
};

// Keeps a copy of the array that it is called with.
class KeepInput final : public vcos::COSMethodBase {
public:
    KeepInput(vcos::InternedName className, Array& kept)
        : COSMethodBase(className, vcos::internal::makeInterned("keep"), vcos::MemberAccess::Public, nullptr),
          Kept(kept) {
        std::unique_ptr<vcos::COSMethodSignature> signature(vcos::COSMethodSignature::createMethodSignature());
        signature->addInputType(vcos::internal::makeInterned(*className + " scalar"));
        signature->addInputType(vcos::internal::makeInterned(*className + " vector"));
        setMethodSignature(signature.release());
    }
    void invoke(int&, vcos::COSValue*, int, const vcos::COSValue* inputs) override {
        HostArray copy(vx::vxCreateSharedDataCopy(ValueSlot<vxArray_tag*>::read(inputs[1])));
        vx::vxSetArrayScope(copy.get(), vxPERSISTENT_SCOPE);
        Kept = Array::adopt(copy.release());
    }

private:
    Array& Kept;
};

class KeepingClass final : public vcos::COSClassInfo {
public:
    explicit KeepingClass(Array& kept) : Kept(kept) {}
    std::string getName() const override { return "Keeping"; }
    bool isConstructible() const override { return true; }
    bool isHandle() const override { return true; }
    void defineClass(vcos::COSClass& definition) override {
        definition.addMethod(new KeepInput(definition.getFullName(), Kept));
    }
    void* createInstance() override { return this; }
    void destroyInstance(void*) override {}

private:
    Array& Kept;
};

// An array of no objects of a class that fits no role.
Array emptyObjects(vantik::Host& host) {
    Array kept;
    vcos::COSPackage::getNamespace(vcos::internal::makeInterned("vantik"))->addClass(new KeepingClass(kept), 0, 2);
    host.create("vantik.Keeping").call("keep", {Array()});
    return kept;
}

INSTANTIATE_TEST_SUITE_P(Roles, HostObjects, testing::ValuesIn(kRoles),
                         [](const auto& info) { return std::string(info.param.Property); });

} // namespace

TEST_P(HostObjects, EmptyArrayOfAnyClassClears) {
    const std::vector<std::string> noMembers;
    const std::vector<std::pair<std::string, Array>> rows = {
        {"", Array()},
        {"char", Array("")},
        {"uint8", Array::bytes(std::string_view())},
        {"double", Array::doubles({})},
        {"logical", Array::logicals({})},
        {"struct", Array::structures({"A"}, {})},
        {"vantik.net.http.AuthenticationScheme", Array::enumeration("vantik.net.http.AuthenticationScheme", noMembers)},
        {"vantik.Keeping", emptyObjects(host())},
    };
    for (const auto& [className, empty] : rows) {
        ASSERT_EQ(empty.className(), className);
        ASSERT_TRUE(empty.empty());
        Adapter.set(GetParam().Property, makeObject(GetParam().Property));
        ASSERT_NE(kept(), nullptr);
        Adapter.set(GetParam().Property, empty);
        EXPECT_EQ(kept(), nullptr) << className;
        EXPECT_TRUE(Adapter.get(GetParam().Property).empty()) << className;
    }
}

TEST_P(HostObjects, WrongClassIsNamedAndThePreviousObjectStays) {
    const Object right = makeObject(GetParam().Property);
    Adapter.set(GetParam().Property, right);
    const vxArray_tag* before = kept();
    std::vector<Array> wrong = {Array(1.0), Array("text"), Array(true), Array::structure({{"A", 1.0}})};
    for (const Role& other : kRoles) {
        if (other.ClassName != GetParam().ClassName) {
            wrong.push_back(makeObject(other.Property).array());
        }
    }
    for (const Array& value : wrong) {
        const vantik::Message failure = failureOf([&] { Adapter.set(GetParam().Property, value); });
        EXPECT_EQ(failure.identifier(), "VANTIK:legacy_two_part:UnableToConvert");
        ASSERT_EQ(failure.Arguments.size(), 3u);
        EXPECT_EQ(failure.Arguments[0], vantik::MessageArgument(value.className()));
        EXPECT_EQ(failure.Arguments[1], vantik::MessageArgument(std::string(GetParam().ClassName)));
        const std::string text = fl::i18n::to_string(fl::i18n::MessageCatalog::get_message(
            resource_core::BaseMsgID({std::string(GetParam().ClassName)}, "VANTIK:type", "PropSetClsMismatch"),
            fl::i18n::VkLocale::global()));
        EXPECT_EQ(failure.Arguments[2], vantik::MessageArgument(text));
        EXPECT_EQ(kept(), before);
        EXPECT_EQ(Adapter.get(GetParam().Property).className(), right.className());
    }
}

TEST_P(HostObjects, WrongClassOnAnEmptyPropertyLeavesItEmpty) {
    EXPECT_THROW(Adapter.set(GetParam().Property, Array(1.0)), vantik::Failure);
    EXPECT_EQ(kept(), nullptr);
}

TEST_P(HostObjects, ObjectOutlivesTheCallsAndGoesWithItsProperty) {
    const std::size_t alive = vantik::Host::liveArrays();
    Adapter.set(GetParam().Property, makeObject(GetParam().Property));
    Adapter.call("closeConnection");
    Adapter.get("Sent");
    EXPECT_TRUE(vx::vxIsA(kept(), GetParam().ClassName));
    EXPECT_GT(vantik::Host::liveArrays(), alive);
    Adapter.set(GetParam().Property, Array());
    EXPECT_EQ(vantik::Host::liveArrays(), alive);
}

TEST_P(HostObjects, HostsOwnErrorRouteComesFirst) {
    Adapter.set(GetParam().Property, makeObject(GetParam().Property));
    const vxArray_tag* before = kept();
    HostCalls calls;
    std::string reported;
    calls.OnLegacyError = [&](const foundation::core::except::IUserException& failure) {
        reported = failure.msg_id().fullName();
        throw std::logic_error("the host's own way");
    };
    const Array wrong(1.0);
    const auto& accessors = accessorsOf<vxArray_tag*>(GetParam().Property);
    EXPECT_EQ(
        testsupport::failureText([&] { accessors.Setter(native(Adapter), const_cast<vxArray_tag*>(wrong.handle())); }),
        "std::logic_error[the host's own way]");
    EXPECT_EQ(reported, "VANTIK:legacy_two_part:UnableToConvert");
    EXPECT_EQ(kept(), before);
    // A route that comes back leaves the failure to the library.
    calls.OnLegacyError = [](const foundation::core::except::IUserException&) {};
    EXPECT_THROW(accessors.Setter(native(Adapter), const_cast<vxArray_tag*>(wrong.handle())),
                 foundation::core::except::IUserException);
    EXPECT_EQ(kept(), before);
}
