// Response content handed to a consumer object: the pieces, and what the consumer's answers do. Which of its methods
// are called when is in HostCallsTest.cpp.
#include "tests/exchange/ExchangeFixture.h"

namespace {

using namespace testsupport;

class Consumer : public ExchangeFixture {
protected:
    // A connection that will receive this response into the consumer.
    Object openDownload(const std::string& answer, const ScriptedConsumer& consumer) {
        Object connection = open(serve(answers(answer)).url("/"));
        connection.set("Consumer", consumer);
        return connection;
    }
};

TEST_F(Consumer, GetsEveryByteInOrderInPiecesThatFit) {
    for (const std::size_t size : {1U, 16383U, 16384U, 16385U, 100000U, 5'000'000U}) {
        const std::string body = patternedBytes(size);
        const ScriptedConsumer consumer = makeScriptedConsumer(host());
        const Object connection = openDownload(response(body), consumer);
        EXPECT_EQ(connection.call("copyContentToByteArray", {false}).size(), 0U);
        EXPECT_EQ(difference(consumer->content(), body), "");
        EXPECT_EQ(consumer->Calls.front(), "start");
        EXPECT_EQ(consumer->Calls.back(), "close");
        EXPECT_EQ(consumer->Calls.size(), consumer->Pieces.size() + 2);
        for (std::size_t i = 0; i < consumer->Shapes.size(); ++i) {
            EXPECT_LE(consumer->Pieces[i].size(), 16384U);
            EXPECT_EQ(consumer->Shapes[i], (std::vector<std::size_t>{consumer->Pieces[i].size(), 1}));
        }
    }
}

// An answer that is not a number says neither how much is wanted nor how much was taken.
TEST_F(Consumer, AnswerWithoutANumberFails) {
    for (const bool toStart : {true, false}) {
        const ScriptedConsumer consumer = makeScriptedConsumer(host());
        consumer->OnStart = [&] { return toStart ? Array("100") : Array(); };
        consumer->OnPut = [](int, const std::string&) { return Array("4"); };
        const Object connection = openDownload(response("body"), consumer);
        EXPECT_EQ(outcomeOf([&] { copyToConsumer(connection); }), "VANTIK:vx:ExpectedClass(number, char)");
        EXPECT_EQ(consumer->Calls, toStart ? Texts{"start"} : (Texts{"start", "put 4", "close"}))
            << "a failed start is not followed by a close";
    }
}

TEST_F(Consumer, WithoutACloseMethodGetsTheContentAllTheSame) {
    const ScriptedConsumer consumer = makeScriptedConsumer(host(), {"closeInternal"});
    copyToConsumer(openDownload(response("body"), consumer));
    EXPECT_EQ(consumer->Calls, (Texts{"start", "put 4"}));
}

// Without a consumer and a buffer the content has nowhere to go. It stays for a copy that takes it.
TEST_F(Consumer, ThatIsTakenAwayLeavesTheContentNowhereToGo) {
    ScriptedServer& server = serve({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 8\r\n\r\npart"),
                                    step::await("a place for it"), step::send("rest")});
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    const Object connection = open(server.url("/"));
    connection.set("Consumer", consumer);
    EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
    connection.set("Consumer", Array());
    EXPECT_EQ(outcomeOf([&] { copyToConsumer(connection); }),
              "VANTIK:webservices:InternalError(Message contains data but neither consumer nor savePayload was set)");
    EXPECT_EQ(consumer->Calls, Texts{});
    server.raise("a place for it");
    EXPECT_EQ(receiveBytes(connection), "partrest");
}

} // namespace
