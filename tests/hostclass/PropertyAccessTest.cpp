// What the accessors do, through the class where the host can see it.
#include "host/Text.h"
#include "tests/hostclass/ClassFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/UnreachablePorts.h"

#include <boost/numeric/conversion/cast.hpp>

#include <limits>
#include <string>
#include <vector>

using vantik::Array;
using vantik::Object;
namespace step = testsupport::step;

namespace {

class Properties : public ClassFixture {
protected:
    Object Adapter = makeAdapter();
    HTTPConnection& connection() { return native(Adapter).Connection; }
    std::string text(const char* property) { return Adapter.get(property).text(); }
    // A property set to a null text, as only a host can.
    void setNull(const char* property) { accessorsOf<Text>(property).Setter(native(Adapter), nullptr); }
};

constexpr double kUnlimited = std::numeric_limits<double>::infinity();

} // namespace

TEST_F(Properties, StartWithTheirDefaults) {
    for (const char* property : {"URL", "CertificateFilename", "ContentType", "ContentEncoding", "ProxyUsername",
                                 "ProxyPassword", "Username", "Password", "RedirectURL", "RequestMethod", "PostData"}) {
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

TEST_F(Properties, UrlReadsBackNormalised) {
    Adapter.set("URL", "HTTP://Example.COM/\xC3\xA9#part");
    EXPECT_EQ(text("URL"), "http://example.com/%C3%A9#part");
    Adapter.set("URL", "");
    EXPECT_EQ(text("URL"), "");
}

TEST_F(Properties, UrlThatCannotBeUsedIsNamed) {
    const vantik::Message schemeless = failureOf([&] { Adapter.set("URL", "example.com/path"); });
    EXPECT_EQ(schemeless.identifier(), "VANTIK:webservices:MalformedURL");
    EXPECT_EQ(schemeless.Arguments, arguments({std::string("\"example.com/path\" (no protocol)")}));
    const vantik::Message refused = failureOf([&] { Adapter.set("URL", "http://a b/"); });
    EXPECT_EQ(refused.identifier(), "VANTIK:webservices:MalformedURL");
    EXPECT_EQ(refused.Arguments, arguments({std::string("http://a b/")}));
    const vantik::Message otherScheme = failureOf([&] { Adapter.set("URL", "ftp://example.com/"); });
    EXPECT_EQ(otherScheme.identifier(), "VANTIK:webservices:ExpectedProtocol");
    EXPECT_EQ(otherScheme.Arguments, arguments({std::string("ftp"), std::string("ftp://example.com/"),
                                                std::string("http"), std::string("https")}));
    EXPECT_EQ(text("URL"), "");
}

TEST_F(Properties, TextsGoToTheConnectionInTheirEncodings) {
    struct Row {
        const char* Property;
        std::string RequestSettings::*Stored;
        const char* Narrow;
    };
    const std::vector<Row> rows = {
        {"CertificateFilename", &RequestSettings::CertificateFilename, "\xE2\x82\xAC\xC3\xA9"},
        {"Username", &RequestSettings::Username, "\x80\xE9"},
        {"Password", &RequestSettings::Password, "\x80\xE9"},
        {"ProxyUsername", &RequestSettings::ProxyUsername, "\x80\xE9"},
        {"ProxyPassword", &RequestSettings::ProxyPassword, "\x80\xE9"},
    };
    for (const Row& row : rows) {
        Adapter.set(row.Property, Array(u"\u20AC\u00E9"));
        EXPECT_EQ(connection().Settings.*row.Stored, row.Narrow) << row.Property;
        EXPECT_EQ(Adapter.get(row.Property).wideText(), u"\u20AC\u00E9") << row.Property;
        setNull(row.Property);
        EXPECT_EQ(connection().Settings.*row.Stored, "") << row.Property;
        EXPECT_EQ(text(row.Property), "") << row.Property;
    }
}

TEST_F(Properties, TextThatItsEncodingLacksIsNamed) {
    const vantik::Message credential = failureOf([&] { Adapter.set("Password", Array(u"\u4E2D")); });
    EXPECT_EQ(credential.identifier(), "VANTIK:webservices:EncodingFailure");
    ASSERT_EQ(credential.Arguments.size(), 3u);
    EXPECT_EQ(credential.Arguments[1], vantik::MessageArgument(std::string("windows-1252")));
    for (const char* property : {"ContentType", "ContentEncoding", "RequestMethod", "RedirectURL"}) {
        const vantik::Message field = failureOf([&] { Adapter.set(property, Array(u"\u00E9")); });
        EXPECT_EQ(field.identifier(), "VANTIK:webservices:EncodingFailure") << property;
        ASSERT_EQ(field.Arguments.size(), 3u);
        EXPECT_EQ(field.Arguments[1], vantik::MessageArgument(std::string("ascii"))) << property;
    }
}

TEST_F(Properties, PostDataStaysWide) {
    Adapter.set("PostData", Array(u"\u4E2D\u00E9"));
    EXPECT_EQ(connection().Settings.PostData, u"\u4E2D\u00E9");
    EXPECT_EQ(Adapter.get("PostData").wideText(), u"\u4E2D\u00E9");
    setNull("PostData");
    EXPECT_EQ(connection().Settings.PostData, u"");
}

TEST_F(Properties, RequestMethodReadsAsSetAndNotAsInEffect) {
    Adapter.set("RequestMethod", "");
    EXPECT_EQ(text("RequestMethod"), "");
    EXPECT_EQ(connection().Settings.RequestMethod, "GET");
    EXPECT_EQ(Adapter.call("getRequestMethod").text(), "GET");
    Adapter.set("RequestMethod", "head");
    EXPECT_EQ(text("RequestMethod"), "head");
    EXPECT_EQ(Adapter.call("getRequestMethod").text(), "head");
}

TEST_F(Properties, RedirectUrlIsResolvedAndShownByReading) {
    Adapter.set("URL", "http://example.com/a/b");
    Adapter.set("RedirectURL", "../c");
    EXPECT_EQ(native(Adapter).RedirectUrl, u"");
    EXPECT_EQ(text("RedirectURL"), "http://example.com/c");
    EXPECT_EQ(native(Adapter).RedirectUrl, u"http://example.com/c");
    Adapter.set("RedirectURL", "");
    EXPECT_EQ(text("RedirectURL"), "");
}

TEST_F(Properties, ResponseCodeNarrowsAndRefusesWhatDoesNotFit) {
    Adapter.set("ResponseCode", Array(404.9));
    EXPECT_EQ(Adapter.get("ResponseCode").number(), 404.0);
    EXPECT_THROW(Adapter.set("ResponseCode", Array(2147483648.0)), vantik::Failure);
    EXPECT_EQ(Adapter.get("ResponseCode").number(), 404.0);
    EXPECT_THROW(accessorsOf<double>("ResponseCode").Setter(native(Adapter), 2147483648.0),
                 boost::numeric::positive_overflow);
    EXPECT_THROW(accessorsOf<double>("ResponseCode").Setter(native(Adapter), -2147483649.0),
                 boost::numeric::negative_overflow);
}

TEST_F(Properties, PayloadIsCopiedInAndOut) {
    Adapter.set("Payload", Array::bytes(std::string_view("abc")));
    EXPECT_THAT(connection().Settings.payload(), testing::ElementsAre('a', 'b', 'c'));
    EXPECT_EQ(Adapter.get("Payload").dimensions(), (std::vector<std::size_t>{3, 1}));
    EXPECT_EQ(Adapter.get("Payload").byteText(), "abc");
    Adapter.set("Payload", Array::bytes(std::string_view("z")));
    EXPECT_EQ(Adapter.get("Payload").byteText(), "z");
    accessorsOf<vxArray_tag*>("Payload").Setter(native(Adapter), nullptr);
    EXPECT_TRUE(connection().Settings.payload().empty());
}

TEST_F(Properties, ResponsePayloadAppendsAndKeeps) {
    Adapter.set("ResponsePayload", Array::bytes(std::string_view("one")));
    Adapter.set("ResponsePayload", Array::bytes(std::string_view("two")));
    EXPECT_EQ(Adapter.get("ResponsePayload").byteText(), "onetwo");
    EXPECT_EQ(Adapter.get("ResponsePayload").byteText(), "onetwo");
}

TEST_F(Properties, NullResponsePayloadClearsTheRequestsContentOnly) {
    Adapter.set("Payload", Array::bytes(std::string_view("request")));
    Adapter.set("ResponsePayload", Array::bytes(std::string_view("response")));
    accessorsOf<vxArray_tag*>("ResponsePayload").Setter(native(Adapter), nullptr);
    EXPECT_EQ(Adapter.get("Payload").byteText(), "");
    EXPECT_EQ(Adapter.get("ResponsePayload").byteText(), "response");
}

TEST_F(Properties, TimeoutsThatAreLeftOutBecomeUnlimited) {
    struct Row {
        std::vector<double> Given, Stored;
    };
    const std::vector<Row> rows = {
        {{1, 2, 3, 4}, {1, 2, 3, 4}},
        {{}, {1, 2, 3, 4}}, // nothing happens
        {{3000}, {3000, kUnlimited, kUnlimited, kUnlimited}},
        {{1, 2}, {1, 2, kUnlimited, kUnlimited}},
        {{1, 2, 3}, {1, 2, 3, kUnlimited}},
        {{5, 6, 7, 8, 9}, {5, 6, 7, 8}},
    };
    for (const Row& row : rows) {
        Adapter.set("TimeoutInMilliseconds", Array::doubles(row.Given));
        const Array read = Adapter.get("TimeoutInMilliseconds");
        EXPECT_EQ(read.doubles(), row.Stored);
        EXPECT_EQ(read.dimensions(), (std::vector<std::size_t>{1, 4}));
    }
    EXPECT_NO_THROW(accessorsOf<vxArray_tag*>("TimeoutInMilliseconds").Setter(native(Adapter), nullptr));
}

TEST_F(Properties, FlagsAndNumbersComeBack) {
    for (const char* property : {"VerifyServerName", "Decode", "Chunked"}) {
        for (const bool value : {true, false, true}) {
            Adapter.set(property, Array(value));
            EXPECT_EQ(Adapter.get(property).truth(), value) << property;
        }
    }
    Adapter.set("ProviderBufferSize", Array(std::uint64_t{18446744073709551615u}));
    EXPECT_EQ(Adapter.get("ProviderBufferSize").unsignedInteger(), 18446744073709551615u);
    accessorsOf<int>("Debug").Setter(native(Adapter), -3);
    EXPECT_EQ(Adapter.get("Debug").number(), -3.0);
    connection().Settings.Debug = 0; // the destruction would write a trace line
}

TEST_F(Properties, HostObjectsAreHeldUntilTheNextSet) {
    const Object provider = testsupport::makeScriptedProvider(host()).object();
    Adapter.set("Provider", provider);
    EXPECT_EQ(Adapter.get("Provider").className(), provider.className());
    const vxArray_tag* held = connection().Settings.Provider.get();
    EXPECT_EQ(accessorsOf<vxArray_tag*>("Provider").Getter(native(Adapter)), held);

    const vantik::Message wrong = failureOf([&] { Adapter.set("Provider", Array(1.0)); });
    EXPECT_EQ(wrong.identifier(), "VANTIK:legacy_two_part:UnableToConvert");
    ASSERT_EQ(wrong.Arguments.size(), 3u);
    EXPECT_EQ(wrong.Arguments[0], vantik::MessageArgument(std::string("double")));
    EXPECT_EQ(wrong.Arguments[1], vantik::MessageArgument(std::string("vantik.net.http.io.ContentProvider")));
    EXPECT_EQ(connection().Settings.Provider.get(), held);

    Adapter.set("Provider", Array());
    EXPECT_EQ(connection().Settings.Provider, nullptr);
}

TEST_F(Properties, EachRoleTakesItsOwnClass) {
    const Object provider = testsupport::makeScriptedProvider(host()).object();
    const Object consumer = testsupport::makeScriptedConsumer(host()).object();
    const Object reporter = testsupport::makeScriptedReporter(host()).object();
    Adapter.set("Consumer", consumer);
    Adapter.set("ProgressReporter", reporter);
    EXPECT_EQ(Adapter.get("Consumer").className(), consumer.className());
    EXPECT_EQ(Adapter.get("ProgressReporter").className(), reporter.className());
    for (const auto& [property, object, wanted] :
         {std::tuple{"Consumer", provider, "vantik.net.http.io.ContentConsumer"},
          std::tuple{"ProgressReporter", consumer, "vantik.net.http.internal.ProgressReporter"},
          std::tuple{"Provider", reporter, "vantik.net.http.io.ContentProvider"}}) {
        const vantik::Message wrong = failureOf([&] { Adapter.set(property, object); });
        EXPECT_EQ(wrong.Arguments.at(1), vantik::MessageArgument(std::string(wanted)));
    }
}

TEST_F(Properties, ReadingLeavesNoArrayBehind) {
    const std::size_t alive = vantik::Host::liveArrays();
    for (const char* property : {"TimeoutInMilliseconds", "Payload", "ResponsePayload"}) {
        Adapter.get(property);
        EXPECT_EQ(vantik::Host::liveArrays(), alive) << property;
    }
}

TEST_F(Properties, TextsOfTheResponseSendOnAnOpenConnectionOnly) {
    Adapter.set("ContentType", "stored/type");
    EXPECT_EQ(text("ContentType"), "stored/type"); // closed: nothing is sent
    EXPECT_FALSE(Adapter.get("Sent").truth());

    testsupport::ScriptedServer server({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Type: text/x\r\n"
                                                                       "Content-Encoding: odd\r\nLocation: /next\r\n"
                                                                       "Content-Length: 0\r\n\r\n")});
    Adapter.set("URL", server.url("/a"));
    Adapter.set("Decode", Array(false));
    Adapter.call("openConnection");
    EXPECT_EQ(text("ContentType"), "text/x");
    EXPECT_TRUE(Adapter.get("Sent").truth());
    EXPECT_EQ(text("ContentEncoding"), "odd");
    EXPECT_EQ(text("RedirectURL"), server.url("/next"));
    EXPECT_EQ(Adapter.get("ResponseCode").number(), 200.0);
    EXPECT_EQ(server.connectionCount(), 1u);
}

TEST_F(Properties, GetterThatSendsTranslatesItsFailure) {
    const testsupport::RefusingPort port;
    for (const char* property : {"ContentType", "ContentEncoding", "RedirectURL", "ResponseCode"}) {
        Adapter.set("URL", port.url());
        Adapter.call("openConnection");
        const vantik::Message failure = failureOf([&] { Adapter.get(property); });
        EXPECT_EQ(failure.identifier(), "VANTIK:webservices:ConnectionRefused") << property;
        EXPECT_EQ(failure.Arguments.at(0), vantik::MessageArgument(port.url())) << property;
        Adapter.call("closeConnection");
    }
}
