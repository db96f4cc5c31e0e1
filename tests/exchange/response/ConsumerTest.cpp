// Response content handed to a consumer object: the pieces, and what the consumer's answers do. Which of its methods
// are called when is in HostCallsTest.cpp.
#include "tests/exchange/ExchangeFixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

class Consumer : public ExchangeFixture {
protected:
    // A connection that will receive this response into the consumer.
    Object openDownload(const std::string& answer, const ScriptedConsumer& consumer) {
        Object connection = open(serve(answers(answer)).url("/"));
        connection.set("Consumer", consumer);
        return connection;
    }
    static std::size_t largestPiece(const ScriptedConsumer& consumer) {
        std::size_t largest = 0;
        for (const std::string& piece : consumer->Pieces) {
            largest = std::max(largest, piece.size());
        }
        return largest;
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
        EXPECT_LE(largestPiece(consumer), 16384U);
        for (std::size_t i = 0; i < consumer->Shapes.size(); ++i) {
            EXPECT_EQ(consumer->Shapes[i], (std::vector<std::size_t>{consumer->Pieces[i].size(), 1}));
        }
        expectScopeUsable(connection);
    }
}

// The wanted size can make the pieces only smaller. Numbers outside the range of an integer count as huge, negative
// ones too.
TEST_F(Consumer, ChoosesTheSizeOfItsPieces) {
    const double infinity = std::numeric_limits<double>::infinity();
    for (const double wanted :
         {100.0, 100.9, 16384.0, 100000.0, -1.0, -1e300, 1e19, 1e300, infinity, -infinity, std::nan("")}) {
        const std::string body = patternedBytes(40000);
        const ScriptedConsumer consumer = makeScriptedConsumer(host());
        consumer->OnStart = [&] { return Array(wanted); };
        const Object connection = openDownload(response(body), consumer);
        copyToConsumer(connection);
        EXPECT_EQ(difference(consumer->content(), body), "") << wanted;
        if (wanted >= 100 && wanted < 101) {
            EXPECT_EQ(largestPiece(consumer), 100U) << wanted;
        } else {
            EXPECT_LE(largestPiece(consumer), 16384U) << wanted;
        }
        expectScopeUsable(connection);
    }
}

// An answer that is not a number says neither how much is wanted nor how much was taken.
TEST_F(Consumer, AnswerWithoutASizeFails) {
    const std::string noSize = "VANTIK:webservices:InternalError(ContentConsumer.startInternal returned bufSize <= 0)";
    const std::string noNumber = "VANTIK:vx:ExpectedClass(number, char)";
    struct Row {
        Array ToStart, ToPut;
        std::string Failure;
        Texts Calls; // a failed start is not followed by a close
    };
    for (const Row& row : {Row{0.0, 1.0, noSize, {"start"}},
                           {0.5, 1.0, noSize, {"start"}},
                           {-0.5, 1.0, noSize, {"start"}},
                           {"100", 1.0, noNumber, {"start"}},
                           {Array(), "16384", noNumber, {"start", "put 16384", "close"}}}) {
        const ScriptedConsumer consumer = makeScriptedConsumer(host());
        consumer->OnStart = [&] { return row.ToStart; };
        consumer->OnPut = [&](int, const std::string&) { return row.ToPut; };
        const Object connection = openDownload(response(patternedBytes(40000)), consumer);
        EXPECT_EQ(outcomeOf([&] { copyToConsumer(connection); }), row.Failure);
        EXPECT_EQ(consumer->Calls, row.Calls);
        expectScopeUsable(connection);
    }
}

TEST_F(Consumer, ThatTakesLessStopsQuietly) {
    for (const double taken : {0.0, 60.0}) {
        const ScriptedConsumer consumer = makeScriptedConsumer(host());
        consumer->OnStart = [] { return Array(100.0); };
        consumer->OnPut = [&](int call, const std::string& piece) { return call == 3 ? Array(taken) : allOf(piece); };
        const ScriptedReporter reporter = makeScriptedReporter(host());
        const Object connection = openDownload(response(patternedBytes(100000)), consumer);
        connection.set("ProgressReporter", reporter);
        copyToConsumer(connection);
        EXPECT_EQ(consumer->Calls, (Texts{"start", "put 100", "put 100", "put 100", "close"}));
        EXPECT_EQ(reporter->Counts, (std::vector<std::uint64_t>{200 + static_cast<std::uint64_t>(taken)}))
            << "only what was taken counts";
        expectScopeUsable(connection);
    }
}

TEST_F(Consumer, ThatTakesMoreThanItWasOfferedHasTakenAll) {
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    consumer->OnPut = [](int, const std::string&) { return Array(1e9); };
    const std::string body = patternedBytes(50000);
    copyToConsumer(openDownload(response(body), consumer));
    EXPECT_EQ(difference(consumer->content(), body), "");
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
