// What tests that use the server would not notice: that it says what went wrong, and that it ends.
#include "tests/support/server/ScriptedServer.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using namespace testsupport;

const std::string kRequest = "GET /x HTTP/1.1\r\nHost: h\r\n\r\n";

TEST(ScriptedServer, SaysAtWhichStepThePeerWent) {
    ScriptedServer server({step::expectHead(), step::expectBody(10), step::send("never")});
    {
        const SocketHandle client = connectLoopback(server.port());
        writeAll(client, kRequest + "12345");
    }
    const Record record = server.waitUntilDone();
    EXPECT_EQ(record.StepsDone, 1U);
    EXPECT_TRUE(record.PeerEnded);
    EXPECT_EQ(record.Problem, "the peer has gone at step 1");
    EXPECT_EQ(record.Received, kRequest + "12345");
}

TEST(ScriptedServer, NoticesThePeerGoingWhileItAwaitsAnEvent) {
    ScriptedServer server({step::await("never")});
    connectLoopback(server.port()).reset();
    EXPECT_TRUE(server.waitUntilDone().PeerEnded);
}

TEST(ScriptedServer, SendsAnInterimHeadOnlyWhereAskedFor) {
    for (const bool asked : {false, true}) {
        ScriptedServer server({step::expectHead(), step::continueIfExpected(), step::send("end"), step::close()});
        const SocketHandle client = connectLoopback(server.port());
        writeAll(client, std::string("PUT / HTTP/1.1\r\n") + (asked ? "Expect: 100-continue\r\n\r\n" : "\r\n"));
        EXPECT_EQ(readToEnd(client), asked ? "HTTP/1.1 100 Continue\r\n\r\nend" : "end");
    }
}

TEST(ScriptedServer, HalfCloses) {
    ScriptedServer server({step::send("a"), step::halfClose(), step::expectHead(), step::awaitPeerEnd()});
    SocketHandle client = connectLoopback(server.port());
    EXPECT_EQ(readToEnd(client), "a");
    writeAll(client, kRequest + "more");
    client.reset();
    const Record record = server.waitUntilDone();
    EXPECT_EQ(record.Heads.size(), 1U);
    EXPECT_EQ(record.Received, kRequest + "more");
    EXPECT_EQ(record.Problem, "");
}

TEST(ScriptedServer, PlaysOneScriptPerConnectionAndClosesFurtherOnes) {
    ScriptedServer server(std::vector<Script>{{step::send("one")}, {step::send("two"), step::close()}});
    const SocketHandle first = connectLoopback(server.port());
    EXPECT_EQ(readSome(first), "one");
    EXPECT_EQ(readToEnd(connectLoopback(server.port())), "two");
    EXPECT_EQ(readToEnd(connectLoopback(server.port())), "");
    EXPECT_EQ(server.connectionCount(), 3U);
    EXPECT_FALSE(server.record().Ended);
    EXPECT_EQ(server.record(2).Problem, "no script for this connection");
}

TEST(ScriptedServer, StopsWithConnectionsInEveryState) {
    SocketHandle idle;
    SocketHandle waiting;
    SocketHandle blocked;
    {
        ScriptedServer server(std::vector<Script>{
            {step::expectHead()}, {step::await("never")}, {step::send(std::string(50'000'000, 'x'))}});
        idle = connectLoopback(server.port());
        waiting = connectLoopback(server.port());
        blocked = connectLoopback(server.port());
        EXPECT_FALSE(readSome(blocked).empty());
    }
    EXPECT_EQ(readToEnd(idle), "");
}

TEST(ScriptedServer, ReportsABodyThatIsNotChunked) {
    for (const char* body : {"nonsense\r\n", "\r\n", "1\r\nab\r\n"}) {
        ScriptedServer server({step::expectHead(), step::expectChunkedBody()});
        const SocketHandle client = connectLoopback(server.port());
        writeAll(client, kRequest + body);
        EXPECT_NE(server.waitUntilDone().Problem, "") << body;
    }
}

} // namespace
