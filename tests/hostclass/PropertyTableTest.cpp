// The rows of the table, and what the accessors of numbers and texts do, through the class where the host can see it.
// Arrays and host objects: PropertyTableTestArrays.cpp. Properties that send: tests/exchange/response/.
#include "hostclass/PropertyTable.h"

#include "errors/HTTPException.h"
#include "hostclass/ClassRegistration.h"
#include "tests/hostclass/ClassFixture.h"
#include "tests/hostclass/HostCalls.h"
#include "tests/hostclass/RecordingClass.h"
#include "tests/support/host/ScriptedObjects.h"

#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

using vantik::Array;

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
bool holds(const vcos::COSPropT& property) {
    return dynamic_cast<const COSPropCPPT<HTTPConnectionAdapter, T>*>(&property) != nullptr;
}

std::string nativeType(const vcos::COSPropT& property) {
    const std::pair<const char*, bool (*)(const vcos::COSPropT&)> types[] = {{"text", holds<Text>},
                                                                             {"double", holds<double>},
                                                                             {"array", holds<vxArray_tag*>},
                                                                             {"bool", holds<bool>},
                                                                             {"uint64", holds<unsigned long long>},
                                                                             {"int", holds<int>}};
    std::string names;
    for (const auto& [name, isIt] : types) {
        names += isIt(property) ? name : "";
    }
    return names;
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

class PropertyTable : public AdapterFixture {};

class Properties : public AdapterFixture {
protected:
    std::string text(const char* property) { return Adapter.get(property).text(); }
};

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
    EXPECT_EQ(Adapter.get("Provider").className(), provider.className()) << "the adapter keeps what it gives";
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

TEST_F(Properties, StartWithTheirDefaults) {
    for (const char* property : kTextProperties) {
        EXPECT_EQ(text(property), "") << property;
    }
    EXPECT_EQ(Adapter.get("ResponseCode").number(), 0.0);
    EXPECT_EQ(Adapter.get("Payload").dimensions(), (std::vector<std::size_t>{0, 1}));
    EXPECT_EQ(Adapter.get("ResponsePayload").dimensions(), (std::vector<std::size_t>{0, 1}));
    EXPECT_EQ(Adapter.get("TimeoutInMilliseconds").doubles(),
              (std::vector<double>{5000, kUnlimited, kUnlimited, kUnlimited}));
    EXPECT_FALSE(Adapter.get("Sent").truth());
    EXPECT_TRUE(Adapter.get("VerifyServerName").truth());
    EXPECT_TRUE(Adapter.get("Decode").truth());
    EXPECT_EQ(Adapter.get("ProviderBufferSize").unsignedInteger(), 0u);
    EXPECT_FALSE(Adapter.get("Chunked").truth());
    EXPECT_EQ(Adapter.get("Debug").number(), 0.0);
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
        calls.OnSetUrl = [&, &fail = raise](const std::u16string& text) {
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
    Adapter.set("PostData", Array(u"\u4E2D\u00E9"));
    EXPECT_EQ(settings().PostData, u"\u4E2D\u00E9") << "stays wide";
    EXPECT_EQ(Adapter.get("PostData").wideText(), u"\u4E2D\u00E9");
}

TEST_F(Properties, TextThatCannotBeEncodedIsKeptForTheHostAndTheConnectionKeepsTheOldOne) {
    struct Refusal {
        const char* Property;
        std::string* Stored;
        const char16_t* Lacking;
        const char* Encoding;
        bool ShowsWhatTheHostSet; // the others show what the connection has
    };
    ResponseMetadata& metadata = connection().Metadata;
    for (const Refusal& row : {Refusal{"Username", &settings().Username, u"\u4E2D", "windows-1252", true},
                               {"Password", &settings().Password, u"\u4E2D", "windows-1252", true},
                               {"ProxyUsername", &settings().ProxyUsername, u"\u4E2D", "windows-1252", true},
                               {"ProxyPassword", &settings().ProxyPassword, u"\u4E2D", "windows-1252", true},
                               {"RequestMethod", &settings().RequestMethod, u"\u00E9", "ascii", true},
                               {"ContentType", &metadata.ContentType, u"\u00E9", "ascii", false},
                               {"ContentEncoding", &metadata.ContentEncoding, u"\u00E9", "ascii", false}}) {
        Adapter.set(row.Property, "OLD");
        const Array lacking(row.Lacking);
        EXPECT_THAT(
            failureTextOf([&] { Adapter.set(row.Property, lacking); }),
            testing::StartsWith("VANTIK:webservices:EncodingFailure(" + lacking.text() + ", " + row.Encoding + ", "))
            << row.Property;
        EXPECT_EQ(*row.Stored, "OLD") << row.Property;
        EXPECT_EQ(text(row.Property), row.ShowsWhatTheHostSet ? lacking.text() : "OLD") << row.Property;
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
