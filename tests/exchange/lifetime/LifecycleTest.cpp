// Objects, opens and closes on the one pair of handles of a scope.
#include "tests/support/host/HostFixture.h"
#include "tests/support/process/StandardOutputCapture.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

class Lifecycle : public HostFixture {};

const std::string kOnlyOne = "VANTIK:http:OnlyOneTransferAtATime()";

TEST_F(Lifecycle, SecondObjectIsRefusedWhileOneIsOpen) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("first"))});
    const Object first = open(server.url("/"));
    EXPECT_EQ(describe(failureOf([&] { makeAdapter(); })), kOnlyOne);
    EXPECT_EQ(receiveBytes(first), "first") << "the open connection is not touched";
    EXPECT_EQ(describe(failureOf([&] { makeAdapter(); })), kOnlyOne) << "a finished transfer is still open";
    first.call("closeConnection");
    makeAdapter();
    expectScopeUsable();
}

TEST_F(Lifecycle, LoadingTheModuleAgainDoesNoHarm) {
    const std::vector<std::string> classes = host().classNames();
    host().load("netrove"); // by name this time: it lies beside the host's library
    EXPECT_EQ(host().classNames(), classes);
    expectScopeUsable();
}

TEST_F(Lifecycle, DestructionClosesToo) {
    {
        const Object first = open("http://127.0.0.1:9/");
        EXPECT_EQ(describe(failureOf([&] { makeAdapter(); })), kOnlyOne);
    }
    makeAdapter();
    expectScopeUsable();
}

TEST_F(Lifecycle, ClosingTwiceIsHarmless) {
    const Object connection = open("http://127.0.0.1:9/");
    connection.call("closeConnection");
    connection.call("closeConnection");
    expectScopeUsable();
}

TEST_F(Lifecycle, CloseAllConnectionsDropsTheConnectionsThatAreKept) {
    ScriptedServer& server =
        serve(std::vector<Script>(2, {step::expectHead(), step::send(response("x")), step::expectHead()}));
    const Object connection = open(server.url("/"));
    receiveBytes(connection);
    connection.call("closeConnection");
    connection.call("closeAllConnections");
    EXPECT_TRUE(server.waitUntilDone(0).PeerEnded);
    connection.call("openConnection");
    EXPECT_EQ(receiveBytes(connection), "x");
    EXPECT_EQ(server.connectionCount(), 2U);
    expectScopeUsable(connection);
}

TEST_F(Lifecycle, CloseAllConnectionsBeforeAnyOpenIsHarmless) {
    makeAdapter().call("closeAllConnections");
    expectScopeUsable();
}

TEST_F(Lifecycle, CloseAllConnectionsIsRefusedWhileOneIsOpen) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("still there"))});
    const Object connection = open(server.url("/"));
    EXPECT_EQ(describe(failureOf([&] { connection.call("closeAllConnections"); })),
              "VANTIK:webservices:InternalError(resetHandles() called when connection is open)");
    EXPECT_EQ(receiveBytes(connection), "still there");
    expectScopeUsable(connection);
}

// A reset forgets every option; behind a 401 the handle is kept as it is, and so is the method that was set on it.
TEST_F(Lifecycle, ReopenForgetsTheMethodExceptBehindA401) {
    ScriptedServer& server =
        serve({step::expectHead(), step::send(response("", {}, "401 Unauthorized")), step::expectHead(),
               step::send(response("")), step::expectHead(), step::send(response(""))});
    const Object connection = open(server.url("/"));
    connection.set("RequestMethod", "DELETE");
    connection.call("setRequestProperty", {"X-Field", "1"});
    receiveBytes(connection);
    connection.call("openConnection");
    receiveBytes(connection);
    connection.call("openConnection");
    receiveBytes(connection);
    const std::vector<std::string> heads = server.record().Heads;
    ASSERT_EQ(heads.size(), 3U);
    EXPECT_EQ(startLine(heads[0]), "DELETE / HTTP/1.1");
    EXPECT_EQ(startLine(heads[1]), "DELETE / HTTP/1.1");
    EXPECT_EQ(startLine(heads[2]), "GET / HTTP/1.1");
    EXPECT_EQ(fieldValue(heads[1], "X-Field"), std::nullopt) << "the fields are cleared in every case";
    expectScopeUsable(connection);
}

// Without a copy of the content nothing clears the mark of a finished exchange.
TEST_F(Lifecycle, ReopenWithoutCopyingSendsNothing) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("x")), step::expectHead()});
    const Object connection = open(server.url("/"));
    EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
    connection.call("openConnection");
    EXPECT_FALSE(connection.get("Sent").truth());
    EXPECT_EQ(connection.get("ContentType").text(), "");
    EXPECT_EQ(server.record().Heads.size(), 1U);
    expectScopeUsable(connection);
}

// There is nothing to copy then: what the handle would do without a send is nobody's response.
TEST_F(Lifecycle, CopyBehindAReopenWithoutACloseFailsAndSendsNothing) {
    ScriptedServer& server =
        serve({step::expectHead(), step::send(response("x")), step::expectHead(), step::send(response("second"))});
    const Object connection = open(server.url("/"));
    EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
    connection.call("openConnection");
    const StandardOutputCapture output;
    EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })),
              "VANTIK:webservices:InternalError(The connection was opened again before the last response was copied. "
              "Close it first.)");
    EXPECT_EQ(output.text(), "");
    EXPECT_EQ(server.record().Heads.size(), 1U);
    connection.call("closeConnection");
    connection.call("openConnection");
    EXPECT_EQ(receiveBytes(connection), "second");
    expectScopeUsable(connection);
}

// libcurl may call the trace callback while a handle is removed, reset or cleaned up.
TEST_F(Lifecycle, ObjectMayBeDroppedInTheMiddleOfATransfer) {
    ScriptedServer& server = serve(
        {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\npart"), step::awaitPeerEnd()});
    {
        const StandardOutputCapture output;
        const Object connection = makeAdapter();
        connection.set("Debug", std::int32_t{2});
        connection.set("URL", server.url("/"));
        connection.set("TimeoutInMilliseconds", Array::doubles({60000, 60000, 60000}));
        connection.call("openConnection");
        EXPECT_EQ(connection.get("ResponseCode").number(), 200.0) << "the head is complete, the content is not";
    }
    EXPECT_TRUE(server.waitUntilDone().PeerEnded);
    expectScopeUsable();
}

TEST_F(Lifecycle, ReopenInTheMiddleOfATransferStartsAfresh) {
    ScriptedServer& server = serve(std::vector<Script>{
        {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\npart"), step::awaitPeerEnd()},
        {step::expectHead(), step::send(response("fresh"))}});
    const Object connection = open(server.url("/"));
    EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
    connection.call("closeConnection");
    connection.call("openConnection");
    EXPECT_EQ(receiveBytes(connection), "fresh");
    expectScopeUsable(connection);
}

TEST_F(Lifecycle, ScopesOnSeveralThreadsDoNotMeet) {
    ScriptedServer& server = serve(std::vector<Script>(
        4, {step::expectHead(), step::send(response("one")), step::expectHead(), step::send(response("two"))}));
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([url = server.url("/")] {
            vantik::Host own;
            own.load(modulePath());
            const Object connection = own.create(kAdapterClass, {true});
            connection.set("URL", url);
            for (const char* expected : {"one", "two"}) {
                connection.call("openConnection");
                EXPECT_EQ(receiveBytes(connection), expected);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(server.connectionCount(), 4U) << "each scope has handles of its own";
    expectScopeUsable();
}

} // namespace
