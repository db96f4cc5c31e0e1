// The thin methods, through the class.
#include "host/Messages.h"
#include "tests/hostclass/ClassFixture.h"
#include "tests/support/server/ScriptedServer.h"
#include "transfer/CurlSingleton.h"

#include <boost/numeric/conversion/cast.hpp>

#include <string>
#include <utility>
#include <vector>

using vantik::Array;
using vantik::Object;
namespace step = testsupport::step;

namespace {

class Methods : public ClassFixture {
protected:
    Object Adapter = makeAdapter(true);
    HTTPConnection& connection() { return native(Adapter).Connection; }
    std::vector<Array> ask(const char* method, int resultsWanted) { return Adapter.call(method, {}, resultsWanted); }
    std::vector<std::string> textsOf(const std::vector<Array>& results) {
        std::vector<std::string> texts;
        for (const Array& result : results) {
            texts.push_back(result.className() == "char" ? result.text()
                                                         : std::to_string(static_cast<int>(result.number())));
        }
        return texts;
    }
    using Field = std::pair<std::string, std::string>;
    std::vector<Field> fieldsOf(const Array& fields) {
        std::vector<Field> list;
        for (std::size_t i = 0; i < fields.size(); ++i) {
            list.emplace_back(fields.field("Name", i).text(), fields.field("Value", i).text());
        }
        return list;
    }
    void openTo(const std::string& url) {
        Adapter.set("URL", url);
        Adapter.call("openConnection");
        Adapter.set("RequestMethod", "GET");
    }
};

using testing::ElementsAre;
using testing::Pair;

Array proxy(Array host, Array port) {
    return Array::structure({{"Host", std::move(host)}, {"Port", std::move(port)}});
}

} // namespace

TEST_F(Methods, OpenWithoutAUrlStaysClosed) {
    Adapter.call("openConnection");
    EXPECT_FALSE(connection().Transfer.Opened);
}

TEST_F(Methods, OpenWithoutAHostNamesTheUrl) {
    connection().Settings.ParsedURL = foundation::network::IRI(u"http:/path");
    connection().Settings.URL = u"http:/path";
    const vantik::Message failure = failureOf([&] { Adapter.call("openConnection"); });
    EXPECT_EQ(failure.identifier(), "VANTIK:webservices:FileNotFound");
    EXPECT_EQ(failure.Arguments, arguments({std::string("http:/path")}));
}

TEST_F(Methods, ProxyTakesHostAndPort) {
    Adapter.call("openProxyConnection", {proxy("proxy.example", 3128.0)});
    EXPECT_EQ(connection().Settings.ProxyHost, "proxy.example");
    EXPECT_EQ(connection().Settings.ProxyPort, 3128);
    Adapter.call("openProxyConnection", {proxy("proxy.example", 65535.9)});
    EXPECT_EQ(connection().Settings.ProxyPort, 65535);
}

TEST_F(Methods, EmptyProxyPortMeansEighty) {
    for (const Array& description :
         {proxy("p", Array()), proxy("p", Array::doubles({})), proxy("p", ""), Array::structure({{"Host", "p"}})}) {
        connection().Settings.ProxyPort = 1;
        Adapter.call("openProxyConnection", {description});
        EXPECT_EQ(connection().Settings.ProxyPort, 80);
    }
}

TEST_F(Methods, ProxyPortOutOfRangeChangesTheHostOnly) {
    Adapter.call("openProxyConnection", {proxy("first", 1.0)});
    for (const double port : {65536.0, -1.0}) {
        EXPECT_THROW(Adapter.call("openProxyConnection", {proxy("second", port)}), vantik::Failure);
        EXPECT_EQ(connection().Settings.ProxyHost, "second");
        EXPECT_EQ(connection().Settings.ProxyPort, 1);
    }
}

TEST_F(Methods, ProxyWithoutTextAsHostIsRefused) {
    EXPECT_THROW(Adapter.call("openProxyConnection", {proxy(1.0, 1.0)}), vantik::Failure);
    EXPECT_THROW(Adapter.call("openProxyConnection", {Array::structure({{"Port", 1.0}})}), vantik::Failure);
}

TEST_F(Methods, RequestPropertiesAreAppendedUntested) {
    Adapter.call("setRequestProperty", {"A", "1"});
    Adapter.call("setRequestProperty", {"A", "2"});
    Adapter.call("setRequestProperty", {"", "nameless"});
    EXPECT_THAT(connection().Settings.RequestFields, ElementsAre(Pair("A", "1"), Pair("A", "2"), Pair("", "nameless")));
}

TEST_F(Methods, FieldsAreAppendedInOrder) {
    Adapter.call("setFields", {Array::structures({"Name", "Value"}, {{"A", "1"}, {"B", ""}, {"A", "2"}})});
    EXPECT_THAT(connection().Settings.RequestFields, ElementsAre(Pair("A", "1"), Pair("B", ""), Pair("A", "2")));
    Adapter.call("setFields", {Array::structures({"Name", "Value"}, {})});
    EXPECT_EQ(connection().Settings.RequestFields.size(), 3u);
}

TEST_F(Methods, FieldWithoutANameIsNamedByItsValueAndTheFieldsBeforeItStay) {
    const Array fields = Array::structures({"Name", "Value"}, {{"A", "1"}, {"", "lost"}, {"B", "2"}});
    const vantik::Message failure = failureOf([&] { Adapter.call("setFields", {fields}); });
    EXPECT_EQ(failure.identifier(), "VANTIK:webservices:EmptyName");
    EXPECT_EQ(failure.Arguments, arguments({std::string("lost")}));
    EXPECT_THAT(connection().Settings.RequestFields, ElementsAre(Pair("A", "1")));
}

TEST_F(Methods, FieldsTakeAsciiOnly) {
    const Array fields = Array::structures({"Name", "Value"}, {{"A", Array(u"\u00E9")}});
    EXPECT_EQ(failureOf([&] { Adapter.call("setFields", {fields}); }).identifier(),
              "VANTIK:webservices:EncodingFailure");
    // The other way in takes the host's narrow text as it is.
    Adapter.call("setRequestProperty", {"A", Array(u"\u00E9")});
    EXPECT_THAT(connection().Settings.RequestFields, ElementsAre(Pair("A", "\xC3\xA9")));
}

// Both texts of an element are converted before its name is looked at.
TEST_F(Methods, FieldWithoutANameWhoseValueCannotBeEncodedFailsForTheValue) {
    const Array fields = Array::structures({"Name", "Value"}, {{"A", "1"}, {"", Array(u"\u00E9")}});
    const vantik::Message failure = failureOf([&] { Adapter.call("setFields", {fields}); });
    EXPECT_EQ(failure.identifier(), "VANTIK:webservices:EncodingFailure");
    EXPECT_EQ(failure.Arguments.at(0), vantik::MessageArgument(std::string("\xC3\xA9")));
    EXPECT_THAT(connection().Settings.RequestFields, ElementsAre(Pair("A", "1")));
}

TEST_F(Methods, RemovedFieldStaysAsAnEmptyOne) {
    Adapter.call("setRequestProperty", {"Accept", "a"});
    Adapter.call("setRequestProperty", {"Other", "b"});
    Adapter.call("removeField", {"ACCEPT"});
    EXPECT_THAT(connection().Settings.RequestFields, ElementsAre(Pair("Other", "b"), Pair("ACCEPT", "")));
}

TEST_F(Methods, SchemesBecomeBitsOfTheServerOrTheProxy) {
    const auto schemes = [](std::vector<std::string> names) {
        return Array::enumeration("vantik.net.http.AuthenticationScheme", names);
    };
    Adapter.call("setAuthenticationSchemes", {schemes({"Basic", "Digest"}), false});
    EXPECT_EQ(connection().Settings.HostAuthSchemes, static_cast<std::uint32_t>(CURLAUTH_BASIC | CURLAUTH_DIGEST));
    EXPECT_EQ(connection().Settings.ProxyAuthSchemes, 0u);
    Adapter.call("setAuthenticationSchemes", {schemes({"NTLM", "Negotiate"}), true});
    EXPECT_EQ(connection().Settings.ProxyAuthSchemes, static_cast<std::uint32_t>(CURLAUTH_NTLM | CURLAUTH_NEGOTIATE));
    Adapter.call("setAuthenticationSchemes", {schemes({}), false});
    EXPECT_EQ(connection().Settings.HostAuthSchemes, 0u);
}

TEST_F(Methods, SchemeNamesAreComparedWithoutCaseAndUnknownOnesIgnored) {
    const std::vector<std::string> members = {"BASIC", "unknown"};
    const Array schemes = Array::enumeration("test.Scheme", members);
    const std::vector<vcos::COSValue> inputs = {{reinterpret_cast<std::uint64_t>(schemes.handle())}, {7}};
    runHandler("setAuthenticationSchemes", native(Adapter), 0, nullptr, inputs);
    EXPECT_EQ(connection().Settings.ProxyAuthSchemes,
              static_cast<std::uint32_t>(CURLAUTH_BASIC)); // any non-zero slot is true
}

TEST_F(Methods, NothingSentMeansNoFields) {
    for (const char* method : {"getRequestFields", "getResponseFields"}) {
        const Array fields = Adapter.call(method);
        EXPECT_EQ(fields.dimensions(), (std::vector<std::size_t>{1, 0})) << method;
        EXPECT_EQ(fields.fieldNames(), (std::vector<std::string>{"Name", "Value"})) << method;
    }
    EXPECT_EQ(Adapter.call("getResponseField", {"Server"}).className(), "");
}

TEST_F(Methods, StoredLinesAreGivenAsFields) {
    connection().SentHead.RequestHeaderLines = {"Host: a", "X: 1"};
    connection().ReceivedHead.ResponseHeaderLines = {"HTTP/1.1 200 Fine: indeed", "Server: s", "X-Empty:", "x-twice: 1",
                                                     "X-Twice: 2"};
    EXPECT_THAT(fieldsOf(Adapter.call("getRequestFields")), ElementsAre(Pair("Host", "a"), Pair("X", "1")));
    EXPECT_THAT(fieldsOf(Adapter.call("getResponseFields")),
                ElementsAre(Pair("Server", "s"), Pair("X-Empty", ""), Pair("x-twice", "1"), Pair("X-Twice", "2")));
    EXPECT_EQ(Adapter.call("getResponseField", {"SERVER"}).text(), "s");
    EXPECT_EQ(Adapter.call("getResponseField", {"X-Twice"}).text(), "1");
    EXPECT_EQ(Adapter.call("getResponseField", {"HTTP/1.1 200 Fine"}).className(), ""); // the status line is no field
}

TEST_F(Methods, AbsentAndEmptyFieldsGiveTheArrayOfNoClass) {
    connection().ReceivedHead.ResponseHeaderLines = {"HTTP/1.1 200 OK", "X-Empty:"};
    for (const char* name : {"Absent", "X-Empty"}) {
        const Array field = Adapter.call("getResponseField", {name});
        EXPECT_EQ(field.className(), "") << name;
        EXPECT_TRUE(field.empty()) << name;
    }
}

TEST_F(Methods, RequestUriIsTheNormalisedUrl) {
    EXPECT_EQ(Adapter.call("getRequestURI").text(), "");
    Adapter.set("URL", "HTTP://Example.com/p?q#f");
    EXPECT_EQ(Adapter.call("getRequestURI").text(), "http://example.com/p?q#f");
}

TEST_F(Methods, RequestLineBeforeASendTellsWhatWouldBeSent) {
    Adapter.set("URL", "http://example.com/p/x?q=1#f");
    Adapter.set("RequestMethod", "PUT");
    EXPECT_THAT(textsOf(ask("getRequestLine", 3)), ElementsAre("PUT", "/p/x?q=1", "HTTP/1.1"));
    connection().Settings.ProxyHost = "proxy.example";
    EXPECT_THAT(textsOf(ask("getRequestLine", 2)), ElementsAre("PUT", "http://example.com/p/x?q=1#f"));
}

TEST_F(Methods, ResultsBeyondThoseWantedAreNotMade) {
    for (const char* method : {"getRequestLine", "getStatusLine"}) {
        for (int wanted = 0; wanted <= 3; ++wanted) {
            constexpr std::uint64_t untouched = 0x5A5A;
            vcos::COSValue results[3] = {{untouched}, {untouched}, {untouched}};
            runHandler(method, native(Adapter), wanted, results);
            for (int i = 0; i < 3; ++i) {
                EXPECT_EQ(results[i].Bits != untouched, i < std::max(wanted, 1)) << method << wanted << i;
            }
            matrix::destroyArray(ValueSlot<vxArray_tag*>::read(results[0]));
            if (wanted == 3) {
                matrix::destroyArray(ValueSlot<vxArray_tag*>::read(results[2]));
            }
            if (wanted >= 2 && std::string(method) == "getRequestLine") {
                matrix::destroyArray(ValueSlot<vxArray_tag*>::read(results[1]));
            }
        }
    }
}

TEST_F(Methods, StatusLineStartsTheTransferForTheSecondResult) {
    testsupport::ScriptedServer server({step::expectHead(), step::send("HTTP/1.1 404 Not Here\r\n"
                                                                       "Content-Length: 0\r\n\r\n")});
    openTo(server.url("/p?q"));
    EXPECT_THAT(textsOf(ask("getStatusLine", 1)), ElementsAre("HTTP/1.1"));
    EXPECT_FALSE(Adapter.get("Sent").truth());
    EXPECT_EQ(server.connectionCount(), 0u);
    EXPECT_THAT(textsOf(ask("getStatusLine", 3)), ElementsAre("HTTP/1.1", "404", "Not Here"));
    EXPECT_TRUE(Adapter.get("Sent").truth());
    EXPECT_THAT(textsOf(ask("getRequestLine", 3)), ElementsAre("GET", "/p?q", "HTTP/1.1"));
    EXPECT_EQ(server.connectionCount(), 1u);
}

TEST_F(Methods, StatusLineWithoutAResponse) {
    EXPECT_THAT(textsOf(ask("getStatusLine", 3)), ElementsAre("HTTP/1.1", "0", ""));
}

TEST_F(Methods, StatusIsAnInt32) {
    EXPECT_EQ(ask("getStatusLine", 2).at(1).className(), "int32");
}

TEST_F(Methods, RequestFieldsShowWhatWentOut) {
    testsupport::ScriptedServer server({step::expectHead(), step::send("HTTP/1.1 204 No Content\r\n\r\n")});
    openTo(server.url());
    Adapter.call("setRequestProperty", {"X-Mine", "yes"});
    ask("getStatusLine", 2);
    EXPECT_THAT(fieldsOf(Adapter.call("getRequestFields")),
                ElementsAre(Pair("Host", server.authority()), Pair("X-Mine", "yes")));
}

TEST_F(Methods, CloseIsHarmlessTwice) {
    openTo("http://127.0.0.1:1/");
    Adapter.call("closeConnection");
    Adapter.call("closeConnection");
    EXPECT_FALSE(connection().Transfer.Opened);
    EXPECT_FALSE(connection().Handles->ConnectionOpen);
}

TEST_F(Methods, AllConnectionsCloseOnlyWhileNoneIsOpen) {
    openTo("http://127.0.0.1:1/");
    const vantik::Message failure = failureOf([&] { Adapter.call("closeAllConnections"); });
    EXPECT_EQ(failure.identifier(), "VANTIK:webservices:InternalError");
    EXPECT_EQ(failure.Arguments, arguments({std::string("resetHandles() called when connection is open")}));
    EXPECT_TRUE(connection().Transfer.Opened);
    Adapter.call("closeConnection");
    EXPECT_NO_THROW(Adapter.call("closeAllConnections"));
}

TEST_F(Methods, InputsThatDoNotFitTheSignatureAreRefusedByTheHost) {
    EXPECT_THROW(Adapter.call("setRequestProperty", {"only one"}), vantik::Failure);
    EXPECT_THROW(Adapter.call("setFields", {"no struct"}), vantik::Failure);
    EXPECT_THROW(Adapter.call("copyContentToFile", {Array(1.0)}), vantik::Failure);
}
