// One request, step by step: a GET that is read into a byte array, and what the caller learns of the answer.
#include "tests/exchange/ExchangeFixture.h"

namespace {

using namespace testsupport;

class GetExchange : public ExchangeFixture {};

TEST_F(GetExchange, GoesFromUrlToBytes) {
    for (const Pace pace : {Pace::Whole, Pace::SingleBytes}) {
        ScriptedServer& server = serve(answers(response("hello", {"Content-Type: text/plain; charset=utf-8"})), pace);
        const Object connection = makeAdapter();
        EXPECT_FALSE(connection.get("Sent").truth());
        connection.set("URL", server.url("/a/b?c=d#fragment"));
        connection.set("TimeoutInMilliseconds", Array::doubles({3000, 30000, 30000}));
        connection.call("openConnection");
        connection.set("RequestMethod", "GET");
        connection.call("setFields", {Array::structures({"Name", "Value"}, {{"X-First", "1"}, {"X-Second", "a, b"}})});
        const Array content = connection.call("copyContentToByteArray", {true});
        EXPECT_EQ(content.className(), "uint8");
        EXPECT_EQ(content.dimensions(), (std::vector<std::size_t>{5, 1}));
        EXPECT_EQ(content.byteText(), "hello");
        EXPECT_TRUE(connection.get("Sent").truth());
        EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
        EXPECT_EQ(connection.get("ResponseCode").className(), "double");
        EXPECT_EQ(connection.call("getStatusLine", std::span<const Array>(), 3).at(1).className(), "int32");
        EXPECT_EQ(connection.get("ContentType").text(), "text/plain; charset=utf-8");

        // Nothing beyond what was asked for: no Accept, no User-Agent, no Accept-Encoding, no fragment.
        EXPECT_EQ(server.record().Received,
                  "GET /a/b?c=d HTTP/1.1\r\nHost: " + server.authority() + "\r\nX-First: 1\r\nX-Second: a, b\r\n\r\n");
        expectScopeUsable(connection);
    }
}

TEST_F(GetExchange, TalksIPv6) {
    ScriptedServer server(answers(response("six")) + Script{step::close()}, Pace::Whole, Family::IPv6);
    const Object connection = open(server.url("/"));
    EXPECT_EQ(receiveBytes(connection), "six");
    EXPECT_EQ(fieldValue(server.record().Heads.at(0), "Host"), server.authority());
    expectScopeUsable(connection); // before the server goes
}

TEST_F(GetExchange, SendsWhenAPropertyOfTheResponseIsRead) {
    ScriptedServer& server =
        serve(answers(response("body", {"Content-Type: a/b", "Content-Encoding: identity"}, "202 Soon")));
    const Object connection = open(server.url("/"));
    EXPECT_EQ(resultTexts(connection, "getStatusLine", 1), (Texts{"HTTP/1.1"}));
    EXPECT_EQ(server.connectionCount(), 0U) << "the version is known before";
    EXPECT_EQ(connection.get("ContentType").text(), "a/b");
    EXPECT_EQ(connection.get("ContentEncoding").text(), "identity");
    EXPECT_EQ(connection.get("ResponseCode").number(), 202.0);
    EXPECT_EQ(resultTexts(connection, "getStatusLine", 2), (Texts{"HTTP/1.1", "202"}));
    EXPECT_EQ(resultTexts(connection, "getStatusLine", 3), (Texts{"HTTP/1.1", "202", "Soon"}));
    EXPECT_EQ(receiveBytes(connection), "body");
    EXPECT_EQ(server.record().Heads.size(), 1U);
}

TEST_F(GetExchange, ReadsTheFirstFieldOfANameWhateverItsCaseAsTheHostsNarrowText) {
    ScriptedServer& server =
        serve(answers(response("raw", {"Content-Type: a/b; name=caf\u00e9", "content-ENCODING: \u4e2d",
                                       "Content-Encoding: second", "X-Name: gr\u00fc\u00df dich", "X-Empty:"})));
    const Object connection = open(server.url("/"));
    connection.set("Decode", false);
    EXPECT_EQ(connection.get("ContentType").text(), "a/b; name=caf\u00e9");
    EXPECT_EQ(connection.get("ContentEncoding").text(), "\u4e2d");
    EXPECT_EQ(connection.call("getResponseField", {"x-NAME"}).text(), "gr\u00fc\u00df dich");
    for (const char* name : {"X-Absent", "X-Empty"}) {
        const Array value = connection.call("getResponseField", {name});
        EXPECT_TRUE(value.empty()) << name;
        EXPECT_EQ(value.className(), Array().className()) << name;
    }
    EXPECT_EQ(connection.call("getResponseFields").dimensions(), (std::vector<std::size_t>{1, 6}));
    EXPECT_EQ(receiveBytes(connection), "raw");
}

TEST_F(GetExchange, ReadsBytesOfNoEncodingAsTextsToo) {
    ScriptedServer& server = serve(answers(response("", {"Content-Type: \xE9", "X-Odd: a\xFF\xFEz", "\xE9: named"})));
    const Object connection = open(server.url("/"));
    EXPECT_EQ(connection.get("ContentType").wideText(), u"\uFFFD");
    const std::u16string odd = connection.call("getResponseField", {"X-Odd"}).wideText();
    EXPECT_EQ(odd.front(), u'a');
    EXPECT_EQ(odd.back(), u'z');
    EXPECT_EQ(connection.call("getResponseFields").size(), 4U);
}

class Redirect : public ExchangeFixture {};

TEST_F(Redirect, IsResolvedAndNotFollowed) {
    struct Row {
        const char* Location;
        const char* Target; // after the server's own address where it starts with a slash
    };
    for (const Row& row : {Row{"/other?x=1", "/other?x=1"},
                           {"next", "/a/next"},
                           {"http://example.test/x#y", "http://example.test/x#y"},
                           {"//example.test/z", "http://example.test/z"},
                           {"http://[bad", ""}}) {
        ScriptedServer& server =
            serve(answers(response("moved", {std::string("Location: ") + row.Location}, "302 Found")));
        const Object connection = open(server.url("/a/b"));
        const std::string target = row.Target;
        EXPECT_EQ(connection.get("RedirectURL").text(), target.starts_with('/') ? server.url(target) : target)
            << row.Location;
        EXPECT_EQ(receiveBytes(connection), "moved");
        EXPECT_EQ(connection.get("ResponseCode").number(), 302.0);
        EXPECT_EQ(server.record().Heads.size(), 1U);
    }
}

TEST_F(Redirect, StaysUntilTheNextLocation) {
    ScriptedServer& server = serve(answers(response("", {"Location: /1"}, "301 Moved")) + answers(response("")) +
                                   answers(response("", {"Location:"})));
    const Object connection = open(server.url("/"));
    for (int round = 0; round < 3; ++round) {
        receiveBytes(connection);
        EXPECT_EQ(connection.get("RedirectURL").text(), server.url("/1")) << round;
        connection.call("openConnection");
    }
}

} // namespace
