// The properties that hold arrays: bytes, timeouts, host objects.
#include "host/Messages.h"
#include "hostcalls/HostObjectCall.h"
#include "tests/hostclass/ClassFixture.h"
#include "tests/hostclass/HostCalls.h"
#include "tests/support/host/ScriptedObjects.h"

#include <rapidcheck/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vx = matrix::detail::noninlined::vx_array_api;
using vantik::Array;
using vantik::Object;

namespace {

using Bytes = std::vector<std::uint8_t>;
using Shape = std::vector<std::size_t>;

template <class Element>
Array matrixOf(const std::vector<Element>& elements, vxClassID classId, std::size_t rows, std::size_t columns) {
    HostArray array(vx::vxCreateNumericMatrix(rows, columns, classId, vxREAL));
    std::copy(elements.begin(), elements.end(), static_cast<Element*>(vx::vxGetData(array.get())));
    return Array::adopt(array.release());
}

// A row or a column of bytes, as a host may have them.
Array bytesAs(const Bytes& bytes, bool row) {
    return matrixOf(bytes, vxUINT8_CLASS, row ? 1 : bytes.size(), row ? bytes.size() : 1);
}

Bytes bytesIn(const Array& array) {
    const auto* data = reinterpret_cast<const std::uint8_t*>(array.bytes().data());
    return Bytes(data, data + array.size());
}

std::vector<std::uint64_t> bitsOf(const std::vector<double>& values) {
    std::vector<std::uint64_t> bits;
    std::ranges::transform(values, std::back_inserter(bits), [](double v) { return std::bit_cast<std::uint64_t>(v); });
    return bits;
}

class Contents : public AdapterFixture {
protected:
    std::string bytes(const char* property) { return std::string(Adapter.get(property).byteText()); }
};

class Timeouts : public AdapterFixture {};

} // namespace

RC_GTEST_FIXTURE_PROP(Contents, PayloadOfAnyBytesAndShapeComesBackAsAColumn, (Bytes first, Bytes second, bool row)) {
    for (const Bytes& bytes : {first, second}) {
        Adapter.set("Payload", bytesAs(bytes, row));
        RC_ASSERT(std::ranges::equal(settings().payload(), bytes));
        const Array read = Adapter.get("Payload");
        RC_ASSERT(read.className() == "uint8");
        RC_ASSERT(read.dimensions() == (Shape{bytes.size(), 1}));
        RC_ASSERT(bytesIn(read) == bytes);
    }
    Adapter.set("Payload", Array());
    RC_ASSERT(settings().payload().empty());
}

RC_GTEST_FIXTURE_PROP(Contents, PayloadSharesNothingWithTheHostsArray, (Bytes bytes)) {
    Array given = bytesAs(bytes, false);
    Adapter.set("Payload", given);
    Array read = Adapter.get("Payload");
    for (Array* array : {&given, &read}) {
        for (std::byte& byte : array->writableBytes()) {
            byte = ~byte;
        }
    }
    RC_ASSERT(std::ranges::equal(settings().payload(), bytes));
    RC_ASSERT(bytesIn(Adapter.get("Payload")) == bytes);
}

// A host may have matrices too; the declared word keeps them from programs only.
TEST_F(Contents, ShapeOfAByteMatrixIsIgnored) {
    const Array matrix = matrixOf<std::uint8_t>({0, 1, 2, 3, 4, 5}, vxUINT8_CLASS, 2, 3);
    for (const char* property : {"Payload", "ResponsePayload"}) {
        accessorsOf<vxArray_tag*>(property).Setter(native(), const_cast<vxArray_tag*>(matrix.handle()));
        EXPECT_EQ(bytesIn(Adapter.get(property)), (Bytes{0, 1, 2, 3, 4, 5})) << property;
    }
}

// Until when it stays: ContentMethodsTest.
RC_GTEST_FIXTURE_PROP(Contents, ResponsePayloadCollectsEverythingUntilItIsTaken,
                      (std::vector<Bytes> pieces, bool row)) {
    Bytes all;
    for (const Bytes& piece : pieces) {
        Adapter.set("ResponsePayload", bytesAs(piece, row));
        all.insert(all.end(), piece.begin(), piece.end());
        for (int read = 0; read < 2; ++read) {
            RC_ASSERT(bytesIn(Adapter.get("ResponsePayload")) == all);
        }
    }
    const Array taken = Adapter.call("copyContentToByteArray", {true});
    RC_ASSERT(taken.className() == "uint8");
    RC_ASSERT(taken.dimensions() == (Shape{all.size(), 1}));
    RC_ASSERT(bytesIn(taken) == all);
    RC_ASSERT(Adapter.get("ResponsePayload").dimensions() == (Shape{0, 1}));
}

TEST_F(Contents, NullResponsePayloadClearsTheRequestsContentOnly) {
    for (const auto& [given, payload] : {std::pair{Array(), ""}, // reaches the setter as null
                                         {Array::bytes(std::string_view()), "request"}}) {
        Adapter.set("Payload", Array::bytes("request"));
        native().emptyResponseBuffer();
        Adapter.set("ResponsePayload", Array::bytes("response"));
        Adapter.set("ResponsePayload", given);
        EXPECT_EQ(bytes("Payload"), payload);
        EXPECT_EQ(bytes("ResponsePayload"), "response");
    }
}

TEST_F(Timeouts, ThatAreLeftOutBecomeUnlimited) {
    using Values = std::vector<double>;
    const Values before = {1, 2, 3, 4};
    const std::pair<Array, Values> rows[] = {
        {Array::doubles({}), before}, // nothing happens
        {Array(""), before},
        {Array(), before},
        {Array(3000.0), {3000, kUnlimited, kUnlimited, kUnlimited}},
        {Array::doubles({5, 6, 7}), {5, 6, 7, kUnlimited}},
        {Array::doubles({5, 6, 7, 8, 9}), {5, 6, 7, 8}},
        {matrixOf<double>({5, 6}, vxDOUBLE_CLASS, 2, 1), {5, 6, kUnlimited, kUnlimited}},
    };
    for (const auto& [given, stored] : rows) {
        Adapter.set("TimeoutInMilliseconds", Array::doubles(before));
        Adapter.set("TimeoutInMilliseconds", given);
        const Array read = Adapter.get("TimeoutInMilliseconds");
        EXPECT_EQ(read.className(), "double");
        EXPECT_EQ(read.dimensions(), (Shape{1, 4}));
        EXPECT_EQ(read.doubles(), stored);
    }
}

TEST_F(Timeouts, AreKeptBitByBit) {
    const std::vector<double> odd = {std::nan(""), -kUnlimited, -0.0,       std::numeric_limits<double>::denorm_min(),
                                     -1.0,         0.0,         kUnlimited, std::numeric_limits<double>::max()};
    for (const std::vector<double>& given : {std::vector(odd.begin(), odd.begin() + 4), {odd.begin() + 4, odd.end()}}) {
        Adapter.set("TimeoutInMilliseconds", Array::doubles(given));
        EXPECT_EQ(bitsOf(Adapter.get("TimeoutInMilliseconds").doubles()), bitsOf(given));
    }
}

namespace {

struct Role {
    const char* Property;
    const char* ClassName;
    SharedHostArray RequestSettings::*Kept;
};

constexpr Role kRoles[] = {
    {"ProgressReporter", "vantik.net.http.internal.ProgressReporter", &RequestSettings::ProgressReporter},
    {"Provider", "vantik.net.http.io.ContentProvider", &RequestSettings::Provider},
    {"Consumer", "vantik.net.http.io.ContentConsumer", &RequestSettings::Consumer},
};

class HostObjects : public AdapterFixture, public testing::WithParamInterface<Role> {
protected:
    const std::string Property = GetParam().Property;

    const vxArray_tag* kept() { return (settings().*GetParam().Kept).get(); }
    Object makeObject(const std::string& property) {
        if (property == "Provider") {
            return testsupport::makeScriptedProvider(host()).object();
        }
        return property == "Consumer" ? testsupport::makeScriptedConsumer(host()).object()
                                      : testsupport::makeScriptedReporter(host()).object();
    }
};

INSTANTIATE_TEST_SUITE_P(Roles, HostObjects, testing::ValuesIn(kRoles),
                         [](const auto& info) { return std::string(info.param.Property); });

} // namespace

TEST_P(HostObjects, EmptyArrayOfAnyClassClears) {
    Array noObjects; // as a vector input declares it
    vantik::HostClass("test.Thing")
        .method("keep", {"test.Thing vector"}, {},
                [&](std::span<const Array> inputs) {
                    noObjects = inputs[1];
                    return std::vector<Array>();
                })
        .defineIn(host());
    host().create("test.Thing").call("keep", {Array()});
    const std::vector<std::string> noMembers;
    const std::pair<const char*, Array> rows[] = {
        {"", Array()},
        {"char", Array("")},
        {"uint8", Array::bytes(std::string_view())},
        {"double", Array::doubles({})},
        {"logical", Array::logicals({})},
        {"struct", Array::structures({"A"}, {})},
        {"vantik.net.http.AuthenticationScheme", Array::enumeration("vantik.net.http.AuthenticationScheme", noMembers)},
        {"test.Thing", noObjects},
    };
    for (const auto& [className, empty] : rows) {
        ASSERT_EQ(empty.className(), className);
        ASSERT_TRUE(empty.empty());
        Adapter.set(Property, makeObject(Property));
        ASSERT_NE(kept(), nullptr);
        Adapter.set(Property, empty);
        EXPECT_EQ(kept(), nullptr) << className;
        EXPECT_TRUE(Adapter.get(Property).empty()) << className;
    }
}

TEST_P(HostObjects, WrongClassIsNamedAndWhatWasThereStays) {
    EXPECT_THROW(Adapter.set(Property, Array(1.0)), vantik::Failure);
    EXPECT_EQ(kept(), nullptr);
    const Object right = makeObject(Property);
    Adapter.set(Property, right);
    const vxArray_tag* before = kept();
    std::vector<Array> wrong = {Array(1.0), Array("text"), Array(true), Array::structure({{"A", 1.0}})};
    for (const Role& other : kRoles) {
        if (other.Property != Property) {
            wrong.push_back(makeObject(other.Property).array());
        }
    }
    const std::string text = fl::i18n::to_string(fl::i18n::MessageCatalog::get_message(
        resource_core::BaseMsgID({std::string(GetParam().ClassName)}, "VANTIK:type", "PropSetClsMismatch"),
        fl::i18n::VkLocale::global()));
    for (const Array& value : wrong) {
        EXPECT_EQ(failureTextOf([&] { Adapter.set(Property, value); }), "VANTIK:legacy_two_part:UnableToConvert(" +
                                                                            value.className() + ", " +
                                                                            GetParam().ClassName + ", " + text + ")");
        EXPECT_EQ(kept(), before);
        EXPECT_EQ(Adapter.get(Property).className(), right.className());
    }
}

TEST_P(HostObjects, ObjectOutlivesTheCallsAndGoesWithItsProperty) {
    const std::size_t alive = vantik::Host::liveArrays();
    Adapter.set(Property, makeObject(Property));
    Adapter.call("closeConnection");
    EXPECT_TRUE(vx::vxIsA(kept(), GetParam().ClassName));
    EXPECT_EQ(accessorsOf<vxArray_tag*>(Property).Getter(native()), kept());
    EXPECT_GT(vantik::Host::liveArrays(), alive);
    Adapter.set(Property, Array());
    EXPECT_EQ(vantik::Host::liveArrays(), alive);
}

TEST_P(HostObjects, HostsOwnErrorRouteComesFirst) {
    Adapter.set(Property, makeObject(Property));
    const vxArray_tag* before = kept();
    const Array wrong(1.0);
    const auto set = [&] {
        accessorsOf<vxArray_tag*>(Property).Setter(native(), const_cast<vxArray_tag*>(wrong.handle()));
    };
    HostCalls calls;
    std::string reported;
    calls.OnLegacyError = [&](const foundation::core::except::IUserException& failure) {
        reported = failure.msg_id().fullName();
        throw std::logic_error("the host's own way");
    };
    EXPECT_EQ(testsupport::failureText(set), "std::logic_error[the host's own way]");
    EXPECT_EQ(reported, "VANTIK:legacy_two_part:UnableToConvert");
    EXPECT_EQ(kept(), before);
    // A route that comes back leaves the failure to the library.
    calls.OnLegacyError = [](const foundation::core::except::IUserException&) {};
    EXPECT_THROW(set(), foundation::core::except::IUserException);
    EXPECT_EQ(kept(), before);
}
