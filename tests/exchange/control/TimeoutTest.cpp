// Silence limits and the limit of connecting. All limits are small, and no test looks at how long it took.
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/server/UnreachablePorts.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <chrono>
#include <limits>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

constexpr double kUnlimited = std::numeric_limits<double>::infinity();

class Timeouts : public HostFixture {
protected:
    Object openWithTimeouts(const std::string& url, const Array& timeouts, bool optionsMode = true) {
        Object connection = makeAdapter(optionsMode);
        connection.set("URL", url);
        connection.set("TimeoutInMilliseconds", timeouts);
        connection.call("openConnection");
        return connection;
    }

    // URL, seconds, (reason) and option of a timeout, as a row of texts. The reason is the host's text.
    std::vector<std::string> timeoutOf(const std::function<void()>& action) {
        const vantik::Message message = failureOf(action);
        EXPECT_EQ(message.identifier(), "VANTIK:webservices:Timeout") << message.Text;
        if (message.Arguments.size() != 4) {
            ADD_FAILURE() << message.Arguments.size() << " arguments";
            return {};
        }
        EXPECT_NE(std::get<std::string>(message.Arguments[2]), "");
        return {std::get<std::string>(message.Arguments[0]), std::get<std::string>(message.Arguments[1]),
                std::get<std::string>(message.Arguments[3])};
    }
};

using Texts = std::vector<std::string>;

struct SilenceRow {
    bool OptionsMode;
    std::vector<double> Limits;
    const char* Seconds;
    const char* Option;
};

const SilenceRow kSilenceRows[] = {
    {true, {5000, 200}, "0.200", "HTTPOptions.ResponseTimeout"},
    {false, {5000, 200}, "0.200", "weboptions.Timeout"},
    {true, {5000, 200, 200}, "0.200", "HTTPOptions.ResponseTimeout"}, // a tie goes to the response
    {true, {5000, 60000, 150}, "0.150", "HTTPOptions.DataTimeout"},   // the shorter one governs
    {true, {5000, kUnlimited, 150}, "0.150", "HTTPOptions.DataTimeout"},
    {false, {5000, 60000, 150}, "0.150", "HTTPOptions.DataTimeout"},
    {true, {5000, 150, 60000}, "0.150", "HTTPOptions.ResponseTimeout"},
    {true, {5000, -kUnlimited, 150}, "0.150", "HTTPOptions.DataTimeout"},
    {true, {5000, 150, -kUnlimited}, "0.150", "HTTPOptions.ResponseTimeout"},
};

TEST_F(Timeouts, SilentServerOnAFreshConnection) {
    for (const SilenceRow& row : kSilenceRows) {
        ScriptedServer& server = serve({step::expectHead(), step::awaitPeerEnd()});
        const Object connection = openWithTimeouts(server.url("/"), Array::doubles(row.Limits), row.OptionsMode);
        EXPECT_EQ(timeoutOf([&] { receiveBytes(connection); }), (Texts{server.url("/"), row.Seconds, row.Option}));
        expectScopeUsable(connection);
    }
}

// The time of connecting reads as zero for the whole of a transfer on a connection that is used again; the limits hold
// all the same.
TEST_F(Timeouts, SilentServerOnAReusedConnection) {
    for (const SilenceRow& row : kSilenceRows) {
        ScriptedServer& server =
            serve({step::expectHead(), step::send(response("first")), step::expectHead(), step::awaitPeerEnd()});
        const Object connection = openWithTimeouts(server.url("/"), Array::doubles({60000}), row.OptionsMode);
        EXPECT_EQ(receiveBytes(connection), "first");
        connection.set("TimeoutInMilliseconds", Array::doubles(row.Limits)); // the first answer may take its time
        connection.call("openConnection");
        EXPECT_EQ(timeoutOf([&] { receiveBytes(connection); }), (Texts{server.url("/"), row.Seconds, row.Option}));
        EXPECT_EQ(server.connectionCount(), 1U);
        expectScopeUsable(connection);
    }
}

TEST_F(Timeouts, SilenceInTheMiddleOfTheHead) {
    ScriptedServer& server =
        serve({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nX-A: 1\r\n"), step::awaitPeerEnd()});
    const Object connection = openWithTimeouts(server.url("/"), Array::doubles({5000, 200}));
    EXPECT_EQ(timeoutOf([&] { receiveBytes(connection); }),
              (Texts{server.url("/"), "0.200", "HTTPOptions.ResponseTimeout"}));
    expectScopeUsable(connection);
}

TEST_F(Timeouts, SilenceBehindAnInterimHead) {
    ScriptedServer& server =
        serve({step::expectHead(), step::send("HTTP/1.1 100 Continue\r\n\r\n"), step::awaitPeerEnd()});
    const Object connection = openWithTimeouts(server.url("/"), Array::doubles({5000, 200}));
    EXPECT_EQ(timeoutOf([&] { receiveBytes(connection); }),
              (Texts{server.url("/"), "0.200", "HTTPOptions.ResponseTimeout"}));
    expectScopeUsable(connection);
}

TEST_F(Timeouts, SilenceInTheMiddleOfTheContent) {
    for (const bool reused : {false, true}) {
        Script script;
        if (reused) {
            script = {step::expectHead(), step::send(response("first"))};
        }
        for (const Step& step : {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\npart"),
                                 step::awaitPeerEnd()}) {
            script.push_back(step);
        }
        ScriptedServer& server = serve(script);
        const ScriptedConsumer consumer = makeScriptedConsumer(host());
        const Array limits = Array::doubles({60000, 60000, 2000}); // the head has to come within the last
        const Object connection = openWithTimeouts(server.url("/"), reused ? Array::doubles({60000}) : limits);
        if (reused) {
            receiveBytes(connection);
            connection.set("TimeoutInMilliseconds", limits);
            connection.call("openConnection");
        }
        connection.set("Consumer", consumer);
        EXPECT_EQ(timeoutOf([&] { receiveBytes(connection); }),
                  (Texts{server.url("/"), "2.000", "HTTPOptions.DataTimeout"}));
        EXPECT_EQ(consumer->Calls, (Texts{"start", "put 4", "close", "save 4"}));
        expectScopeUsable(connection);
    }
}

// Without a data timeout no silence behind the head ends the transfer: it is still there when the total time is over,
// long after the limit of the response has passed.
TEST_F(Timeouts, ResponseTimeoutEndsWithTheHead) {
    ScriptedServer& server = serve(
        {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\npart"), step::awaitPeerEnd()});
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    consumer->OnPut = [&](int, const std::string& piece) {
        host().interruptAfter(std::chrono::milliseconds(1500));
        return Array(static_cast<double>(piece.size()));
    };
    const Object connection = openWithTimeouts(server.url("/"), Array::doubles({5000, 1000}));
    connection.set("Consumer", consumer);
    EXPECT_THROW(connection.call("copyContentToByteArray", {false}), vantik::Interrupted);
    EXPECT_EQ(consumer->Calls, (Texts{"start", "put 4", "interrupt", "close"}));
    expectScopeUsable(connection);
}

TEST_F(Timeouts, ServerThatStopsReading) {
    ScriptedServer& server = serve({step::expectHead(), step::await("the end"), step::awaitPeerEnd()});
    const ScriptedProvider provider = makeScriptedProvider(host());
    provider->OnRead = [](int, std::uint64_t wanted) {
        return Array::bytes(std::string_view(std::string(wanted, 'x')));
    };
    const Object connection = openWithTimeouts(server.url("/"), Array::doubles({5000, 60000, 200}));
    connection.set("RequestMethod", "PUT");
    connection.set("Provider", provider);
    connection.call("removeField", {"Expect"});
    EXPECT_EQ(timeoutOf([&] { receiveBytes(connection); }),
              (Texts{server.url("/"), "0.200", "HTTPOptions.DataTimeout"}));
    expectScopeUsable(connection);
    server.raise("the end"); // the client's close comes behind what it had sent
}

TEST_F(Timeouts, ConnectionThatIsNeverAnswered) {
    const SilentPort silent;
    for (const bool optionsMode : {true, false}) {
        const Object connection = openWithTimeouts(silent.url("/"), Array::doubles({200, 60000, 60000}), optionsMode);
        EXPECT_EQ(timeoutOf([&] { receiveBytes(connection); }),
                  (Texts{silent.url("/"), "0.200", optionsMode ? "HTTPOptions.ConnectTimeout" : "weboptions.Timeout"}));
        expectScopeUsable(connection);
    }
}

// While the connection is not up only the limit of connecting counts.
TEST_F(Timeouts, ResponseTimeoutDoesNotCountWhileConnecting) {
    const SilentPort silent;
    const Object connection = openWithTimeouts(silent.url("/"), Array::doubles({400, 10, 10}));
    EXPECT_EQ(timeoutOf([&] { receiveBytes(connection); }),
              (Texts{silent.url("/"), "0.400", "HTTPOptions.ConnectTimeout"}));
    expectScopeUsable(connection);
}

TEST_F(Timeouts, ShortArrayResetsTheLaterLimits) {
    const Object connection = makeAdapter();
    EXPECT_EQ(connection.get("TimeoutInMilliseconds").doubles(),
              (std::vector<double>{5000, kUnlimited, kUnlimited, kUnlimited}));
    connection.set("TimeoutInMilliseconds", Array::doubles({1, 2, 3, 4, 5}));
    const Array four = connection.get("TimeoutInMilliseconds");
    EXPECT_EQ(four.doubles(), (std::vector<double>{1, 2, 3, 4}));
    EXPECT_EQ(four.dimensions(), (std::vector<std::size_t>{1, 4}));
    connection.set("TimeoutInMilliseconds", Array::doubles({3000}));
    EXPECT_EQ(connection.get("TimeoutInMilliseconds").doubles(),
              (std::vector<double>{3000, kUnlimited, kUnlimited, kUnlimited}));
    connection.set("TimeoutInMilliseconds", Array());
    EXPECT_EQ(connection.get("TimeoutInMilliseconds").doubles()[0], 3000.0);
}

TEST_F(Timeouts, OutOfRangeLimitsOfConnectingAreBounded) {
    for (const double limit : {1e12, -1e12, kUnlimited, -kUnlimited, 2147483648.0}) {
        ScriptedServer& server = serve({step::expectHead(), step::send(response("connected"))});
        const Object connection = openWithTimeouts(server.url("/"), Array::doubles({limit}));
        EXPECT_EQ(receiveBytes(connection), "connected") << limit;
        expectScopeUsable(connection);
    }
}

TEST_F(Timeouts, InfinityOfEitherSignIsNoLimit) {
    for (const Array& limits :
         {Array::doubles({-kUnlimited}), Array::doubles({-kUnlimited, -kUnlimited, -kUnlimited, -kUnlimited}),
          Array::doubles({60000, -kUnlimited, 60000}), Array::doubles({60000, 60000, -kUnlimited})}) {
        ScriptedServer& server = serve({step::expectHead(), step::expectChunkedBody(),
                                        step::send("HTTP/1.1 200 OK\r\nContent-Length: 8\r\n\r\npart"),
                                        step::await("the rest"), step::send("rest")});
        const Object connection = openWithTimeouts(server.url("/"), limits);
        EXPECT_EQ(connection.get("TimeoutInMilliseconds").doubles()[0], limits.doubles()[0]);
        connection.set("RequestMethod", "PUT");
        connection.call("removeField", {"Expect"});
        connection.set("Payload", Array::bytes(std::string_view("content")));
        EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
        server.raise("the rest");
        EXPECT_EQ(receiveBytes(connection), "partrest");
        EXPECT_EQ(server.record().Bodies, Texts{"content"});
        expectScopeUsable(connection);
    }
}

TEST_F(Timeouts, OutOfRangeLimitsOfSilenceFailTheOpen) {
    for (const Array& limits : {Array::doubles({5000, 1e12}), Array::doubles({5000, 1, -1e12})}) {
        const Object connection = makeAdapter();
        connection.set("URL", "http://127.0.0.1:9/");
        connection.set("TimeoutInMilliseconds", limits);
        EXPECT_EQ(failureOf([&] { connection.call("openConnection"); }).identifier(), "VANTIK:host:Failure");
        expectScopeUsable(connection);
    }
}

} // namespace
