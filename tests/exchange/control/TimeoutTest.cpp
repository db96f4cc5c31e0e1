// Limits of silence and of connecting. All limits are small, and no test looks at how long it took.
#include "tests/exchange/ExchangeFixture.h"
#include "tests/support/server/UnreachablePorts.h"

#include <chrono>
#include <limits>

namespace {

using namespace testsupport;

constexpr double kUnlimited = std::numeric_limits<double>::infinity();

class Timeouts : public ExchangeFixture {
protected:
    Object openWithTimeouts(const std::string& url, const Array& timeouts, bool optionsMode = true) {
        Object connection = makeFor(url, optionsMode);
        connection.set("TimeoutInMilliseconds", timeouts);
        connection.call("openConnection");
        return connection;
    }
    // The connection's copy ends with a timeout of this time and option. The reason is the host's text.
    void expectTimeout(const Object& connection, const std::string& seconds, const std::string& option) {
        const vantik::Message message = failureOf([&] { receiveBytes(connection); });
        EXPECT_EQ(message.identifier(), "VANTIK:webservices:Timeout") << message.Text;
        ASSERT_EQ(message.Arguments.size(), 4U);
        EXPECT_EQ(std::get<std::string>(message.Arguments[0]), connection.get("URL").text());
        EXPECT_EQ(std::get<std::string>(message.Arguments[1]), seconds);
        EXPECT_NE(std::get<std::string>(message.Arguments[2]), "");
        EXPECT_EQ(std::get<std::string>(message.Arguments[3]), option);
        expectScopeUsable(connection);
    }
};

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
};

// The time of connecting reads as zero for the whole of a transfer on a connection that is used again; the limits hold
// all the same.
TEST_F(Timeouts, SilentServerOnAFreshAndOnAReusedConnection) {
    for (const SilenceRow& row : kSilenceRows) {
        ScriptedServer& server = serve(answers(response("first")) + breaksOff(""));
        const Object connection = openWithTimeouts(server.url("/"), Array::doubles({60000}), row.OptionsMode);
        EXPECT_EQ(receiveBytes(connection), "first");
        connection.set("TimeoutInMilliseconds", Array::doubles(row.Limits)); // the first answer may take its time
        connection.call("openConnection");
        expectTimeout(connection, row.Seconds, row.Option);
        EXPECT_EQ(server.connectionCount(), 1U);
        expectTimeout(openWithTimeouts(serve(breaksOff("")).url("/"), Array::doubles(row.Limits), row.OptionsMode),
                      row.Seconds, row.Option);
    }
}

TEST_F(Timeouts, SilenceInOrBeforeTheHeadThatCounts) {
    for (const char* sent : {"HTTP/1.1 200 OK\r\nX-A: 1\r\n", "HTTP/1.1 100 Continue\r\n\r\n"}) {
        expectTimeout(openWithTimeouts(serve(breaksOff(sent)).url("/"), Array::doubles({5000, 200})), "0.200",
                      "HTTPOptions.ResponseTimeout");
    }
}

// The head has to come within the limit of the content. After the open, limits that are set change only what the
// failure says.
TEST_F(Timeouts, SilenceInTheMiddleOfTheContent) {
    const Array limits = Array::doubles({60000, 60000, 2000});
    for (const bool reused : {false, true}) {
        ScriptedServer& server = serve((reused ? answers(response("first")) : Script{}) + breaksOff(kPart));
        const ScriptedConsumer consumer = makeScriptedConsumer(host());
        const Object connection = openWithTimeouts(server.url("/"), reused ? Array::doubles({60000}) : limits);
        if (reused) {
            receiveBytes(connection);
            connection.set("TimeoutInMilliseconds", limits);
            connection.call("openConnection");
            connection.set("TimeoutInMilliseconds", Array::doubles({60000, 60000, 2.5}));
        }
        connection.set("Consumer", consumer);
        expectTimeout(connection, reused ? "0.003" : "2.000", "HTTPOptions.DataTimeout");
        EXPECT_EQ(consumer->Calls, (Texts{"start", "put 4", "close", "save 4"}));
    }
}

// Without a data timeout no silence after the head ends the transfer: it is still there when the total time is over,
// long after the limit of the response has passed.
TEST_F(Timeouts, ResponseTimeoutEndsWithTheHead) {
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    consumer->OnPut = [&](int, const std::string& piece) {
        host().interruptAfter(std::chrono::milliseconds(1500));
        return allOf(piece);
    };
    const Object connection = openWithTimeouts(serve(breaksOff(kPart)).url("/"), Array::doubles({5000, 1000}));
    connection.set("Consumer", consumer);
    EXPECT_EQ(outcomeOf([&] { copyToConsumer(connection); }), "interrupt by the host");
    EXPECT_EQ(consumer->Calls, (Texts{"start", "put 4", "interrupt", "close"}));
}

TEST_F(Timeouts, ServerThatStopsReading) {
    ScriptedServer& server = serve({step::expectHead(), step::await("the end"), step::awaitPeerEnd()});
    const ScriptedProvider provider = makeScriptedProvider(host());
    provider->OnRead = [](int, std::uint64_t wanted) { return Array::bytes(std::string(wanted, 'x')); };
    const Object connection = openWithTimeouts(server.url("/"), Array::doubles({5000, 60000, 200}));
    prepareUpload(connection, provider);
    expectTimeout(connection, "0.200", "HTTPOptions.DataTimeout");
    server.raise("the end"); // the client's close comes after what it had sent
}

// While the connection is not up only the limit of connecting counts.
TEST_F(Timeouts, ConnectionThatIsNeverAnswered) {
    const SilentPort silent;
    for (const bool optionsMode : {true, false}) {
        expectTimeout(openWithTimeouts(silent.url("/"), Array::doubles({400, 10, 10}), optionsMode), "0.400",
                      optionsMode ? "HTTPOptions.ConnectTimeout" : "weboptions.Timeout");
    }
}

TEST_F(Timeouts, InfinityOfEitherSignMeansNoLimit) {
    for (const Array& limits :
         {Array::doubles({-kUnlimited}), Array::doubles({-kUnlimited, -kUnlimited, -kUnlimited, -kUnlimited}),
          Array::doubles({60000, -kUnlimited, 60000}), Array::doubles({60000, 60000, -kUnlimited})}) {
        ScriptedServer& server = serve(takes("HTTP/1.1 200 OK\r\nContent-Length: 8\r\n\r\npart") +
                                       Script{step::await("the rest"), step::send("rest")});
        const Object connection = openWithTimeouts(server.url("/"), limits);
        EXPECT_EQ(connection.get("TimeoutInMilliseconds").doubles()[0], limits.doubles()[0]);
        prepareUpload(connection, Array::bytes("content"));
        EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
        server.raise("the rest");
        EXPECT_EQ(receiveBytes(connection), "partrest");
        EXPECT_EQ(server.record().Bodies, Texts{"content"});
        expectScopeUsable(connection);
    }
}

} // namespace
