// Servers that answer before the request's content is complete.
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

class EarlyAnswer : public HostFixture {
protected:
    // Content without end.
    ScriptedProvider makeEndlessProvider() {
        ScriptedProvider provider = makeScriptedProvider(host());
        provider->OnRead = [](int, std::uint64_t wanted) {
            return Array::bytes(std::string_view(std::string(wanted, 'x')));
        };
        return provider;
    }
    Object openUpload(const std::string& url, const ScriptedProvider& provider) {
        Object connection = open(url);
        connection.set("RequestMethod", "PUT");
        connection.set("Provider", provider);
        return connection;
    }
};

TEST_F(EarlyAnswer, RefusalInPlaceOfTheInterimHead) {
    ScriptedServer& server =
        serve({step::expectHead(), step::send(response("too large", {"Connection: close"}, "413 Too Large")),
               step::halfClose(), step::awaitPeerEnd()});
    const ScriptedProvider provider = makeEndlessProvider();
    const Object connection = openUpload(server.url("/"), provider);
    EXPECT_EQ(receiveBytes(connection), "too large");
    EXPECT_EQ(resultTexts(connection, "getStatusLine", 3), (std::vector<std::string>{"HTTP/1.1", "413", "Too Large"}));
    expectScopeUsable(connection);
}

TEST_F(EarlyAnswer, RefusalInTheMiddleOfTheContentEndsTheUpload) {
    ScriptedServer& server =
        serve({step::expectHead(), step::expectBody(50000),
               step::send(response("enough", {"Connection: close"}, "413 Too Large")), step::awaitPeerEnd()});
    const ScriptedProvider provider = makeEndlessProvider();
    const Object connection = openUpload(server.url("/"), provider);
    connection.call("removeField", {"Expect"});
    EXPECT_EQ(receiveBytes(connection), "enough");
    EXPECT_EQ(connection.get("ResponseCode").number(), 413.0);
    expectScopeUsable(connection);
}

TEST_F(EarlyAnswer, PayloadIsCutShortByARefusal) {
    ScriptedServer& server =
        serve({step::expectHead(), step::expectBody(1000),
               step::send(response("no", {"Connection: close"}, "403 Forbidden")), step::awaitPeerEnd()});
    const Object connection = open(server.url("/"));
    connection.set("RequestMethod", "PUT");
    connection.set("Payload", Array::bytes(std::string_view(patternedBytes(30'000'000))));
    connection.call("removeField", {"Expect"});
    EXPECT_EQ(receiveBytes(connection), "no");
    EXPECT_EQ(connection.get("ResponseCode").number(), 403.0);
    EXPECT_LT(server.waitUntilDone().Received.size(), 30'000'000U);
    expectScopeUsable(connection);
}

// A good status does not end the content: the upload goes on behind the head of the answer.
TEST_F(EarlyAnswer, SuccessInTheMiddleLetsTheContentGoOn) {
    const std::string body = patternedBytes(100000);
    ScriptedServer& server = serve({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n"),
                                    step::expectChunkedBody(), step::send("done")});
    const ScriptedProvider provider = makeScriptedProvider(host(), body);
    const Object connection = openUpload(server.url("/"), provider);
    connection.call("removeField", {"Expect"});
    EXPECT_EQ(receiveBytes(connection), "done");
    EXPECT_EQ(difference(server.record().Bodies.at(0), body), "");
    expectScopeUsable(connection);
}

// On the same network connection the next request's head would be taken for the content that never went out.
TEST_F(EarlyAnswer, SuccessInPlaceOfTheInterimHeadEndsTheNetworkConnection) {
    ScriptedServer& server = serve({Script{step::expectHead(), step::send(response("early")), step::awaitPeerEnd()},
                                    Script{step::expectHead(), step::send(response("next"))}});
    const Object connection = open(server.url("/"));
    connection.set("RequestMethod", "PUT");
    connection.set("Payload", Array::bytes(std::string_view(patternedBytes(200000))));
    EXPECT_EQ(receiveBytes(connection), "early");
    connection.call("closeConnection");
    connection.set("Payload", Array());
    connection.call("openConnection");
    EXPECT_EQ(receiveBytes(connection), "next");
    EXPECT_TRUE(server.waitUntilDone().PeerEnded);
    EXPECT_EQ(server.connectionCount(), 2U);
}

TEST_F(EarlyAnswer, ContentThatGoesOutAfterTheAnswerKeepsTheNetworkConnection) {
    ScriptedServer& server =
        serve({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n"),
               step::expectChunkedBody(), step::send("done"), step::expectHead(), step::send(response("next"))});
    const ScriptedProvider provider = makeScriptedProvider(host(), patternedBytes(100000));
    const Object connection = openUpload(server.url("/"), provider);
    connection.call("removeField", {"Expect"});
    EXPECT_EQ(receiveBytes(connection), "done");
    connection.call("closeConnection");
    connection.set("Provider", Array());
    connection.call("openConnection");
    EXPECT_EQ(receiveBytes(connection), "next");
    EXPECT_EQ(server.connectionCount(), 1U);
}

TEST_F(EarlyAnswer, CloseInTheMiddleOfTheContentIsAFailure) {
    ScriptedServer& server = serve({step::expectHead(), step::expectBody(50000), step::reset()});
    const ScriptedProvider provider = makeEndlessProvider();
    const Object connection = openUpload(server.url("/"), provider);
    connection.call("removeField", {"Expect"});
    const std::string identifier = failureOf([&] { receiveBytes(connection); }).identifier();
    // Whether libcurl notices it on sending or on receiving is a matter of moments.
    EXPECT_TRUE(identifier == "VANTIK:webservices:ConnectionRefused" ||
                identifier == "VANTIK:webservices:CopyContentToDataStreamError")
        << identifier;
    expectScopeUsable(connection);
}

} // namespace
