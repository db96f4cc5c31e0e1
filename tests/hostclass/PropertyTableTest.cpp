#include "hostclass/PropertyTable.h"

#include "hostclass/ClassRegistration.h"
#include "tests/hostclass/ClassFixture.h"
#include "tests/hostclass/RecordingClass.h"

#include <string>
#include <tuple>
#include <vector>

namespace {

class PropertyTable : public ClassFixture {};

// Name, type word, attribute word, description, can be set, has a releaser.
using Row = std::tuple<std::string, std::string, std::uint32_t, std::string, bool, bool>;

// clang-format off
const std::vector<Row> kExpected = {
    {"URL",                   "unicodeString",  3022,  "string for URL",                             true,  false},
    {"CertificateFilename",   "unicodeString",  3022,  "string for CertificateFilename",             true,  false},
    {"ContentType",           "unicodeString",  3022,  "string for ContentType",                     true,  false},
    {"ContentEncoding",       "unicodeString",  3022,  "string for ContentEncoding",                 true,  false},
    {"ProxyUsername",         "unicodeString",  3022,  "string for ProxyUsername",                   true,  false},
    {"ProxyPassword",         "unicodeString",  3022,  "string for ProxyPassword",                   true,  false},
    {"Username",              "unicodeString",  3022,  "string for Username",                        true,  false},
    {"Password",              "unicodeString",  3022,  "string for Password",                        true,  false},
    {"ResponseCode",          "double scalar",  3022,  "double scalar for ResponseCode",             true,  false},
    {"RedirectURL",           "unicodeString",  3022,  "string for RedirectURL",                     true,  false},
    {"RequestMethod",         "unicodeString",  3022,  "string for RequestMethod",                   true,  false},
    {"PostData",              "unicodeString",  3022,  "string for PostData",                        true,  false},
    {"Payload",               "uint8 vector",   3022,  "uint8 vector for Payload",                   true,  true},
    {"ResponsePayload",       "uint8 vector",   3022,  "uint8 vector for ResponsePayload",           true,  true},
    {"TimeoutInMilliseconds", "double vector",  3022,  "double vector for TimeoutInMilliseconds",    true,  false},
    {"Sent",                  "logical scalar", 10272, "logical scalar for Sent",                    false, false},
    {"VerifyServerName",      "logical scalar", 10272, "logical scalar for VerifyServerName",        true,  false},
    {"Decode",                "logical scalar", 3022,  "logical scalar for Decode",                  true,  false},
    {"ProviderBufferSize",    "uint64 scalar",  3022,  "uint64 scalar for ProviderBufferSize",       true,  false},
    {"Chunked",               "logical scalar", 3022,  "logical scalar for Chunked",                 true,  false},
    {"Debug",                 "int32 scalar",   3022,  "int32 scalar for Debug",                     true,  false},
    {"ProgressReporter",      "any",            3022,  "vantik.net.http.internal.ProgressReporter",  true,  false},
    {"Provider",              "any",            3022,  "vantik.net.http.io.ContentProvider",         true,  false},
    {"Consumer",              "any",            3022,  "vantik.net.http.io.ContentConsumer",         true,  false},
};
// clang-format on

} // namespace

TEST_F(PropertyTable, RowsStandInTheOrderOfRegistration) {
    std::vector<Row> rows;
    for (const auto& table : {valueProperties(), objectProperties()}) {
        for (const PropertyRow& row : table) {
            const auto [settable, released] = std::visit(
                [](const auto& accessors) {
                    EXPECT_NE(accessors.Getter, nullptr);
                    return std::pair(accessors.Setter != nullptr, accessors.Releaser != nullptr);
                },
                row.Access);
            rows.emplace_back(row.Name, row.TypeWord, row.Attributes, row.Description, settable, released);
        }
    }
    EXPECT_THAT(rows, testing::ElementsAreArray(kExpected));
    EXPECT_EQ(valueProperties().size(), 21u);
}

TEST_F(PropertyTable, NativeTypesFitTheTypeWords) {
    for (const auto& table : {valueProperties(), objectProperties()}) {
        for (const PropertyRow& row : table) {
            const std::string word = row.TypeWord;
            const bool fits = word == "unicodeString"    ? std::holds_alternative<Accessors<Text>>(row.Access)
                              : word == "double scalar"  ? std::holds_alternative<Accessors<double>>(row.Access)
                              : word == "logical scalar" ? std::holds_alternative<Accessors<bool>>(row.Access)
                              : word == "int32 scalar"   ? std::holds_alternative<Accessors<int>>(row.Access)
                              : word == "uint64 scalar"
                                  ? std::holds_alternative<Accessors<unsigned long long>>(row.Access)
                                  : std::holds_alternative<Accessors<vxArray_tag*>>(row.Access);
            EXPECT_TRUE(fits) << row.Name;
        }
    }
}

TEST_F(PropertyTable, EachRowBecomesOneProperty) {
    RecordingClass definition(vcos::internal::makeInterned("a.b.C"));
    HTTPConnectionAdapterClassInfo().defineClass(definition);
    std::vector<Row> properties;
    ASSERT_EQ(definition.Validated.size(), definition.Properties.size());
    for (std::size_t i = 0; i < definition.Properties.size(); ++i) {
        const vcos::COSPropT& property = *definition.Properties[i];
        EXPECT_EQ(definition.Validated[i].first, *property.getName());
        EXPECT_TRUE(definition.GotValidatedType[i]);
        EXPECT_EQ(property.getGetAccess(), vcos::MemberAccess::Public);
        EXPECT_EQ(property.getSetAccess(), vcos::MemberAccess::Public);
        properties.emplace_back(*property.getName(), definition.Validated[i].second, property.getAttributes(),
                                property.getDescription(), property.hasSetter(), std::get<5>(kExpected.at(i)));
    }
    EXPECT_THAT(properties, testing::ElementsAreArray(kExpected));
}

TEST_F(PropertyTable, HostSeesTheSameProperties) {
    const vantik::ClassDescription description = host().describe(kAdapterClass);
    std::vector<Row> properties;
    for (std::size_t i = 0; i < description.Properties.size(); ++i) {
        const vantik::PropertyDescription& property = description.Properties[i];
        properties.emplace_back(property.Name, property.Type, property.Attributes, property.Description,
                                property.Settable, std::get<5>(kExpected.at(i)));
    }
    EXPECT_THAT(properties, testing::ElementsAreArray(kExpected));
}

TEST_F(PropertyTable, SentCannotBeSet) {
    const vantik::Object adapter = makeAdapter();
    EXPECT_THROW(adapter.set("Sent", vantik::Array(true)), vantik::Failure);
    EXPECT_FALSE(adapter.get("Sent").truth());
}
