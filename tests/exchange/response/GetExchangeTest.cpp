// The road of one request: a GET read into a byte array, step by step.
#include "tests/support/host/HostFixture.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <memory>
#include <system_error>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

class GetExchange : public HostFixture {};

TEST_F(GetExchange, GoesFromUrlToBytes) {
    for (const Pace pace : {Pace::Whole, Pace::SingleBytes}) {
        ScriptedServer& server = serve(
            {step::expectHead(), step::send(response("hello", {"Content-Type: text/plain; charset=utf-8"}))}, pace);
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
        EXPECT_EQ(connection.get("ContentType").text(), "text/plain; charset=utf-8");
        connection.call("closeConnection");

        // Nothing beyond what was asked for: no Accept, no User-Agent, no Accept-Encoding, no fragment.
        EXPECT_EQ(server.record().Received,
                  "GET /a/b?c=d HTTP/1.1\r\nHost: " + server.authority() + "\r\nX-First: 1\r\nX-Second: a, b\r\n\r\n");
        expectScopeUsable(connection);
    }
}

TEST_F(GetExchange, ReusesTheConnectionOfAnEarlierObject) {
    ScriptedServer& server =
        serve({step::expectHead(), step::send(response("one")), step::expectHead(), step::send(response("two"))});
    {
        const Object first = open(server.url("/1"));
        EXPECT_EQ(receiveBytes(first), "one");
        first.call("closeConnection");
    }
    const Object second = open(server.url("/2"));
    EXPECT_EQ(receiveBytes(second), "two");
    EXPECT_EQ(server.connectionCount(), 1U);
    EXPECT_EQ(startLine(server.record().Heads.at(1)), "GET /2 HTTP/1.1");
    expectScopeUsable(second);
}

TEST_F(GetExchange, WorksInTheOlderModeToo) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("old"))});
    const Object connection = open(server.url("/"), false);
    EXPECT_EQ(receiveBytes(connection), "old");
    EXPECT_EQ(server.record().Received, "GET / HTTP/1.1\r\nHost: " + server.authority() + "\r\n\r\n");
    expectScopeUsable(connection);
}

TEST_F(GetExchange, TalksIPv6) {
    ScriptedServer server({step::expectHead(), step::send(response("six")), step::close()}, Pace::Whole, Family::IPv6);
    const Object connection = open(server.url("/"));
    EXPECT_EQ(receiveBytes(connection), "six");
    EXPECT_EQ(fieldValue(server.record().Heads.at(0), "Host"), server.authority());
    expectScopeUsable(connection);
}

TEST_F(GetExchange, ReadingAPropertyOfTheResponseSendsTheRequest) {
    ScriptedServer& server =
        serve({step::expectHead(), step::send(response("body", {"Content-Type: a/b", "Content-Encoding: identity"}))});
    const Object connection = open(server.url("/"));
    EXPECT_EQ(server.connectionCount(), 0U);
    EXPECT_EQ(connection.get("ContentType").text(), "a/b");
    EXPECT_EQ(connection.get("ContentEncoding").text(), "identity");
    EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
    EXPECT_EQ(receiveBytes(connection), "body");
    EXPECT_EQ(server.record().Heads.size(), 1U);
    expectScopeUsable(connection);
}

TEST_F(GetExchange, SendsNothingOnAClosedConnection) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("never"))});
    const Object connection = makeAdapter();
    connection.set("URL", server.url("/"));
    EXPECT_EQ(connection.get("ContentType").text(), "");
    EXPECT_EQ(connection.get("ResponseCode").number(), 0.0);
    const Array content = connection.call("copyContentToByteArray", {true});
    EXPECT_EQ(content.dimensions(), (std::vector<std::size_t>{0, 1}));
    EXPECT_EQ(server.connectionCount(), 0U);
    expectScopeUsable(connection);
}

TEST_F(GetExchange, OpenOnAnEmptyUrlStaysClosed) {
    const Object connection = makeAdapter();
    connection.call("openConnection");
    EXPECT_EQ(connection.call("copyContentToByteArray", {true}).size(), 0U);
    expectScopeUsable(connection);
}

TEST_F(GetExchange, BytesOfResponsePayloadComeInFrontOfTheResponse) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("behind"))});
    const Object connection = open(server.url("/"));
    connection.set("ResponsePayload", Array::bytes(std::string_view("before ")));
    EXPECT_EQ(receiveBytes(connection), "before behind");
    EXPECT_EQ(connection.get("ResponsePayload").size(), 0U);
    expectScopeUsable(connection);
}

TEST_F(GetExchange, CopyWithoutBufferNeedsAConsumerWhereThereIsContent) {
    ScriptedServer& server =
        serve({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nfour")});
    const Object connection = open(server.url("/"));
    EXPECT_EQ(describe(failureOf([&] { connection.call("copyContentToByteArray", {false}); })),
              "VANTIK:webservices:InternalError(Message contains data but neither consumer nor savePayload was set)");
    expectScopeUsable(connection);
}

TEST_F(GetExchange, CopyWithoutBufferAndConsumerIsGoodForAnEmptyResponse) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response(""))});
    const Object connection = open(server.url("/"));
    EXPECT_EQ(connection.call("copyContentToByteArray", {false}).size(), 0U);
    EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
    expectScopeUsable(connection);
}

TEST_F(GetExchange, HeadRequestHasNoContent) {
    ScriptedServer& server = serve({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n"),
                                    step::expectHead(), step::send(response("next"))});
    const Object connection = open(server.url("/h"));
    connection.set("RequestMethod", "HEAD");
    EXPECT_EQ(connection.call("copyContentToByteArray", {true}).size(), 0U);
    EXPECT_EQ(connection.call("getResponseField", {"content-length"}).text(), "1000");
    EXPECT_EQ(startLine(server.record().Heads.at(0)), "HEAD /h HTTP/1.1");
    connection.call("openConnection");
    EXPECT_EQ(receiveBytes(connection), "next");
    EXPECT_EQ(startLine(server.record().Heads.at(1)), "GET /h HTTP/1.1");
    expectScopeUsable(connection);
}

} // namespace
