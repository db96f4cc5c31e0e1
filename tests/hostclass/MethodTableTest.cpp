// The rows of the table, and the thin methods, through the class. Those that copy content: ContentMethodsTest; those
// that send: tests/exchange/response/.
#include "hostclass/MethodTable.h"

#include "embedded/classes/MethodSignature.h"
#include "hostclass/ClassRegistration.h"
#include "tests/hostclass/ClassFixture.h"
#include "tests/hostclass/RecordingClass.h"
#include "transfer/CurlSingleton.h"

#include <cmath>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

using testing::ElementsAre;
using testing::Pair;
using testsupport::fieldTexts;
using testsupport::resultTexts;
using vantik::Array;
using vantik::detail::MethodSignature;

namespace {

class MethodTable : public ClassFixture {};

using Words = std::vector<std::string>;
using Row = std::tuple<std::string, Words, Words, bool>; // name, outputs, inputs, answers unasked

const std::vector<Row> kExpected = {
    {"openConnection", {}, {}, false},
    {"openProxyConnection", {}, {"struct scalar"}, false},
    {"closeConnection", {}, {}, false},
    {"copyContentToByteArray", {"uint8 vector"}, {"logical scalar"}, true},
    {"copyContentToFile", {}, {"char vector"}, false},
    {"setRequestProperty", {}, {"char vector", "char vector"}, false},
    {"setFields", {}, {"struct vector"}, false},
    {"removeField", {}, {"char vector"}, false},
    {"getRequestFields", {"struct vector"}, {}, false},
    {"getRequestURI", {"char vector"}, {}, false},
    {"getRequestMethod", {"char vector"}, {}, false},
    {"getResponseFields", {"struct vector"}, {}, false},
    {"getResponseField", {"char vector"}, {"char vector"}, false},
    {"getRequestLine", {"char vector", "char vector", "char vector"}, {}, false},
    {"getStatusLine", {"char vector", "int32 scalar", "char vector"}, {}, false},
    {"setAuthenticationSchemes", {}, {"vantik.net.http.AuthenticationScheme vector", "logical scalar"}, false},
    {"closeAllConnections", {}, {}, false},
};

Words textsOf(const std::vector<vcos::InternedName>& names) {
    Words words;
    for (const vcos::InternedName name : names) {
        words.push_back(*name);
    }
    return words;
}

// The object is the first one.
Words inputsOf(const Row& row, const std::string& className) {
    Words inputs = std::get<2>(row);
    inputs.insert(inputs.begin(), className + " scalar");
    return inputs;
}

class Methods : public AdapterFixture {
protected:
    void openThroughProxy(Array host, Array port) {
        Adapter.call("openProxyConnection", {Array::structure({{"Host", std::move(host)}, {"Port", std::move(port)}})});
    }
    void setFields(const std::vector<std::vector<Array>>& fields) {
        Adapter.call("setFields", {Array::structures({"Name", "Value"}, fields)});
    }
};

} // namespace

TEST_F(MethodTable, EachRowBecomesOneMethodAfterTheConstructor) {
    RecordingClass definition("a.b.C");
    HTTPConnectionAdapterClassInfo().defineClass(definition);
    ASSERT_EQ(definition.Methods.size(), kExpected.size() + 1);
    EXPECT_NE(dynamic_cast<HTTPConnectionAdapterConstructorInfo*>(definition.Methods.front().get()), nullptr);
    for (std::size_t i = 0; i < kExpected.size(); ++i) {
        const auto& [name, outputs, inputs, unasked] = kExpected[i];
        const vcos::COSMethodInfo& method = *definition.Methods[i + 1];
        const auto& signature = MethodSignature::of(*method.getMethodSignature());
        EXPECT_EQ(method.getName(), name);
        EXPECT_EQ(textsOf(signature.Outputs), outputs) << name;
        EXPECT_EQ(textsOf(signature.Inputs), inputsOf(kExpected[i], "a.b.C")) << name;
        EXPECT_EQ(signature.OptionalInputs, 0) << name;
        EXPECT_EQ(method.getMemberAccess(), vcos::MemberAccess::Public) << name;
        EXPECT_EQ(method.getDescription(), "") << name;
        EXPECT_EQ(dynamic_cast<const COSMethodWithAnsCLNRN<HTTPConnectionAdapter*>*>(&method) != nullptr, unasked);
        EXPECT_EQ(dynamic_cast<const COSMethodCLNRN<HTTPConnectionAdapter*>*>(&method) != nullptr, !unasked);
    }
}

TEST_F(MethodTable, HostSeesTheSameMethods) {
    const std::vector<vantik::MethodDescription> methods = host().describe(kAdapterClass).Methods;
    ASSERT_EQ(methods.size(), kExpected.size() + 1);
    EXPECT_EQ(methods[0].Name, "HTTPConnectionAdapter");
    EXPECT_EQ(methods[0].Inputs, Words{"logical scalar"});
    EXPECT_EQ(methods[0].Outputs, Words{kAdapterClass});
    EXPECT_EQ(methods[0].OptionalInputs, 1);
    for (std::size_t i = 0; i < kExpected.size(); ++i) {
        const vantik::MethodDescription& method = methods[i + 1];
        EXPECT_TRUE(method.Declared) << method.Name;
        EXPECT_EQ(method.Name, std::get<0>(kExpected[i]));
        EXPECT_EQ(method.Outputs, std::get<1>(kExpected[i])) << method.Name;
        EXPECT_EQ(method.Inputs, inputsOf(kExpected[i], kAdapterClass)) << method.Name;
    }
}

TEST_F(MethodTable, ClassWithoutANameStillHasItsObjectInput) {
    RecordingClass definition(vcos::InternedName{nullptr});
    addMethodEntry(definition, methodTable().front());
    EXPECT_EQ(textsOf(MethodSignature::of(*definition.Methods.at(0)->getMethodSignature()).Inputs), Words{"scalar"});
}

TEST_F(Methods, OpenWithoutAUrlStaysClosed) {
    Adapter.call("openConnection");
    EXPECT_FALSE(connection().Transfer.Opened);
}

TEST_F(Methods, OpenWithoutAHostNamesTheUrl) {
    settings().ParsedURL = foundation::network::IRI(u"http:/path");
    settings().URL = u"http:/path";
    EXPECT_EQ(failureTextOf([&] { Adapter.call("openConnection"); }), "VANTIK:webservices:FileNotFound(http:/path)");
}

// The first number of any array, rounded towards zero; 80 for any empty one.
TEST_F(Methods, ProxyTakesHostAndPort) {
    const std::pair<Array, int> rows[] = {
        {Array(3128.0), 3128},
        {Array(65535.9), 65535},
        {Array(-0.5), 0},
        {Array(std::nan("")), 0}, // passes both range tests
        {Array(std::int32_t{3128}), 3128},
        {Array(std::uint64_t{65535}), 65535},
        {Array(true), 1},
        {Array::doubles({8080, 1}), 8080},
        {Array(), 80},
        {Array::doubles({}), 80},
        {Array(""), 80},
        {Array::structures({"A"}, {}), 80},
    };
    for (const auto& [port, stored] : rows) {
        settings().ProxyPort = 7;
        openThroughProxy("proxy.example", port);
        EXPECT_EQ(settings().ProxyHost, "proxy.example");
        EXPECT_EQ(settings().ProxyPort, stored) << port.className();
    }
    settings().ProxyPort = 7;
    Adapter.call("openProxyConnection", {Array::structure({{"Host", "p"}})});
    EXPECT_EQ(settings().ProxyPort, 80) << "without the field";
}

TEST_F(Methods, ProxyPortOutOfRangeIsRefusedBeforeTheOpenAndChangesTheHostOnly) {
    Adapter.set("URL", "http://127.0.0.1:9/");
    settings().ProxyPort = 7;
    for (const auto& [port, sign] : {std::pair{65536.0, "positive"}, {-1.0, "negative"}}) {
        settings().ProxyHost = "before";
        EXPECT_EQ(failureTextOf([&, number = port] { openThroughProxy("after", number); }),
                  "VANTIK:host:Failure(bad numeric conversion: " + std::string(sign) + " overflow)");
        EXPECT_EQ(settings().ProxyHost, "after");
        EXPECT_EQ(settings().ProxyPort, 7);
        EXPECT_FALSE(connection().Transfer.Opened);
        EXPECT_FALSE(connection().Handles->ConnectionOpen);
    }
    openThroughProxy("after", 8080.0);
    EXPECT_TRUE(connection().Transfer.Opened);
}

TEST_F(Methods, ProxyWithoutTextAsHostIsRefused) {
    EXPECT_THROW(openThroughProxy(1.0, 1.0), vantik::Failure);
    EXPECT_THROW(Adapter.call("openProxyConnection", {Array::structure({{"Port", 1.0}})}), vantik::Failure);
}

// Without a check, and in the host's narrow text.
TEST_F(Methods, RequestPropertiesAreAppendedAsTheyAre) {
    Adapter.call("setRequestProperty", {"A", "1"});
    Adapter.call("setRequestProperty", {"A", Array(u"\u00E9")});
    Adapter.call("setRequestProperty", {"", "nameless"});
    EXPECT_THAT(settings().RequestFields, ElementsAre(Pair("A", "1"), Pair("A", "\xC3\xA9"), Pair("", "nameless")));
}

TEST_F(Methods, FieldsAreAppendedInOrderAndARemovedOneStaysAsAnEmptyOne) {
    setFields({{"A", "1"}, {"B", ""}, {"A", "2"}});
    setFields({});
    setFields({{"C", "3"}});
    EXPECT_THAT(settings().RequestFields, ElementsAre(Pair("A", "1"), Pair("B", ""), Pair("A", "2"), Pair("C", "3")));
    Adapter.call("removeField", {"c"});
    EXPECT_THAT(settings().RequestFields, ElementsAre(Pair("A", "1"), Pair("B", ""), Pair("A", "2"), Pair("c", "")));
}

TEST_F(Methods, FieldThatIsRefusedLeavesThoseBeforeIt) {
    const std::pair<std::vector<Array>, const char*> rows[] = {
        {{"", "lost"}, "VANTIK:webservices:EmptyName(lost)"},
        {{Array(u"\u00E9"), "x"}, "VANTIK:webservices:EncodingFailure(\xC3\xA9, "},
        {{"B", Array(u"\u4E2D")}, "VANTIK:webservices:EncodingFailure(\xE4\xB8\xAD, "},
        // The value is converted before a name is required.
        {{"", Array(u"\u00E9")}, "VANTIK:webservices:EncodingFailure(\xC3\xA9, "},
    };
    for (const auto& [field, failure] : rows) {
        settings().RequestFields.clear();
        const auto set = [&, &refused = field] { setFields({{"A", "1"}, refused, {"Z", "never"}}); };
        EXPECT_THAT(failureTextOf(set), testing::StartsWith(failure));
        EXPECT_THAT(settings().RequestFields, ElementsAre(Pair("A", "1"))) << failure;
    }
}

TEST_F(Methods, SchemesBecomeBitsOfTheServerOrTheProxy) {
    const auto set = [&](std::vector<std::string> names, bool forProxy) {
        Adapter.call("setAuthenticationSchemes",
                     {Array::enumeration("vantik.net.http.AuthenticationScheme", names), forProxy});
        return std::pair<std::uint32_t, std::uint32_t>(settings().HostAuthSchemes, settings().ProxyAuthSchemes);
    };
    EXPECT_THAT(set({"Basic", "Digest"}, false), Pair(CURLAUTH_BASIC | CURLAUTH_DIGEST, 0u));
    EXPECT_THAT(set({"NTLM", "Negotiate"}, true),
                Pair(CURLAUTH_BASIC | CURLAUTH_DIGEST, CURLAUTH_NTLM | CURLAUTH_NEGOTIATE));
    EXPECT_THAT(set({}, false), Pair(0u, CURLAUTH_NTLM | CURLAUTH_NEGOTIATE));
}

TEST_F(Methods, NothingSentMeansNoFields) {
    for (const char* method : {"getRequestFields", "getResponseFields"}) {
        const Array fields = Adapter.call(method);
        EXPECT_EQ(fields.dimensions(), (std::vector<std::size_t>{1, 0})) << method;
        EXPECT_EQ(fields.fieldNames(), (Words{"Name", "Value"})) << method;
    }
}

TEST_F(Methods, StoredLinesAreReturnedAsFields) {
    connection().SentHead.RequestHeaderLines = {"Host: a", "X: 1"};
    connection().ReceivedHead.ResponseHeaderLines = {"HTTP/1.1 200 Fine: indeed", "Server: s", "X-Empty:", "x-twice: 1",
                                                     "X-Twice: 2"};
    EXPECT_THAT(fieldTexts(Adapter.call("getRequestFields")), ElementsAre("Host: a", "X: 1"));
    EXPECT_THAT(fieldTexts(Adapter.call("getResponseFields")),
                ElementsAre("Server: s", "X-Empty: ", "x-twice: 1", "X-Twice: 2"));
    EXPECT_EQ(Adapter.call("getResponseField", {"SERVER"}).text(), "s");
    EXPECT_EQ(Adapter.call("getResponseField", {"X-Twice"}).text(), "1");
    // Absent, empty, and the status line: the array of no class, not an empty text.
    for (const char* name : {"Absent", "X-Empty", "HTTP/1.1 200 Fine"}) {
        const Array field = Adapter.call("getResponseField", {name});
        EXPECT_EQ(field.className(), "") << name;
        EXPECT_TRUE(field.empty()) << name;
    }
}

TEST_F(Methods, RequestUriIsTheNormalizedUrl) {
    EXPECT_EQ(Adapter.call("getRequestURI").text(), "");
    Adapter.set("URL", "HTTP://Example.com/p?q#f");
    EXPECT_EQ(Adapter.call("getRequestURI").text(), "http://example.com/p?q#f");
}

TEST_F(Methods, RequestLineBeforeASendIsTheOneThatWouldBeSent) {
    Adapter.set("URL", "http://example.com/p/x?q=1#f");
    Adapter.set("RequestMethod", "PUT");
    EXPECT_THAT(resultTexts(Adapter, "getRequestLine", 3), ElementsAre("PUT", "/p/x?q=1", "HTTP/1.1"));
    settings().ProxyHost = "proxy.example";
    EXPECT_THAT(resultTexts(Adapter, "getRequestLine", 2), ElementsAre("PUT", "http://example.com/p/x?q=1#f"));
}

TEST_F(Methods, ResultsBeyondThoseWantedAreNotMade) {
    EXPECT_THAT(resultTexts(Adapter, "getStatusLine", 3), ElementsAre("HTTP/1.1", "0", "")) << "without a response";
    for (const std::string method : {"getRequestLine", "getStatusLine"}) {
        for (int wanted = 0; wanted <= 3; ++wanted) {
            constexpr std::uint64_t untouched = 0x5A5A;
            vcos::COSValue results[3] = {{untouched}, {untouched}, {untouched}};
            runHandler(method, wanted, results);
            for (int i = 0; i < 3; ++i) {
                const bool made = results[i].Bits != untouched;
                EXPECT_EQ(made, i < std::max(wanted, 1)) << method << wanted << i;
                if (made && (method != "getStatusLine" || i != 1)) { // the status is a number
                    matrix::destroyArray(ValueSlot<vxArray_tag*>::read(results[i]));
                }
            }
        }
    }
}

TEST_F(Methods, AllConnectionsCloseOnlyWhileNoneIsOpen) {
    openTo("http://127.0.0.1:1/");
    EXPECT_EQ(failureTextOf([&] { Adapter.call("closeAllConnections"); }),
              "VANTIK:webservices:InternalError(resetHandles() called when connection is open)");
    EXPECT_TRUE(connection().Transfer.Opened);
    Adapter.call("closeConnection");
    Adapter.call("closeConnection"); // harmless
    EXPECT_FALSE(connection().Handles->ConnectionOpen);
    EXPECT_NO_THROW(Adapter.call("closeAllConnections"));
}
