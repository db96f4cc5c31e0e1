// A send that failed before its head was out is due again, and the next question about the response sends it. libcurl
// still has the first attempt then, with what belonged to it.
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

// The server plays a SOCKS proxy as well: as long as that does not answer, no byte of the request goes out. It stops
// the first attempt itself, so that this one has come in before the second: a connection given up earlier never would.
class SendAgain : public HostFixture {
protected:
    ScriptedServer& serveAtTheSecondAttempt(const Script& exchange) {
        Script second{step::expectBody(9), step::send(std::string("\0\x5a\0\0\0\0\0\0", 8))};
        second.insert(second.end(), exchange.begin(), exchange.end());
        return serve(std::vector<Script>{{step::run([this] { host().interrupt(); }), step::awaitPeerEnd()}, second});
    }
    Object openBehind(const ScriptedServer& server) {
        Object connection = makeAdapter();
        connection.set("URL", "http://127.0.0.1/path");
        connection.call("openProxyConnection", {Array::structure({{"Host", "socks4://127.0.0.1"},
                                                                  {"Port", static_cast<double>(server.port())}})});
        return connection;
    }
    void expectStopped(const Object& connection) {
        EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })),
                  "VANTIK:webservices:ConnectionFailed(The operation was stopped on request.)");
        EXPECT_FALSE(connection.get("Sent").number() != 0.0);
    }
};

TEST_F(SendAgain, ContentOfAProviderArrivesWhole) {
    for (const std::size_t size : {7U, 16384U, 100000U}) {
        const std::string body = patternedBytes(size);
        ScriptedServer& server = serveAtTheSecondAttempt(
            {step::expectHead(), step::continueIfExpected(), step::expectChunkedBody(), step::send(response("taken"))});
        const ScriptedProvider provider = makeScriptedProvider(host(), body);
        const Object connection = openBehind(server);
        connection.set("RequestMethod", "PUT");
        connection.set("Provider", provider);
        expectStopped(connection);
        EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
        EXPECT_EQ(receiveBytes(connection), "taken");
        EXPECT_EQ(provider->Starts, 2);
        EXPECT_EQ(difference(server.record(1).Bodies.at(1), body), "");
        expectScopeUsable(connection);
    }
}

TEST_F(SendAgain, ContentFromMemoryArrivesWhole) {
    const std::string body = patternedBytes(100000);
    ScriptedServer& server = serveAtTheSecondAttempt(
        {step::expectHead(), step::continueIfExpected(), step::expectChunkedBody(), step::send(response("taken"))});
    const Object connection = openBehind(server);
    connection.set("RequestMethod", "PUT");
    connection.set("Payload", Array::bytes(std::string_view(body)));
    expectStopped(connection);
    EXPECT_EQ(receiveBytes(connection), "taken");
    EXPECT_EQ(difference(server.record(1).Bodies.at(1), body), "");
    expectScopeUsable(connection);
}

TEST_F(SendAgain, RequestWithoutContentIsSentOnce) {
    ScriptedServer& server = serveAtTheSecondAttempt({step::expectHead(), step::send(response("welcome"))});
    const Object connection = openBehind(server);
    expectStopped(connection);
    EXPECT_EQ(receiveBytes(connection), "welcome");
    EXPECT_EQ(startLine(server.record(1).Heads.at(0)), "GET /path HTTP/1.1");
    EXPECT_EQ(server.connectionCount(), 2U);
    expectScopeUsable(connection);
}

} // namespace
