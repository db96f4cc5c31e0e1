#include "hostclass/PropertyTable.h"

#include "hostclass/ClassRegistration.h"
#include "tests/hostclass/ClassFixture.h"
#include "tests/hostclass/RecordingClass.h"
#include "tests/support/host/ScriptedObjects.h"

#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

namespace {

class PropertyTable : public ClassFixture {};

// Name, type word, native type, attribute word, description, can be set, has a releaser.
using Row = std::tuple<std::string, std::string, std::string, std::uint32_t, std::string, bool, bool>;

// clang-format off
const std::vector<Row> kExpected = {
    {"URL",                   "unicodeString",  "text",   3022,  "string for URL",                             true,  false},
    {"CertificateFilename",   "unicodeString",  "text",   3022,  "string for CertificateFilename",             true,  false},
    {"ContentType",           "unicodeString",  "text",   3022,  "string for ContentType",                     true,  false},
    {"ContentEncoding",       "unicodeString",  "text",   3022,  "string for ContentEncoding",                 true,  false},
    {"ProxyUsername",         "unicodeString",  "text",   3022,  "string for ProxyUsername",                   true,  false},
    {"ProxyPassword",         "unicodeString",  "text",   3022,  "string for ProxyPassword",                   true,  false},
    {"Username",              "unicodeString",  "text",   3022,  "string for Username",                        true,  false},
    {"Password",              "unicodeString",  "text",   3022,  "string for Password",                        true,  false},
    {"ResponseCode",          "double scalar",  "double", 3022,  "double scalar for ResponseCode",             true,  false},
    {"RedirectURL",           "unicodeString",  "text",   3022,  "string for RedirectURL",                     true,  false},
    {"RequestMethod",         "unicodeString",  "text",   3022,  "string for RequestMethod",                   true,  false},
    {"PostData",              "unicodeString",  "text",   3022,  "string for PostData",                        true,  false},
    {"Payload",               "uint8 vector",   "array",  3022,  "uint8 vector for Payload",                   true,  true},
    {"ResponsePayload",       "uint8 vector",   "array",  3022,  "uint8 vector for ResponsePayload",           true,  true},
    {"TimeoutInMilliseconds", "double vector",  "array",  3022,  "double vector for TimeoutInMilliseconds",    true,  false},
    {"Sent",                  "logical scalar", "bool",   10272, "logical scalar for Sent",                    false, false},
    {"VerifyServerName",      "logical scalar", "bool",   10272, "logical scalar for VerifyServerName",        true,  false},
    {"Decode",                "logical scalar", "bool",   3022,  "logical scalar for Decode",                  true,  false},
    {"ProviderBufferSize",    "uint64 scalar",  "uint64", 3022,  "uint64 scalar for ProviderBufferSize",       true,  false},
    {"Chunked",               "logical scalar", "bool",   3022,  "logical scalar for Chunked",                 true,  false},
    {"Debug",                 "int32 scalar",   "int",    3022,  "int32 scalar for Debug",                     true,  false},
    {"ProgressReporter",      "any",            "array",  3022,  "vantik.net.http.internal.ProgressReporter",  true,  false},
    {"Provider",              "any",            "array",  3022,  "vantik.net.http.io.ContentProvider",         true,  false},
    {"Consumer",              "any",            "array",  3022,  "vantik.net.http.io.ContentConsumer",         true,  false},
};
// clang-format on

// The native type of accessors.
template <class T>
constexpr const char* kTypeName = nullptr;
template <>
constexpr const char* kTypeName<Text> = "text";
template <>
constexpr const char* kTypeName<double> = "double";
template <>
constexpr const char* kTypeName<vxArray_tag*> = "array";
template <>
constexpr const char* kTypeName<bool> = "bool";
template <>
constexpr const char* kTypeName<unsigned long long> = "uint64";
template <>
constexpr const char* kTypeName<int> = "int";

// The native type of a property that was added.
template <class... Types>
std::string nativeTypeAmong(const vcos::COSPropT& property) {
    std::string name;
    ((dynamic_cast<const COSPropCPPT<HTTPConnectionAdapter, Types>*>(&property) != nullptr
          ? void(name += kTypeName<Types>)
          : void()),
     ...);
    return name;
}

std::string nativeType(const vcos::COSPropT& property) {
    return nativeTypeAmong<Text, double, vxArray_tag*, bool, unsigned long long, int>(property);
}

} // namespace

TEST_F(PropertyTable, RowsStandInTheOrderOfRegistration) {
    std::vector<Row> rows;
    for (const auto& table : {valueProperties(), objectProperties()}) {
        for (const PropertyRow& row : table) {
            std::visit(
                [&](const auto& accessors) {
                    using Value = typename std::remove_cvref_t<decltype(accessors)>::Value;
                    EXPECT_NE(accessors.Getter, nullptr);
                    rows.emplace_back(row.Name, row.TypeWord, kTypeName<Value>, row.Attributes, row.Description,
                                      accessors.Setter != nullptr, accessors.Releaser != nullptr);
                },
                row.Access);
        }
    }
    EXPECT_THAT(rows, testing::ElementsAreArray(kExpected));
    EXPECT_EQ(valueProperties().size(), 21u);
}

namespace {

// Reads a property as the class system does, and tells whether releasing its value releases an array.
bool releasesItsValue(vcos::COSPropT& property, vcos::COSInterface& object) {
    vcos::COSValue value;
    property.getPropertyValue(object, value);
    const std::size_t alive = vantik::Host::liveArrays();
    property.releasePropertyValue(object, value);
    if (vantik::Host::liveArrays() < alive) {
        return true;
    }
    if (*property.getName() == "TimeoutInMilliseconds") {
        matrix::destroyArray(ValueSlot<vxArray_tag*>::read(value)); // a new array each time, and the host's own
    }
    return false;
}

} // namespace

TEST_F(PropertyTable, EachRowBecomesOneProperty) {
    const vantik::Object adapter = makeAdapter();
    const vantik::Object provider = testsupport::makeScriptedProvider(host()).object();
    adapter.set("Provider", provider);
    const vcos::COSInterfacePtr object = omGetArrayElement(adapter.array().handle(), 0);
    RecordingClass definition(vcos::internal::makeInterned(kAdapterClass));
    HTTPConnectionAdapterClassInfo().defineClass(definition);
    std::vector<Row> properties;
    ASSERT_EQ(definition.Validated.size(), definition.Properties.size());
    for (std::size_t i = 0; i < definition.Properties.size(); ++i) {
        vcos::COSPropT& property = *definition.Properties[i];
        EXPECT_EQ(definition.Validated[i].first, *property.getName());
        EXPECT_TRUE(definition.GotValidatedType[i]);
        EXPECT_EQ(property.getGetAccess(), vcos::MemberAccess::Public);
        EXPECT_EQ(property.getSetAccess(), vcos::MemberAccess::Public);
        properties.emplace_back(*property.getName(), definition.Validated[i].second, nativeType(property),
                                property.getAttributes(), property.getDescription(), property.hasSetter(),
                                releasesItsValue(property, *object.get()));
    }
    EXPECT_THAT(properties, testing::ElementsAreArray(kExpected));
    EXPECT_EQ(adapter.get("Provider").className(), provider.className()) << "the adapter keeps what it gives";
}

TEST_F(PropertyTable, HostSeesTheSameProperties) {
    using Seen = std::tuple<std::string, std::string, std::uint32_t, std::string, bool>;
    std::vector<Seen> expected;
    for (const auto& [name, word, native, attributes, description, settable, released] : kExpected) {
        expected.emplace_back(name, word, attributes, description, settable);
    }
    std::vector<Seen> properties;
    for (const vantik::PropertyDescription& property : host().describe(kAdapterClass).Properties) {
        properties.emplace_back(property.Name, property.Type, property.Attributes, property.Description,
                                property.Settable);
    }
    EXPECT_THAT(properties, testing::ElementsAreArray(expected));
}

TEST_F(PropertyTable, SentCannotBeSet) {
    const vantik::Object adapter = makeAdapter();
    EXPECT_EQ(failureOf([&] { adapter.set("Sent", vantik::Array(true)); }).identifier(),
              "VANTIK:vcos:ReadOnlyProperty");
    EXPECT_FALSE(adapter.get("Sent").truth());
}
