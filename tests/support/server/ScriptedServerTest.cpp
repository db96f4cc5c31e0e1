#include "tests/support/server/ScriptedServer.h"

#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <system_error>

namespace {

using namespace testsupport;

const std::string kRequest = "GET /x HTTP/1.1\r\nHost: h\r\n\r\n";

TEST(ScriptedServer, PlaysBytesAndRecordsWhatItSaw) {
    for (const Pace pace : {Pace::Whole, Pace::SingleBytes}) {
        ScriptedServer server({step::expectHead(), step::send("answer"), step::close()}, pace);
        const SocketHandle client = connectLoopback(server.port());
        writeAll(client, kRequest);
        EXPECT_EQ(readToEnd(client), "answer");
        const Record record = server.waitUntilDone();
        ASSERT_EQ(record.Heads.size(), 1U);
        EXPECT_EQ(record.Heads[0], kRequest);
        EXPECT_EQ(record.Received, kRequest);
        EXPECT_EQ(record.StepsDone, 3U);
        EXPECT_TRUE(record.Ended);
        EXPECT_EQ(record.Problem, "");
    }
}

TEST(ScriptedServer, ListensOnIPv6) {
    ScriptedServer server({step::send("six"), step::close()}, Pace::Whole, Family::IPv6);
    EXPECT_EQ(readToEnd(connectLoopback(server.port(), Family::IPv6)), "six");
    EXPECT_EQ(server.url("/a"), "http://[::1]:" + std::to_string(server.port()) + "/a");
}

TEST(ScriptedServer, ReadsBodiesOfKnownLengthAndInChunks) {
    const std::string body = patternedBytes(40000);
    ScriptedServer server({step::expectHead(), step::expectBody(body.size()), step::expectHead(),
                           step::expectChunkedBody(), step::send("done"), step::close()});
    const SocketHandle client = connectLoopback(server.port());
    writeAll(client, kRequest + body + kRequest + chunked(body, 777));
    EXPECT_EQ(readToEnd(client), "done");
    const Record record = server.record();
    ASSERT_EQ(record.Bodies.size(), 2U);
    EXPECT_EQ(difference(record.Bodies[0], body), "");
    EXPECT_EQ(difference(record.Bodies[1], body), "");
    EXPECT_EQ(record.Heads.size(), 2U);
}

TEST(ScriptedServer, DiscardsWithoutKeeping) {
    ScriptedServer server(
        {step::expectHead(), step::discard(200000), step::expectBody(3), step::send("done"), step::close()});
    const SocketHandle client = connectLoopback(server.port());
    writeAll(client, kRequest);
    writeAll(client, std::string(200000, 'x') + "end");
    EXPECT_EQ(readToEnd(client), "done");
    EXPECT_EQ(server.record().Bodies, std::vector<std::string>{"end"});
    EXPECT_LT(server.record().Received.size(), 200000U);
}

TEST(ScriptedServer, SendsAnInterimHeadOnlyWhereAskedFor) {
    for (const bool asked : {false, true}) {
        ScriptedServer server({step::expectHead(), step::continueIfExpected(), step::send("end"), step::close()});
        const SocketHandle client = connectLoopback(server.port());
        writeAll(client, std::string("PUT / HTTP/1.1\r\n") + (asked ? "Expect: 100-continue\r\n\r\n" : "\r\n"));
        EXPECT_EQ(readToEnd(client), asked ? "HTTP/1.1 100 Continue\r\n\r\nend" : "end");
    }
}

TEST(ScriptedServer, EventsGoBothWays) {
    std::atomic<bool> ran = false;
    ScriptedServer server({step::expectHead(), step::signal("seen"), step::await("go on"),
                           step::run([&] { ran = true; }), step::send("on"), step::close()});
    const SocketHandle client = connectLoopback(server.port());
    writeAll(client, kRequest);
    server.waitFor("seen");
    EXPECT_EQ(server.record().StepsDone, 2U);
    EXPECT_FALSE(ran);
    server.raise("go on");
    EXPECT_EQ(readToEnd(client), "on");
    EXPECT_TRUE(ran);
}

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

TEST(ScriptedServer, StaysSilentUntilThePeerCloses) {
    ScriptedServer server({step::expectHead(), step::awaitPeerEnd()});
    SocketHandle client = connectLoopback(server.port());
    writeAll(client, kRequest + "more");
    client.reset();
    const Record record = server.waitUntilDone();
    EXPECT_EQ(record.Problem, "");
    EXPECT_EQ(record.StepsDone, 2U);
    EXPECT_EQ(record.Received, kRequest + "more");
}

TEST(ScriptedServer, HalfClosesAndResets) {
    {
        ScriptedServer server({step::send("a"), step::halfClose(), step::expectHead(), step::awaitPeerEnd()});
        SocketHandle client = connectLoopback(server.port());
        EXPECT_EQ(readToEnd(client), "a");
        writeAll(client, kRequest);
        client.reset();
        EXPECT_EQ(server.waitUntilDone().Heads.size(), 1U);
    }
    ScriptedServer server({step::expectHead(), step::reset()});
    const SocketHandle client = connectLoopback(server.port());
    writeAll(client, kRequest);
    EXPECT_THROW(readToEnd(client), std::system_error);
}

TEST(ScriptedServer, GivesEachConnectionItsScriptAndClosesFurtherOnes) {
    ScriptedServer server(std::vector<Script>{{step::send("one")}, {step::send("two"), step::close()}});
    const SocketHandle first = connectLoopback(server.port());
    EXPECT_EQ(readSome(first), "one");
    EXPECT_EQ(readToEnd(connectLoopback(server.port())), "two");
    EXPECT_EQ(readToEnd(connectLoopback(server.port())), "");
    EXPECT_EQ(server.connectionCount(), 3U);
    EXPECT_EQ(server.openConnections(), 1U);
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
    ScriptedServer server({step::expectHead(), step::expectChunkedBody()});
    const SocketHandle client = connectLoopback(server.port());
    writeAll(client, kRequest + "nonsense\r\n");
    EXPECT_EQ(server.waitUntilDone().Problem, "not a chunk size: nonsense");
}

} // namespace
