// The rows of the table, and what the accessors do, through the class where the host can see it. Properties that send:
// tests/exchange/response/.
#include "hostclass/PropertyTable.h"

#include "errors/HTTPException.h"
#include "host/Messages.h"
#include "hostcalls/HostObjectCall.h"
#include "hostclass/ClassRegistration.h"
#include "tests/hostclass/ClassFixture.h"
#include "tests/hostclass/HostCalls.h"
#include "tests/hostclass/RecordingClass.h"
#include "tests/support/host/ScriptedObjects.h"

#include <rapidcheck/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

namespace vx = matrix::detail::noninlined::vx_array_api;
using vantik::Array;
using vantik::Object;

namespace {

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

constexpr const char* kTextProperties[] = {"URL",           "CertificateFilename", "ContentType", "ContentEncoding",
                                           "ProxyUsername", "ProxyPassword",       "Username",    "Password",
                                           "RedirectURL",   "RequestMethod",       "PostData"};

template <class T>
std::string nameIf(const vcos::COSPropT& property, const char* name) {
    return dynamic_cast<const COSPropCPPT<HTTPConnectionAdapter, T>*>(&property) != nullptr ? name : "";
}

std::string nativeType(const vcos::COSPropT& property) {
    return nameIf<Text>(property, "text") + nameIf<double>(property, "double") +
           nameIf<vxArray_tag*>(property, "array") + nameIf<bool>(property, "bool") +
           nameIf<unsigned long long>(property, "uint64") + nameIf<int>(property, "int");
}

// Reads a property as the class system does, and says whether releasing its value releases an array.
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

using Bytes = std::vector<std::uint8_t>;
using Dimensions = std::vector<std::size_t>;
using Doubles = std::vector<double>;

template <class Element>
Array matrixOf(const std::vector<Element>& elements, vxClassID classId, std::size_t rows, std::size_t columns) {
    HostArray array(vx::vxCreateNumericMatrix(rows, columns, classId, vxREAL));
    std::ranges::copy(elements, static_cast<Element*>(vx::vxGetData(array.get())));
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

class PropertyTable : public AdapterFixture {};

class Properties : public AdapterFixture {
protected:
    std::string text(const char* property) { return Adapter.get(property).text(); }
};

class Contents : public AdapterFixture {};
class Timeouts : public AdapterFixture {};

struct Role {
    const char* Property;
    const char* ClassName;
    SharedHostArray RequestSettings::*Kept;
    Object (*Make)(vantik::Host& host);
};

constexpr Role kRoles[] = {
    {"ProgressReporter", "vantik.net.http.internal.ProgressReporter", &RequestSettings::ProgressReporter,
     [](vantik::Host& host) { return testsupport::makeScriptedReporter(host).object(); }},
    {"Provider", "vantik.net.http.io.ContentProvider", &RequestSettings::Provider,
     [](vantik::Host& host) { return testsupport::makeScriptedProvider(host).object(); }},
    {"Consumer", "vantik.net.http.io.ContentConsumer", &RequestSettings::Consumer,
     [](vantik::Host& host) { return testsupport::makeScriptedConsumer(host).object(); }},
};

class HostObjects : public AdapterFixture, public testing::WithParamInterface<Role> {
protected:
    const std::string Property = GetParam().Property;

    const vxArray_tag* kept() { return (settings().*GetParam().Kept).get(); }
    Object makeObject() { return GetParam().Make(host()); }
};

INSTANTIATE_TEST_SUITE_P(Roles, HostObjects, testing::ValuesIn(kRoles),
                         [](const auto& info) { return std::string(info.param.Property); });

} // namespace

TEST_F(PropertyTable, EachRowBecomesOnePropertyInThisOrder) {
    const vantik::Object provider = testsupport::makeScriptedProvider(host()).object();
    Adapter.set("Provider", provider);
    const vcos::COSInterfacePtr object = omGetArrayElement(Adapter.array().handle(), 0);
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
    EXPECT_EQ(Adapter.get("Provider").className(), provider.className()) << "the adapter keeps what it hands out";
}

TEST_F(PropertyTable, HostSeesTheSameProperties) {
    const auto properties = host().describe(kAdapterClass).Properties;
    ASSERT_EQ(properties.size(), kExpected.size());
    for (std::size_t i = 0; i < properties.size(); ++i) {
        const auto& [name, word, native, attributes, description, settable, released] = kExpected[i];
        const vantik::PropertyDescription& seen = properties[i];
        EXPECT_EQ(std::tie(seen.Name, seen.Type, seen.Attributes, seen.Description, seen.Settable),
                  std::tie(name, word, attributes, description, settable));
    }
}

TEST_F(Properties, TakeIntegersOfAnyTypeThatFit) {
    const auto debugAfter = [&](const Array& value) {
        Adapter.set("Debug", value);
        return Adapter.get("Debug").number();
    };
    EXPECT_EQ(debugAfter(1), 1);
    EXPECT_EQ(debugAfter(2L), 2);
    EXPECT_EQ(debugAfter(3LL), 3);
    EXPECT_EQ(debugAfter(4U), 4);
    EXPECT_EQ(debugAfter(std::size_t{5}), 5);
    EXPECT_EQ(debugAfter(std::uint8_t{6}), 6);
    EXPECT_EQ(debugAfter(-7L), -7);
    EXPECT_THROW(debugAfter(1L << 31), vantik::Failure);
    EXPECT_EQ(debugAfter(0), 0);
    Adapter.set("ProviderBufferSize", 8);
    EXPECT_EQ(Adapter.get("ProviderBufferSize").unsignedInteger(), 8U);
}

TEST_F(Properties, StartWithTheirDefaults) {
    for (const char* property : kTextProperties) {
        EXPECT_EQ(text(property), "") << property;
    }
    for (const char* property : {"ResponseCode", "Debug"}) {
        EXPECT_EQ(Adapter.get(property).number(), 0.0) << property;
    }
    for (const char* property : {"Payload", "ResponsePayload"}) {
        EXPECT_EQ(Adapter.get(property).dimensions(), (Dimensions{0, 1})) << property;
    }
    EXPECT_EQ(Adapter.get("TimeoutInMilliseconds").doubles(), (Doubles{5000, kUnlimited, kUnlimited, kUnlimited}));
    for (const auto& [property, value] :
         {std::pair{"Sent", false}, {"Chunked", false}, {"VerifyServerName", true}, {"Decode", true}}) {
        EXPECT_EQ(Adapter.get(property).truth(), value) << property;
    }
    EXPECT_EQ(Adapter.get("ProviderBufferSize").unsignedInteger(), 0u);
    for (const char* property : {"ProgressReporter", "Provider", "Consumer"}) {
        EXPECT_TRUE(Adapter.get(property).empty()) << property;
    }
}

TEST_F(Properties, UrlReadsBackNormalized) {
    Adapter.set("URL", "HTTP://Example.COM/\xC3\xA9#part");
    EXPECT_EQ(text("URL"), "http://example.com/%C3%A9#part");
}

TEST_F(Properties, UrlThatCannotBeUsedIsNamedAndTheOldOneStays) {
    Adapter.set("URL", "http://first.example/p");
    for (const auto& [refused, failure] :
         {std::pair{"example.com/path", "VANTIK:webservices:MalformedURL(\"example.com/path\" (no protocol))"},
          {"http://a b/", "VANTIK:webservices:MalformedURL(http://a b/)"},
          {"http://h:99999/", "VANTIK:webservices:MalformedURL(http://h:99999/)"},
          {"ftp://h/", "VANTIK:webservices:ExpectedProtocol(ftp, ftp://h/, http, https)"}}) {
        EXPECT_EQ(failureTextOf([&, url = refused] { Adapter.set("URL", url); }), failure);
        EXPECT_EQ(text("URL"), "http://first.example/p") << refused;
    }
}

// The setter has a translation of its own, narrower than that of the transfer.
TEST_F(Properties, UrlSetterTranslatesTwoFailuresAndPassesEveryOther) {
    using namespace webservices;
    const std::pair<std::function<void()>, const char*> rows[] = {
        {[] { throw HTTPURLException("u"); }, "VANTIK:webservices:MalformedURL[U:u]"},
        {[] { throw HTTPDNSException("h"); }, "VANTIK:webservices:UnknownHost[U:h]"},
        {[] { throw HTTPFileNotFoundException("f"); }, "HTTPFileNotFoundException[f]"},
        {[] { throw std::length_error("l"); }, "std::length_error[l]"},
    };
    const std::u16string url = u"http://h/";
    for (const auto& [raise, seen] : rows) {
        HostCalls calls;
        std::u16string given;
        calls.OnSetUrl = [&, &fail = raise](HTTPConnection*, const std::u16string& text) {
            given = text;
            fail();
        };
        EXPECT_EQ(testsupport::failureText([&] { accessorsOf<Text>("URL").Setter(native(), &url); }), seen);
        EXPECT_EQ(given, url);
    }
}

TEST_F(Properties, TextsReachTheConnectionInTheirEncodings) {
    for (const auto& [property, stored, narrow] :
         {std::tuple{"CertificateFilename", &RequestSettings::CertificateFilename, "\xE2\x82\xAC\xC3\xA9"},
          {"Username", &RequestSettings::Username, "\x80\xE9"},
          {"Password", &RequestSettings::Password, "\x80\xE9"},
          {"ProxyUsername", &RequestSettings::ProxyUsername, "\x80\xE9"},
          {"ProxyPassword", &RequestSettings::ProxyPassword, "\x80\xE9"}}) {
        Adapter.set(property, Array(u"\u20AC\u00E9"));
        EXPECT_EQ(settings().*stored, narrow) << property;
        EXPECT_EQ(Adapter.get(property).wideText(), u"\u20AC\u00E9") << property;
    }
    Adapter.set("PostData", Array(u"\u4E2D\u00E9")); // stays wide
    EXPECT_EQ(settings().PostData, u"\u4E2D\u00E9");
    EXPECT_EQ(Adapter.get("PostData").wideText(), u"\u4E2D\u00E9");
}

TEST_F(Properties, TextThatCannotBeEncodedIsKeptForTheHostAndTheConnectionKeepsTheOldOne) {
    ResponseMetadata& metadata = connection().Metadata;
    // The last column: the text shown is what the host has set; otherwise what the connection has.
    for (const auto& [property, stored, lacking, encoding, showsWhatTheHostSet] :
         {std::tuple{"Username", &settings().Username, Array(u"\u4E2D"), "windows-1252", true},
          {"Password", &settings().Password, Array(u"\u4E2D"), "windows-1252", true},
          {"ProxyUsername", &settings().ProxyUsername, Array(u"\u4E2D"), "windows-1252", true},
          {"ProxyPassword", &settings().ProxyPassword, Array(u"\u4E2D"), "windows-1252", true},
          {"RequestMethod", &settings().RequestMethod, Array(u"\u00E9"), "ascii", true},
          {"ContentType", &metadata.ContentType, Array(u"\u00E9"), "ascii", false},
          {"ContentEncoding", &metadata.ContentEncoding, Array(u"\u00E9"), "ascii", false}}) {
        Adapter.set(property, "OLD");
        const auto refused = [&, name = property, &text = lacking] { Adapter.set(name, text); };
        EXPECT_THAT(failureTextOf(refused), testing::StartsWith("VANTIK:webservices:EncodingFailure(" + lacking.text() +
                                                                ", " + encoding + ", "))
            << property;
        EXPECT_EQ(*stored, "OLD") << property;
        EXPECT_EQ(text(property), showsWhatTheHostSet ? lacking.text() : "OLD") << property;
    }
}

TEST_F(Properties, NullTextsCountAsEmptyOnes) {
    for (const char* property : kTextProperties) {
        Adapter.set(property, property == std::string("RedirectURL") ? "/x" : "http://h/");
        Adapter.set(property, Array()); // reaches the setter as null
        EXPECT_EQ(text(property), "") << property;
    }
    EXPECT_EQ(settings().Username + settings().Password + settings().ProxyUsername + settings().ProxyPassword +
                  settings().CertificateFilename,
              "");
    EXPECT_EQ(settings().PostData, u"");
}

TEST_F(Properties, RequestMethodReadsAsSetAndNotAsInEffect) {
    for (const auto& [set, inEffect] : {std::pair{"head", "head"}, {"", "GET"}}) {
        Adapter.set("RequestMethod", set);
        EXPECT_EQ(text("RequestMethod"), set);
        EXPECT_EQ(Adapter.call("getRequestMethod").text(), inEffect);
    }
}

TEST_F(Properties, RedirectUrlIsResolvedAndShownByReading) {
    Adapter.set("URL", "http://example.com/a/b");
    Adapter.set("RedirectURL", "../c");
    EXPECT_EQ(native().RedirectUrl, u"");
    EXPECT_EQ(text("RedirectURL"), "http://example.com/c");
    EXPECT_EQ(native().RedirectUrl, u"http://example.com/c");
    EXPECT_THAT(failureTextOf([&] { Adapter.set("RedirectURL", Array(u"\u00E9")); }),
                testing::StartsWith("VANTIK:webservices:EncodingFailure(\u00E9, ascii, "));
    EXPECT_EQ(text("RedirectURL"), "http://example.com/c");
    Adapter.set("RedirectURL", "");
    EXPECT_EQ(text("RedirectURL"), "");
}

// Every number on the way to an int32: NumericNarrowingTest.
TEST_F(Properties, ResponseCodeIsRoundedTowardsZeroOrRefused) {
    for (const auto& [given, stored] : {std::pair{2147483647.9, 2147483647.0},
                                        {-2147483648.9, -2147483648.0},
                                        {200.9, 200.0},
                                        {-0.5, 0.0},
                                        {std::nan(""), -2147483648.0}}) { // passes both range tests
        Adapter.set("ResponseCode", Array(given));
        EXPECT_EQ(Adapter.get("ResponseCode").number(), stored) << given;
    }
    Adapter.set("ResponseCode", Array(204.0));
    for (const auto& [given, sign] : {std::pair{2147483648.0, "positive"}, {-2147483649.0, "negative"}}) {
        EXPECT_EQ(failureTextOf([&, value = given] { Adapter.set("ResponseCode", Array(value)); }),
                  "VANTIK:host:Failure(bad numeric conversion: " + std::string(sign) + " overflow)");
        EXPECT_EQ(Adapter.get("ResponseCode").number(), 204.0) << given;
    }
}

TEST_F(Properties, FlagsAndNumbersComeBack) {
    for (const char* property : {"VerifyServerName", "Decode", "Chunked"}) {
        for (const bool value : {true, false, true}) {
            Adapter.set(property, Array(value));
            EXPECT_EQ(Adapter.get(property).truth(), value) << property;
        }
    }
    Adapter.set("ProviderBufferSize", Array(std::numeric_limits<std::uint64_t>::max()));
    EXPECT_EQ(Adapter.get("ProviderBufferSize").unsignedInteger(), std::numeric_limits<std::uint64_t>::max());
    accessorsOf<int>("Debug").Setter(native(), -3);
    EXPECT_EQ(Adapter.get("Debug").number(), -3.0);
    settings().Debug = 0; // the destruction would write a trace line
}

RC_GTEST_FIXTURE_PROP(Contents, PayloadOfAnyBytesAndShapeComesBackAsAColumn, (Bytes first, Bytes second, bool row)) {
    for (const Bytes& bytes : {first, second}) {
        Adapter.set("Payload", bytesAs(bytes, row));
        RC_ASSERT(std::ranges::equal(settings().payload(), bytes));
        const Array read = Adapter.get("Payload");
        RC_ASSERT(read.className() == "uint8");
        RC_ASSERT(read.dimensions() == (Dimensions{bytes.size(), 1}));
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
    RC_ASSERT(taken.dimensions() == (Dimensions{all.size(), 1}));
    RC_ASSERT(bytesIn(taken) == all);
    RC_ASSERT(Adapter.get("ResponsePayload").dimensions() == (Dimensions{0, 1}));
}

TEST_F(Contents, NullResponsePayloadClearsTheRequestsContentOnly) {
    for (const auto& [given, payload] : {std::pair{Array(), ""}, // reaches the setter as null
                                         {Array::bytes(std::string_view()), "request"}}) {
        Adapter.set("Payload", Array::bytes("request"));
        native().emptyResponseBuffer();
        Adapter.set("ResponsePayload", Array::bytes("response"));
        Adapter.set("ResponsePayload", given);
        EXPECT_EQ(Adapter.get("Payload").byteText(), payload);
        EXPECT_EQ(Adapter.get("ResponsePayload").byteText(), "response");
    }
}

TEST_F(Timeouts, ThatAreLeftOutBecomeUnlimited) {
    const Doubles before = {1, 2, 3, 4};
    const std::pair<Array, Doubles> rows[] = {
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
        EXPECT_EQ(read.dimensions(), (Dimensions{1, 4}));
        EXPECT_EQ(read.doubles(), stored);
    }
}

TEST_F(Timeouts, AreKeptBitByBit) {
    using Limits = std::numeric_limits<double>;
    for (const Doubles& given :
         {Doubles{std::nan(""), -kUnlimited, -0.0, Limits::denorm_min()}, {-1.0, 0.0, kUnlimited, Limits::max()}}) {
        Adapter.set("TimeoutInMilliseconds", Array::doubles(given));
        EXPECT_TRUE(std::ranges::equal(Adapter.get("TimeoutInMilliseconds").doubles(), given, {},
                                       std::bit_cast<std::uint64_t, double>, std::bit_cast<std::uint64_t, double>));
    }
}

TEST_P(HostObjects, EmptyArrayOfAnyClassClears) {
    vantik::HostClass("test.Thing")
        .method("same", {"test.Thing vector"}, {"any"}, [](auto inputs) { return std::vector<Array>{inputs[1]}; })
        .defineIn(host());
    const std::vector<std::string> noMembers;
    const std::pair<const char*, Array> rows[] = {
        {"", Array()},
        {"char", Array("")},
        {"uint8", Array::bytes(std::string_view())},
        {"double", Array::doubles({})},
        {"logical", Array::logicals({})},
        {"struct", Array::structures({"A"}, {})},
        {"vantik.net.http.AuthenticationScheme", Array::enumeration("vantik.net.http.AuthenticationScheme", noMembers)},
        {"test.Thing", host().create("test.Thing").call("same", {Array()})}, // as a vector input declares it
    };
    for (const auto& [className, empty] : rows) {
        ASSERT_EQ(empty.className(), className);
        ASSERT_TRUE(empty.empty());
        Adapter.set(Property, makeObject());
        ASSERT_NE(kept(), nullptr);
        Adapter.set(Property, empty);
        EXPECT_EQ(kept(), nullptr) << className;
        EXPECT_TRUE(Adapter.get(Property).empty()) << className;
    }
}

TEST_P(HostObjects, WrongClassIsNamedAndWhatWasThereStays) {
    EXPECT_THROW(Adapter.set(Property, Array(1.0)), vantik::Failure);
    EXPECT_EQ(kept(), nullptr);
    const Object right = makeObject();
    Adapter.set(Property, right);
    const vxArray_tag* before = kept();
    std::vector<Array> wrong = {Array(1.0), Array("text"), Array(true), Array::structure({{"A", 1.0}})};
    for (const Role& other : kRoles) {
        if (other.Property != Property) {
            wrong.push_back(other.Make(host()).array());
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
    Adapter.set(Property, makeObject());
    Adapter.call("closeConnection");
    EXPECT_TRUE(vx::vxIsA(kept(), GetParam().ClassName));
    EXPECT_EQ(accessorsOf<vxArray_tag*>(Property).Getter(native()), kept());
    EXPECT_GT(vantik::Host::liveArrays(), alive);
    Adapter.set(Property, Array());
    EXPECT_EQ(vantik::Host::liveArrays(), alive);
}

TEST_P(HostObjects, HostsOwnErrorRouteComesFirst) {
    Adapter.set(Property, makeObject());
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
