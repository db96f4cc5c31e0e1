// What a program does wrong is refused with a failure that names it, and nothing is lost by it: what was set before is
// what goes on the wire.
#include "tests/exchange/ExchangeFixture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

class RefusedInput : public ExchangeFixture {};

TEST_F(RefusedInput, NamesWhatIsWrongAndTheOpenConnectionIsStillGood) {
    struct Row {
        const char* Named;
        void (*Call)(const Object& connection);
    };
    ScriptedServer& server = serve(answers(response("unharmed")));
    const Object connection = open(server.url("/"));
    for (const Row& row : {
             Row{"NoSuchProperty", [](const Object& c) { c.get("NoSuchProperty"); }},
             {"NoSuchProperty", [](const Object& c) { c.set("NoSuchProperty", 1.0); }},
             {"noSuchMethod", [](const Object& c) { c.call("noSuchMethod"); }},
             {"Sent", [](const Object& c) { c.set("Sent", true); }},
             {"TimeoutInMilliseconds", [](const Object& c) { c.set("TimeoutInMilliseconds", "soon"); }},
             {"Payload", [](const Object& c) { c.set("Payload", 1.5); }},
             {"Debug", [](const Object& c) { c.set("Debug", "loud"); }},
             {"ProviderBufferSize", [](const Object& c) { c.set("ProviderBufferSize", -1.0); }},
             {"openConnection", [](const Object& c) { c.call("openConnection", {1.0}); }},
             {"setRequestProperty", [](const Object& c) { c.call("setRequestProperty", {"X-A"}); }},
             {"setRequestProperty",
              [](const Object& c) {
                  c.call("setRequestProperty", {"X-A", 1.0});
              }},
             {"setFields", [](const Object& c) { c.call("setFields", {"X-A: 1"}); }},
             {"",
              [](const Object& c) {
                  c.call("setFields", {Array::structures({"Key", "Text"}, {{"a", "b"}})});
              }},
             {"copyContentToByteArray", [](const Object& c) { c.call("copyContentToByteArray"); }},
             {"copyContentToByteArray", [](const Object& c) { c.call("copyContentToByteArray", {"yes"}); }},
             {"setAuthenticationSchemes",
              [](const Object& c) {
                  c.call("setAuthenticationSchemes", {"Basic", false});
              }},
         }) {
        const std::string text = failureOf([&] { row.Call(connection); }).Text;
        EXPECT_NE(text.find(row.Named), std::string::npos) << row.Named << " is not in: " << text;
    }
    EXPECT_EQ(receiveBytes(connection), "unharmed");
    EXPECT_EQ(server.record().Received, "GET / HTTP/1.1\r\nHost: " + server.authority() + "\r\n\r\n");
}

TEST_F(RefusedInput, OfAConstructorNamesTheClass) {
    const std::vector<std::pair<const char*, std::vector<Array>>> calls = {
        {"vantik.internal.webservices.NoSuchClass", {}}, {kAdapterClass, {"yes"}}, {kAdapterClass, {true, true}}};
    for (const auto& [className, inputs] : calls) {
        const std::string text =
            failureOf([&, &name = className, &given = inputs] { host().create(name, given); }).Text;
        EXPECT_NE(text.find(className), std::string::npos) << text;
    }
}

TEST_F(RefusedInput, MethodsOfProvidersAreHiddenFromPrograms) {
    const ScriptedProvider provider = makeScriptedProvider(host(), "content");
    const std::string text = failureOf([&] { provider.object().call("startInternal"); }).Text;
    EXPECT_NE(text.find("startInternal"), std::string::npos) << text;
    EXPECT_EQ(provider->Starts, 0);
}

TEST_F(RefusedInput, ObjectsOfAWrongClassLeaveTheOnesInUseAndEmptyOnesClearThem) {
    ScriptedServer& server = serve(takes(response("received")) + takes(response("again")));
    const ScriptedProvider provider = makeScriptedProvider(host(), "provided");
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    const ScriptedReporter reporter = makeScriptedReporter(host());
    const Object connection = openUpload(server.url("/"), provider);
    connection.set("Consumer", consumer);
    connection.set("ProgressReporter", reporter);
    const std::vector<std::pair<const char*, Array>> wrong = {
        {"Provider", consumer},         {"Provider", 1.0},         {"Consumer", reporter}, {"Consumer", "text"},
        {"ProgressReporter", provider}, {"ProgressReporter", true}};
    for (const auto& [property, value] : wrong) {
        EXPECT_EQ(keyOf([&, name = property, &given = value] { connection.set(name, given); }),
                  "VANTIK:legacy_two_part:UnableToConvert")
            << property;
    }
    const Array nothing = connection.call("copyContentToByteArray", {false});
    EXPECT_EQ(nothing.className(), "uint8");
    EXPECT_EQ(nothing.dimensions(), (std::vector<std::size_t>{0, 1})) << "the content goes to the consumer alone";
    EXPECT_EQ(consumer->content(), "received");
    const std::size_t calls = consumer->Calls.size();
    const std::size_t reports = reporter->Counts.size();
    EXPECT_GT(reports, 0U);

    connection.call("openConnection");
    prepareUpload(connection, Array::bytes("payload"));
    connection.set("Provider", Array::doubles({}));
    connection.set("Consumer", "");
    connection.set("ProgressReporter", Array::structures({"A"}, {}));
    EXPECT_EQ(receiveBytes(connection), "again");
    EXPECT_EQ(server.record().Bodies, (Texts{"provided", "payload"}));
    EXPECT_EQ(provider->Starts, 1);
    EXPECT_EQ(consumer->Calls.size(), calls);
    EXPECT_EQ(reporter->Counts.size(), reports);
}

TEST_F(RefusedInput, TextsLeaveTheOldOnesForTheWire) {
    ScriptedServer& server = serve(answers(response("ok")));
    const Object connection = open(server.url("/old"));
    connection.set("RequestMethod", "OPTIONS");
    connection.call("setRequestProperty", {"X-Old", "1"});
    const Array field = Array::structures({"Name", "Value"}, {{"X-New", u"\u4E2D"}});
    EXPECT_EQ(keyOf([&] { connection.call("setFields", {field}); }), "VANTIK:webservices:EncodingFailure");
    EXPECT_EQ(keyOf([&] { connection.set("RequestMethod", u"\u00D6"); }), "VANTIK:webservices:EncodingFailure");
    EXPECT_EQ(receiveBytes(connection), "ok");
    EXPECT_EQ(server.record().Received,
              "OPTIONS /old HTTP/1.1\r\nHost: " + server.authority() + "\r\nX-Old: 1\r\n\r\n");
    EXPECT_EQ(connection.get("RequestMethod").wideText(), u"\u00D6") << "what the host last set";
    EXPECT_EQ(connection.call("getRequestMethod").text(), "OPTIONS") << "what is in effect";
}

// Where the next open leads after a refused URL.
enum class NextOpen { ToTheOldUrl, NoHost };

struct UrlRow {
    const char* Name;
    Array Url;
    const char* Failure; // its beginning
    NextOpen Next;
};

class RefusedUrl : public ExchangeFixture {
protected:
    // Two exchanges on the server's one connection, which libcurl keeps: it may close any of those that were idle
    // within the same millisecond, once it has four.
    ScriptedServer& serveTwice() {
        makeAdapter().call("closeAllConnections");
        return serve(answers(response("first")) + answers(response("second")));
    }
    // Every kind of refusal. A text without a scheme, or with one that is not served, has replaced the parsed URL by
    // then; the text that goes to the wire is the old one in every case.
    const std::vector<UrlRow> Rows = {
        {"no scheme", "www.example.test/p", "VANTIK:webservices:MalformedURL(\"www.example.test/p\" (no protocol))",
         NextOpen::NoHost},
        {"another scheme", "ftp://127.0.0.1/p",
         "VANTIK:webservices:ExpectedProtocol(ftp, ftp://127.0.0.1/p, http, https)", NextOpen::ToTheOldUrl},
        {"another scheme without a host", "file:///p",
         "VANTIK:webservices:ExpectedProtocol(file, file:///p, http, https)", NextOpen::NoHost},
        {"a blank", "http://a b/", "VANTIK:webservices:MalformedURL(http://a b/)", NextOpen::ToTheOldUrl},
        {"a large port", "http://h:99999/", "VANTIK:webservices:MalformedURL(http://h:99999/)", NextOpen::ToTheOldUrl},
        {"half an address", "http://[::1/", "VANTIK:webservices:MalformedURL(http://[::1/)", NextOpen::ToTheOldUrl},
        {"half a character", Array(std::u16string(u"http://h/\xD800")), "VANTIK:webservices:EncodingFailure(",
         NextOpen::ToTheOldUrl},
    };
};

TEST_F(RefusedUrl, LeavesTheOldOne) {
    for (const UrlRow& row : Rows) {
        SCOPED_TRACE(row.Name);
        ScriptedServer& server = serveTwice();
        const Object connection = open(server.url("/p"));
        EXPECT_EQ(receiveBytes(connection), "first");
        connection.call("closeConnection");
        EXPECT_EQ(outcomeOf([&] { connection.set("URL", row.Url); }).substr(0, std::strlen(row.Failure)), row.Failure);
        EXPECT_EQ(connection.get("URL").text(), server.url("/p"));
        if (row.Next == NextOpen::NoHost) {
            EXPECT_EQ(keyOf([&] { connection.call("openConnection"); }), "VANTIK:webservices:FileNotFound");
            EXPECT_EQ(receiveBytes(connection), "") << "it is closed";
            EXPECT_EQ(server.record().Heads.size(), 1U);
            makeAdapter(); // nothing counts as open
        } else {
            connection.call("openConnection");
            EXPECT_EQ(receiveBytes(connection), "second");
        }
        expectScopeUsable(connection);
    }
}

// A refusal while the object is open takes nothing from the exchange that is under way.
TEST_F(RefusedUrl, TakesNothingFromTheOpenConnectionAndIsMendedByAGoodOne) {
    for (const UrlRow& row : Rows) {
        SCOPED_TRACE(row.Name);
        ScriptedServer& server = serveTwice();
        const Object connection = open(server.url("/p"));
        failureOf([&] { connection.set("URL", row.Url); });
        EXPECT_EQ(receiveBytes(connection), "first");
        failureOf([&] { connection.set("URL", row.Url); });
        connection.set("URL", server.url("/q#part"));
        connection.call("openConnection");
        EXPECT_EQ(receiveBytes(connection), "second");
        EXPECT_EQ(startLine(server.record().Heads.at(1)), "GET /q HTTP/1.1");
        EXPECT_EQ(connection.get("URL").text(), server.url("/q#part"));
        expectScopeUsable(connection);
    }
}

// An open without a host fails after the handle was attached: a failed reopen leaves the scope open, as it was.
TEST_F(RefusedUrl, WithoutHostFailsAReopenAndKeepsTheScopeOpen) {
    ScriptedServer& server = serveTwice();
    const Object connection = open(server.url("/p"));
    EXPECT_EQ(receiveBytes(connection), "first");
    connection.set("URL", "http:///p");
    EXPECT_EQ(keyOf([&] { connection.call("openConnection"); }), "VANTIK:webservices:FileNotFound");
    EXPECT_FALSE(connection.get("Sent").truth());
    EXPECT_EQ(receiveBytes(connection), "");
    EXPECT_EQ(outcomeOf([&] { makeAdapter(); }), kOnlyOneTransfer);
    connection.set("URL", server.url("/q"));
    connection.call("openConnection");
    EXPECT_EQ(receiveBytes(connection), "second");
}

// libcurl takes no text beyond 8,000,000 bytes.
class RefusedOption : public ExchangeFixture {
protected:
    const std::string TooLong = std::string(8'000'001, 'x');
    // The failure names the option, then come libcurl's own text and the detail, with nothing between and after them.
    static void expectRefusal(const std::function<void()>& action, const std::string& option,
                              const std::string& detail = {}) {
        const vantik::Message message = failureOf(action);
        EXPECT_EQ(message.identifier(), "VANTIK:webservices:InternalError");
        ASSERT_EQ(message.Arguments.size(), 1U);
        std::string text = std::get<std::string>(message.Arguments[0]);
        const std::string begin = '"' + option + "\" failed with CURLcode ";
        ASSERT_EQ(text.substr(0, begin.size()), begin);
        ASSERT_TRUE(text.ends_with(detail));
        text = text.substr(begin.size(), text.size() - begin.size() - detail.size());
        ASSERT_FALSE(text.empty());
        EXPECT_EQ(text.find_last_not_of(' '), text.size() - 1) << text;
    }
};

TEST_F(RefusedOption, OfTheOpenIsNamedAndEndsInLibcurlsText) {
    ScriptedServer& server = serve(answers(response("good")));
    const Object connection = makeFor(server.url("/") + TooLong);
    expectRefusal([&] { connection.call("openConnection"); }, "CURLOPT_URL");
    EXPECT_EQ(receiveBytes(connection), "") << "it is closed";
    makeAdapter(); // nothing counts as open
    connection.set("URL", server.url("/"));
    connection.call("openConnection");
    EXPECT_EQ(receiveBytes(connection), "good");
}

TEST_F(RefusedOption, OfTheProxyIsNamedWithTheHost) {
    const Object connection = makeFor("http://127.0.0.1:9/");
    const Array proxy = Array::structure({{"Host", TooLong}, {"Port", 80.0}});
    expectRefusal([&] { connection.call("openProxyConnection", {proxy}); }, "CURLOPT_PROXY", TooLong);
}

TEST_F(RefusedOption, OfTheSendIsNamedAndTheSameObjectSendsAfterIt) {
    ScriptedServer& server = serve(answers(response("good")));
    const Object connection = open(server.url("/"));
    setLogin(connection, "short", "short");
    for (const auto& [property, option] :
         {std::pair{"Username", "CURLOPT_USERNAME"}, {"Password", "CURLOPT_PASSWORD"}}) {
        connection.set(property, TooLong);
        expectRefusal([&] { receiveBytes(connection); }, option);
        EXPECT_FALSE(connection.get("Sent").truth());
        connection.set(property, "short");
    }
    EXPECT_EQ(receiveBytes(connection), "good") << "without another open";
    EXPECT_EQ(fieldValue(server.record().Heads.at(0), "Authorization"), "Basic c2hvcnQ6c2hvcnQ=");
}

} // namespace
