// Progress reporters: what they are told, when, and how they stop a transfer.
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

using Calls = std::vector<std::string>;

class Progress : public HostFixture {
protected:
    // An upload whose good answer begins before its content is complete, so that the sending side reports. The provider
    // waits for the head to be on its way before it gives its second piece, and goes on until a report shows that it
    // has come.
    struct Upload {
        ScriptedServer& Server;
        ScriptedProvider Provider;
        Object Connection;
    };
    Upload openEarlyAnsweredUpload(int pieces, const ScriptedReporter& reporter) {
        ScriptedServer& server = serve({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n"),
                                        step::signal("head"), step::expectChunkedBody(), step::send("done")});
        const ScriptedProvider provider = makeScriptedProvider(host());
        provider->OnRead = [&server, pieces, reports = reporter.operator->()](int call, std::uint64_t) {
            if (call == 2) {
                server.waitFor("head");
            }
            return Array::bytes(std::string_view(call <= pieces || reports->Counts.empty() ? "0123456789" : ""));
        };
        const Object connection = open(server.url("/"));
        connection.set("RequestMethod", "PUT");
        connection.set("Provider", provider);
        connection.set("ProgressReporter", reporter);
        connection.call("removeField", {"Expect"});
        return {server, provider, connection};
    }
};

TEST_F(Progress, OfAReceivedBodyCountsUpToItsLength) {
    const std::string body = patternedBytes(200000);
    ScriptedServer& server = serve({step::expectHead(), step::send(response(body))});
    const ScriptedReporter reporter = makeScriptedReporter(host());
    const Object connection = open(server.url("/"));
    connection.set("ProgressReporter", reporter);
    EXPECT_EQ(difference(receiveBytes(connection), body), "");
    ASSERT_FALSE(reporter->Counts.empty());
    EXPECT_EQ(std::adjacent_find(reporter->Counts.begin(), reporter->Counts.end(), std::greater_equal<>()),
              reporter->Counts.end())
        << "each report has more than the one before";
    EXPECT_EQ(reporter->Counts.back(), body.size());
    expectScopeUsable(connection);
}

TEST_F(Progress, OfAnEmptyBodyIsNotReported) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response(""))});
    const ScriptedReporter reporter = makeScriptedReporter(host());
    const Object connection = open(server.url("/"));
    connection.set("ProgressReporter", reporter);
    receiveBytes(connection);
    EXPECT_TRUE(reporter->Counts.empty());
    expectScopeUsable(connection);
}

// The head of the answer comes after the last byte, and before it nothing is reported.
TEST_F(Progress, OfAPlainUploadIsNotReported) {
    ScriptedServer& server =
        serve({step::expectHead(), step::continueIfExpected(), step::expectChunkedBody(), step::send(response(""))});
    const ScriptedReporter reporter = makeScriptedReporter(host());
    const Object connection = open(server.url("/"));
    connection.set("RequestMethod", "PUT");
    connection.set("ProgressReporter", reporter);
    connection.set("Provider", makeScriptedProvider(host(), patternedBytes(100000)));
    receiveBytes(connection);
    EXPECT_TRUE(reporter->Counts.empty());
    expectScopeUsable(connection);
}

TEST_F(Progress, OfAnUploadIsReportedOnceTheHeadIsThere) {
    const ScriptedReporter reporter = makeScriptedReporter(host());
    const Upload upload = openEarlyAnsweredUpload(6, reporter);
    EXPECT_EQ(receiveBytes(upload.Connection), "done");
    const std::size_t sent = upload.Server.record().Bodies.at(0).size();
    EXPECT_GE(sent, 60U);
    ASSERT_GE(reporter->Counts.size(), 2U);
    EXPECT_EQ(reporter->Counts.back(), 4U) << "the count of receiving does not go on from that of sending";
    EXPECT_TRUE(std::is_sorted(reporter->Counts.begin(), reporter->Counts.end() - 1));
    EXPECT_EQ(*(reporter->Counts.end() - 2), sent);
    expectScopeUsable(upload.Connection);
}

TEST_F(Progress, StopWhileSendingIsAFailedConnection) {
    const ScriptedReporter reporter = makeScriptedReporter(host());
    reporter->OnUpdate = [](int, std::uint64_t) { return Array(false); };
    const Upload upload = openEarlyAnsweredUpload(1000, reporter);
    EXPECT_EQ(failureOf([&] { receiveBytes(upload.Connection); }).identifier(), "VANTIK:webservices:ConnectionFailed");
    EXPECT_EQ(reporter->Counts.size(), 1U);
    expectScopeUsable(upload.Connection);
}

TEST_F(Progress, StopWhileReceivingIsAnInterruptAndClosesTheConsumer) {
    ScriptedServer& server = serve(
        {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\npart"), step::awaitPeerEnd()});
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    const ScriptedReporter reporter = makeScriptedReporter(host());
    reporter->OnUpdate = [](int, std::uint64_t) { return Array(false); };
    const Object connection = open(server.url("/"));
    connection.set("Consumer", consumer);
    connection.set("ProgressReporter", reporter);
    try {
        connection.call("copyContentToByteArray", {false});
        ADD_FAILURE() << "nothing was stopped";
    } catch (const vantik::Interrupted& stop) {
        EXPECT_TRUE(stop.byProgram());
    }
    EXPECT_EQ(consumer->Calls, (Calls{"start", "put 4", "close"})) << "no interruptInternal: the host did not ask";
    expectScopeUsable(connection);
}

TEST_F(Progress, AnswerThatIsNotOneValueFails) {
    for (const Array& answer : {Array(), Array::logicals({true, true}), Array::logicals({})}) {
        ScriptedServer& server = serve({step::expectHead(), step::send(response("body"))});
        const ScriptedConsumer consumer = makeScriptedConsumer(host());
        const ScriptedReporter reporter = makeScriptedReporter(host());
        reporter->OnUpdate = [&](int, std::uint64_t) { return answer; };
        const Object connection = open(server.url("/"));
        connection.set("Consumer", consumer);
        connection.set("ProgressReporter", reporter);
        EXPECT_EQ(describe(failureOf([&] { connection.call("copyContentToByteArray", {false}); })),
                  "VANTIK:webservices:InternalError(Expected ProgressReporter.update to return scalar.)");
        EXPECT_EQ(consumer->Calls.back(), "close");
        reporter->OnUpdate = {};
        expectScopeUsable(connection);
    }
}

TEST_F(Progress, FailureOfTheReporterReachesTheCaller) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("body"))});
    const ScriptedReporter reporter = makeScriptedReporter(host());
    reporter->OnUpdate = [](int, std::uint64_t) -> Array { throw std::domain_error("no display"); };
    const Object connection = open(server.url("/"));
    connection.set("ProgressReporter", reporter);
    EXPECT_THROW(receiveBytes(connection), std::domain_error);
    expectScopeUsable(connection);
}

TEST_F(Progress, ReporterWithoutItsMethodIsReported) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("body"))});
    const ScriptedReporter reporter = makeScriptedReporter(host(), {"update"});
    const Object connection = open(server.url("/"));
    connection.set("ProgressReporter", reporter);
    EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })),
              "VANTIK:webservices:InternalError(vantik.net.http.internal.ProgressReporter.update not found)");
    expectScopeUsable(connection);
}

} // namespace
