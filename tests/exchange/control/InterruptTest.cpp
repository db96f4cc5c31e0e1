// Transfers that the user stops. An interrupt while content is copied stays an interrupt; one while the request is sent
// reaches the caller as a failed connection.
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

using Calls = std::vector<std::string>;

class Interrupt : public HostFixture {
protected:
    void expectInterrupted(const std::function<void()>& action, bool byProgram) {
        try {
            action();
            ADD_FAILURE() << "nothing was interrupted";
        } catch (const vantik::Interrupted& stop) {
            EXPECT_EQ(stop.byProgram(), byProgram);
        } catch (const vantik::Failure& failure) {
            ADD_FAILURE() << failure.identifier() << ": " << failure.what();
        }
        EXPECT_FALSE(host().interruptPending()) << "what was seen does not stay pending";
    }
};

TEST_F(Interrupt, WhileTheAnswerIsAwaitedIsAFailedConnection) {
    ScriptedServer& server =
        serve({step::expectHead(), step::run([this] { host().interrupt(); }), step::awaitPeerEnd()});
    const Object connection = open(server.url("/"));
    EXPECT_EQ(failureOf([&] { receiveBytes(connection); }).identifier(), "VANTIK:webservices:ConnectionFailed");
    EXPECT_FALSE(host().interruptPending());
    EXPECT_TRUE(host().wasInterrupted()) << "this tells it from a failure of the network";
    host().clearInterrupt();
    EXPECT_FALSE(host().wasInterrupted());
    expectScopeUsable(connection);
}

TEST_F(Interrupt, WhileContentIsSentIsAFailedConnection) {
    ScriptedServer& server = serve({step::expectHead(), step::awaitPeerEnd()});
    const ScriptedProvider provider = makeScriptedProvider(host());
    provider->OnRead = [this](int call, std::uint64_t wanted) {
        if (call == 3) {
            host().interrupt();
        }
        return Array::bytes(std::string_view(std::string(wanted, 'x')));
    };
    const Object connection = open(server.url("/"));
    connection.set("RequestMethod", "PUT");
    connection.set("Provider", provider);
    connection.call("removeField", {"Expect"});
    EXPECT_EQ(failureOf([&] { receiveBytes(connection); }).identifier(), "VANTIK:webservices:ConnectionFailed");
    EXPECT_EQ(provider->Wanted.size(), 3U) << "it is seen in the same pass";
    expectScopeUsable(connection);
}

TEST_F(Interrupt, WhileContentIsCopiedStaysAnInterrupt) {
    ScriptedServer& server =
        serve({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\npart"),
               step::await("the copy has begun"), step::run([this] { host().interrupt(); }), step::send(" more"),
               step::awaitPeerEnd()});
    const ScriptedReporter reporter = makeScriptedReporter(host());
    reporter->OnUpdate = [&server](int, std::uint64_t) {
        server.raise("the copy has begun");
        return Array(true);
    };
    const Object connection = open(server.url("/"));
    connection.set("ProgressReporter", reporter);
    expectInterrupted([&] { receiveBytes(connection); }, false);
    EXPECT_EQ(connection.get("ResponsePayload").byteText().substr(0, 4), "part") << "the buffer keeps what had come";
    expectScopeUsable(connection);
}

TEST_F(Interrupt, WhileContentIsCopiedTellsTheConsumer) {
    ScriptedServer& server = serve(
        {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\npart"), step::awaitPeerEnd()});
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    consumer->OnPut = [this](int, const std::string& piece) {
        host().interrupt();
        return Array(static_cast<double>(piece.size()));
    };
    const Object connection = open(server.url("/"));
    connection.set("Consumer", consumer);
    expectInterrupted([&] { connection.call("copyContentToByteArray", {false}); }, false);
    EXPECT_EQ(consumer->Calls, (Calls{"start", "put 4", "interrupt", "close"}));
    expectScopeUsable(connection);
}

TEST_F(Interrupt, TheConsumerAlsoGetsWhatWasSaved) {
    ScriptedServer& server = serve(
        {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\npart"), step::awaitPeerEnd()});
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    consumer->OnPut = [this](int, const std::string& piece) {
        host().interrupt();
        return Array(static_cast<double>(piece.size()));
    };
    const Object connection = open(server.url("/"));
    connection.set("Consumer", consumer);
    expectInterrupted([&] { receiveBytes(connection); }, false);
    EXPECT_EQ(consumer->Calls, (Calls{"start", "put 4", "interrupt", "close", "save 4"}));
    EXPECT_EQ(consumer->Saved, "part");
    expectScopeUsable(connection);
}

TEST_F(Interrupt, ConsumerWithoutTheMethodForItIsClosedAllTheSame) {
    ScriptedServer& server = serve(
        {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\npart"), step::awaitPeerEnd()});
    const ScriptedConsumer consumer = makeScriptedConsumer(host(), {"interruptInternal"});
    consumer->OnPut = [this](int, const std::string& piece) {
        host().interrupt();
        return Array(static_cast<double>(piece.size()));
    };
    const Object connection = open(server.url("/"));
    connection.set("Consumer", consumer);
    expectInterrupted([&] { connection.call("copyContentToByteArray", {false}); }, false);
    EXPECT_EQ(consumer->Calls, (Calls{"start", "put 4", "close"}));
    expectScopeUsable(connection);
}

TEST_F(Interrupt, BeforeTheTransferStopsItsFirstWait) {
    ScriptedServer& server = serve({step::expectHead(), step::awaitPeerEnd()});
    const Object connection = open(server.url("/"));
    host().interrupt();
    EXPECT_EQ(failureOf([&] { receiveBytes(connection); }).identifier(), "VANTIK:webservices:ConnectionFailed");
    expectScopeUsable(connection);
}

TEST_F(Interrupt, AfterATotalTimeEndsASilentTransfer) {
    ScriptedServer& server = serve({step::expectHead(), step::awaitPeerEnd()});
    const Object connection = open(server.url("/"));
    host().interruptAfter(std::chrono::milliseconds(50));
    EXPECT_EQ(failureOf([&] { receiveBytes(connection); }).identifier(), "VANTIK:webservices:ConnectionFailed");
    expectScopeUsable(connection);
}

TEST_F(Interrupt, ImpersonationEndsWithTheSend) {
    std::size_t entries = 0;
    std::size_t exits = 0;
    host().onImpersonation([&] { ++entries; }, [&] { ++exits; });
    ScriptedServer& server =
        serve({step::expectHead(), step::run([this] { host().interrupt(); }), step::awaitPeerEnd()});
    const Object connection = open(server.url("/"));
    failureOf([&] { receiveBytes(connection); });
    EXPECT_EQ(entries, 1U);
    EXPECT_EQ(exits, 1U);
    EXPECT_EQ(host().impersonationDepth(), 0U);
    expectScopeUsable(connection);
    host().onImpersonation({}, {});
}

} // namespace
