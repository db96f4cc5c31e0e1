// Values on the whole road: what a refused one leaves behind is what goes on the wire.
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/server/UnreachablePorts.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

using Texts = std::vector<std::string>;

class HostValues : public HostFixture {
protected:
    // The answer of the built-in look-up for a URL: its host and its port.
    Texts lookUp(const char* url) {
        const std::vector<Array> inputs = {url};
        const Array info = host().callBuiltin("ws_base::getProxyInfoBuiltin", inputs);
        EXPECT_EQ(info.fieldNames(), (Texts{"Host", "Port", "Username", "Password"}));
        return {info.field("Host").text(), std::to_string(static_cast<int>(info.field("Port").number()))};
    }
};

TEST_F(HostValues, ObjectsOfAWrongClassLeaveTheOnesInUse) {
    ScriptedServer& server = serve(
        {step::expectHead(), step::continueIfExpected(), step::expectChunkedBody(), step::send(response("received"))});
    const ScriptedProvider provider = makeScriptedProvider(host(), "provided");
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    const ScriptedReporter reporter = makeScriptedReporter(host());
    const Object connection = open(server.url("/"));
    connection.set("RequestMethod", "PUT");
    connection.set("Provider", provider);
    connection.set("Consumer", consumer);
    connection.set("ProgressReporter", reporter);
    for (const auto& [property, wrong] : std::vector<std::pair<const char*, Array>>{{"Provider", consumer},
                                                                                    {"Provider", Array(1.0)},
                                                                                    {"Consumer", reporter},
                                                                                    {"Consumer", "text"},
                                                                                    {"ProgressReporter", provider},
                                                                                    {"ProgressReporter", true}}) {
        EXPECT_EQ(failureOf([&, name = property, &value = wrong] { connection.set(name, value); }).identifier(),
                  "VANTIK:legacy_two_part:UnableToConvert")
            << property;
    }
    const Array nothing = connection.call("copyContentToByteArray", {false});
    EXPECT_EQ(nothing.className(), "uint8");
    EXPECT_EQ(nothing.dimensions(), (std::vector<std::size_t>{0, 1})) << "the content goes to the consumer alone";
    EXPECT_EQ(server.record().Bodies.at(0), "provided");
    EXPECT_EQ(consumer->content(), "received");
    EXPECT_FALSE(reporter->Counts.empty());
    expectScopeUsable(connection);
}

TEST_F(HostValues, EmptyObjectsClearTheOnesInUse) {
    ScriptedServer& server = serve(
        {step::expectHead(), step::continueIfExpected(), step::expectChunkedBody(), step::send(response("received"))});
    const ScriptedProvider provider = makeScriptedProvider(host(), "provided");
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    const ScriptedReporter reporter = makeScriptedReporter(host());
    const Object connection = open(server.url("/"));
    connection.set("RequestMethod", "PUT");
    connection.set("Provider", provider);
    connection.set("Consumer", consumer);
    connection.set("ProgressReporter", reporter);
    connection.set("Provider", Array::doubles({}));
    connection.set("Consumer", "");
    connection.set("ProgressReporter", Array::structures({"A"}, {}));
    connection.set("Payload", Array::bytes(std::string_view("payload")));
    EXPECT_EQ(receiveBytes(connection), "received");
    EXPECT_EQ(server.record().Bodies.at(0), "payload");
    EXPECT_EQ(provider->Starts, 0);
    EXPECT_EQ(consumer->Calls, Texts{});
    EXPECT_TRUE(reporter->Counts.empty());
    expectScopeUsable(connection);
}

TEST_F(HostValues, RefusedTextsLeaveTheOldOnesForTheWire) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("ok"))});
    const Object connection = open(server.url("/old"));
    connection.set("RequestMethod", "OPTIONS");
    connection.call("setRequestProperty", {"X-Old", "1"});
    const Array field = Array::structures({"Name", "Value"}, {{"X-New", Array(u"\u4E2D")}});
    EXPECT_EQ(failureOf([&] { connection.call("setFields", {field}); }).identifier(),
              "VANTIK:webservices:EncodingFailure");
    EXPECT_EQ(failureOf([&] { connection.set("RequestMethod", Array(u"\u00D6")); }).identifier(),
              "VANTIK:webservices:EncodingFailure");
    EXPECT_EQ(failureOf([&] { connection.set("URL", "ftp://other/"); }).identifier(),
              "VANTIK:webservices:ExpectedProtocol");
    EXPECT_EQ(receiveBytes(connection), "ok");
    EXPECT_EQ(server.record().Received,
              "OPTIONS /old HTTP/1.1\r\nHost: " + server.authority() + "\r\nX-Old: 1\r\n\r\n");
    EXPECT_EQ(connection.get("RequestMethod").wideText(), u"\u00D6") << "what the host last set";
    EXPECT_EQ(connection.call("getRequestMethod").text(), "OPTIONS") << "what is in effect";
    expectScopeUsable(connection);
}

TEST_F(HostValues, EmptyNamesPassOnlyWhereNobodyLooks) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("ok"))});
    const Object connection = open(server.url("/"));
    connection.call("setRequestProperty", {"X-First", "1"});
    connection.call("setRequestProperty", {"", "nameless"});
    connection.call("setRequestProperty", {"X-Last", "2"});
    const Array fields = Array::structures({"Name", "Value"}, {{"X-Set", "3"}, {"", "lost"}, {"X-Never", "4"}});
    EXPECT_EQ(describe(failureOf([&] { connection.call("setFields", {fields}); })),
              "VANTIK:webservices:EmptyName(lost)");
    EXPECT_EQ(receiveBytes(connection), "ok");
    const std::string head = server.record().Heads.at(0);
    for (const auto& [name, value] : {std::pair{"X-First", "1"}, {"X-Last", "2"}, {"X-Set", "3"}}) {
        EXPECT_EQ(fieldValue(head, name), value) << head;
    }
    EXPECT_EQ(fieldValue(head, "X-Never"), std::nullopt);
    expectScopeUsable(connection);
}

TEST_F(HostValues, BytesOfTheResponsesFieldsAreReadAsTheHostsNarrowText) {
    ScriptedServer& server = serve(
        {step::expectHead(), step::send(response("", {"Content-Type: a/b; name=caf\u00e9", "Content-Encoding: \u4e2d",
                                                      "X-Name: gr\u00fc\u00df dich"}))});
    const Object connection = open(server.url("/"));
    connection.set("Decode", false);
    EXPECT_EQ(connection.get("ContentType").text(), "a/b; name=caf\u00e9");
    EXPECT_EQ(connection.get("ContentEncoding").text(), "\u4e2d");
    EXPECT_EQ(connection.call("getResponseField", {"x-name"}).text(), "gr\u00fc\u00df dich");
    expectScopeUsable(connection);
}

TEST_F(HostValues, BytesOfNoEncodingStillGiveTexts) {
    ScriptedServer& server = serve(
        {step::expectHead(), step::send(response("", {"Content-Type: \xE9", "X-Odd: a\xFF\xFEz", "\xE9: named"}))});
    const Object connection = open(server.url("/"));
    EXPECT_EQ(connection.get("ContentType").wideText(), u"\uFFFD");
    const std::u16string odd = connection.call("getResponseField", {"X-Odd"}).wideText();
    EXPECT_EQ(odd.front(), u'a');
    EXPECT_EQ(odd.back(), u'z');
    EXPECT_EQ(connection.call("getResponseFields").size(), 4U);
    expectScopeUsable(connection);
}

TEST_F(HostValues, FailureOfAPropertyThatSendsLeavesTheScopeGood) {
    for (const char* property : {"ContentType", "ContentEncoding", "RedirectURL", "ResponseCode"}) {
        const RefusingPort port;
        const Object connection = open(port.url("/"));
        const vantik::Message failure = failureOf([&] { connection.get(property); });
        EXPECT_EQ(failure.identifier(), "VANTIK:webservices:ConnectionRefused") << property;
        EXPECT_EQ(failure.Arguments.at(0), vantik::MessageArgument(port.url("/"))) << property;
        EXPECT_FALSE(connection.get("Sent").truth()) << property;
        expectScopeUsable(connection);
    }
}

// The look-up has no part in a transfer: it neither disturbs an open connection nor is disturbed by one.
TEST_F(HostValues, ProxyLookUpAndOpenConnectionDoNotMeet) {
    ScriptedServer& server = serve({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nfo"),
                                    step::await("looked up"), step::send("ur")});
    const Texts before = lookUp("http://example.test/");
    const Object connection = open(server.url("/"));
    EXPECT_EQ(lookUp("http://example.test/"), before) << "open, nothing sent";
    const ScriptedReporter reporter = makeScriptedReporter(host());
    std::vector<Texts> within;
    reporter->OnUpdate = [&](int, std::uint64_t) {
        within.push_back(lookUp("http://example.test/"));
        server.raise("looked up");
        return Array(true);
    };
    connection.set("ProgressReporter", reporter);
    EXPECT_EQ(resultTexts(connection, "getStatusLine", 2), (Texts{"HTTP/1.1", "200"}));
    EXPECT_EQ(lookUp("http://example.test/"), before) << "in the middle of a response";
    server.raise("looked up");
    EXPECT_EQ(receiveBytes(connection), "four");
    for (const Texts& answer : within) {
        EXPECT_EQ(answer, before) << "out of a callback of the transfer";
    }
    EXPECT_FALSE(within.empty());
    expectScopeUsable(connection);
}

// The answer has the form that the open through a proxy takes.
TEST_F(HostValues, AnswerOfTheProxyLookUpOpensAConnection) {
    ScriptedServer& proxy = serve({step::expectHead(), step::send(response("by proxy"))});
    const Object connection = makeAdapter();
    connection.set("URL", "http://origin.test/p");
    const Array answer = Array::structure({{"Host", "127.0.0.1"},
                                           {"Port", static_cast<double>(proxy.port())},
                                           {"Username", "me"},
                                           {"Password", "secret"}});
    connection.call("openProxyConnection", {answer});
    EXPECT_EQ(receiveBytes(connection), "by proxy");
    const std::string head = proxy.record().Heads.at(0);
    EXPECT_EQ(startLine(head), "GET http://origin.test/p HTTP/1.1");
    EXPECT_EQ(fieldValue(head, "Proxy-Authorization"), std::nullopt) << "the credentials are properties of their own";
    expectScopeUsable(connection);
}

TEST_F(HostValues, CountsOfTheProxyLookUpAreChecked) {
    const std::vector<Array> none;
    const std::vector<Array> two = {"http://h/", "http://h/"};
    for (const std::vector<Array>& inputs : {none, two}) {
        EXPECT_EQ(failureOf([&] { host().callBuiltin("ws_base::getProxyInfoBuiltin", inputs); }).identifier(),
                  inputs.empty() ? "VANTIK:builtin:NotEnoughInputs" : "VANTIK:builtin:TooManyInputs");
    }
    lookUp("http://h/");
}

} // namespace
