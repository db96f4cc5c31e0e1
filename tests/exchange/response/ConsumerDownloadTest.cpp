// Response content handed to a consumer object.
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <ostream>
#include <stdexcept>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

using Calls = std::vector<std::string>;

class Consumer : public HostFixture {
protected:
    // A connection that will receive this response into the consumer.
    Object openDownload(const std::string& sent, const ScriptedConsumer& consumer) {
        Object connection = open(serve({step::expectHead(), step::send(sent)}).url("/"));
        connection.set("Consumer", consumer);
        return connection;
    }
    void receive(const Object& connection) { connection.call("copyContentToByteArray", {false}); }
};

TEST_F(Consumer, GetsEveryByteInPiecesThatFit) {
    for (const std::size_t size : {1U, 16383U, 16384U, 16385U, 100000U}) {
        const std::string body = patternedBytes(size);
        const ScriptedConsumer consumer = makeScriptedConsumer(host());
        const Object connection = openDownload(response(body), consumer);
        EXPECT_EQ(connection.call("copyContentToByteArray", {false}).size(), 0U);
        EXPECT_EQ(difference(consumer->content(), body), "");
        EXPECT_EQ(consumer->Calls.front(), "start");
        EXPECT_EQ(consumer->Calls.back(), "close");
        EXPECT_EQ(consumer->Calls.size(), consumer->Pieces.size() + 2);
        for (const std::vector<std::size_t>& shape : consumer->Shapes) {
            ASSERT_EQ(shape.size(), 2U);
            EXPECT_LE(shape[0], 16384U);
            EXPECT_EQ(shape[1], 1U);
        }
        expectScopeUsable(connection);
    }
}

TEST_F(Consumer, IsStartedAndClosedWithoutContent) {
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    const Object connection = openDownload(response(""), consumer);
    receive(connection);
    EXPECT_EQ(consumer->Calls, (Calls{"start", "close"}));
    expectScopeUsable(connection);
}

TEST_F(Consumer, AndBufferBothGetTheContent) {
    const std::string body = patternedBytes(40000);
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    const Object connection = openDownload(response(body), consumer);
    EXPECT_EQ(difference(receiveBytes(connection), body), "");
    EXPECT_EQ(difference(consumer->content(), body), "");
    expectScopeUsable(connection);
}

struct SizeRow {
    double Given;
    std::size_t Largest;
};

// The wanted size can make the pieces only smaller. Numbers outside the range of an integer count as huge, negative
// ones too.
TEST_F(Consumer, ChoosesTheSizeOfItsPieces) {
    const double infinity = std::numeric_limits<double>::infinity();
    for (const SizeRow& row : {SizeRow{100, 100}, SizeRow{100.9, 100}, SizeRow{16384, 16384}, SizeRow{100000, 16384},
                               SizeRow{-1, 16384}, SizeRow{-1e300, 16384}, SizeRow{1e19, 16384}, SizeRow{1e300, 16384},
                               SizeRow{infinity, 16384}, SizeRow{-infinity, 16384}, SizeRow{std::nan(""), 16384}}) {
        const std::string body = patternedBytes(40000);
        const ScriptedConsumer consumer = makeScriptedConsumer(host());
        consumer->OnStart = [&] { return Array(row.Given); };
        const Object connection = openDownload(response(body), consumer);
        receive(connection);
        EXPECT_EQ(difference(consumer->content(), body), "") << row.Given;
        std::size_t largest = 0;
        for (const std::string& piece : consumer->Pieces) {
            largest = std::max(largest, piece.size());
        }
        EXPECT_LE(largest, row.Largest) << row.Given;
        if (row.Largest == 100) {
            EXPECT_EQ(largest, 100U) << row.Given;
        }
        expectScopeUsable(connection);
    }
}

TEST_F(Consumer, SizeThatTruncatesToNothingFails) {
    for (const double size : {0.0, 0.5, -0.5}) {
        const ScriptedConsumer consumer = makeScriptedConsumer(host());
        consumer->OnStart = [&] { return Array(size); };
        const Object connection = openDownload(response("body"), consumer);
        EXPECT_EQ(describe(failureOf([&] { receive(connection); })),
                  "VANTIK:webservices:InternalError(ContentConsumer.startInternal returned bufSize <= 0)");
        EXPECT_EQ(consumer->Calls, (Calls{"start"})) << "a failed start is not followed by a close";
        expectScopeUsable(connection);
    }
}

// An answer that is not a number says neither how much is wanted nor how much was taken.
TEST_F(Consumer, AnswerThatIsNoNumberFails) {
    const ScriptedConsumer sized = makeScriptedConsumer(host());
    sized->OnStart = [] { return Array("100"); };
    const ScriptedConsumer taking = makeScriptedConsumer(host());
    taking->OnPut = [](int, const std::string& piece) { return Array(std::to_string(piece.size())); };
    for (const auto& [consumer, calls] :
         {std::pair<ScriptedConsumer, Calls>{sized, {"start"}}, {taking, {"start", "put 16384", "close"}}}) {
        const Object connection = openDownload(response(patternedBytes(40000)), consumer);
        EXPECT_EQ(describe(failureOf([&] { receive(connection); })), "VANTIK:vx:ExpectedClass(number, char)");
        EXPECT_EQ(consumer->Calls, calls);
        expectScopeUsable(connection);
    }
}

TEST_F(Consumer, TakingLessStopsQuietly) {
    for (const double taken : {0.0, 60.0}) {
        const ScriptedConsumer consumer = makeScriptedConsumer(host());
        consumer->OnStart = [] { return Array(100.0); };
        consumer->OnPut = [&](int call, const std::string& piece) {
            return Array(call == 3 ? taken : static_cast<double>(piece.size()));
        };
        const ScriptedReporter reporter = makeScriptedReporter(host());
        ScriptedServer& server = serve({step::expectHead(), step::send(response(patternedBytes(100000)))});
        const Object connection = open(server.url("/"));
        connection.set("Consumer", consumer);
        connection.set("ProgressReporter", reporter);
        receive(connection);
        EXPECT_EQ(consumer->Calls, (Calls{"start", "put 100", "put 100", "put 100", "close"}));
        EXPECT_EQ(reporter->Counts, (std::vector<std::uint64_t>{200 + static_cast<std::uint64_t>(taken)}))
            << "only what was taken counts";
        expectScopeUsable(connection);
    }
}

TEST_F(Consumer, TakingMoreThanOfferedCountsAsAll) {
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    consumer->OnPut = [](int, const std::string&) { return Array(1e9); };
    const std::string body = patternedBytes(50000);
    const Object connection = openDownload(response(body), consumer);
    receive(connection);
    EXPECT_EQ(difference(consumer->content(), body), "");
    expectScopeUsable(connection);
}

TEST_F(Consumer, EmptyAnswerStopsWithAFailure) {
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    consumer->OnPut = [](int, const std::string&) { return Array(); };
    const Object connection = openDownload(response("body"), consumer);
    const std::string url = connection.get("URL").text();
    EXPECT_EQ(describe(failureOf([&] { receive(connection); })),
              "VANTIK:webservices:OperationTerminatedByConsumer(" + url + ")");
    EXPECT_EQ(consumer->Calls, (Calls{"start", "put 4", "close"}));
    expectScopeUsable(connection);
}

TEST_F(Consumer, FailureOfItsOwnReachesTheCaller) {
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    consumer->OnPut = [](int, const std::string&) -> Array { throw std::domain_error("disk full"); };
    const Object connection = openDownload(response("body"), consumer);
    EXPECT_THROW(receive(connection), std::domain_error);
    EXPECT_EQ(consumer->Calls, (Calls{"start", "put 4", "close"}));
    expectScopeUsable(connection);
}

// The piece that was refused has already gone to the buffer.
TEST_F(Consumer, IsGivenWhatWasSavedBeforeAFailure) {
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    consumer->OnStart = [] { return Array(3.0); };
    consumer->OnPut = [](int call, const std::string& piece) {
        return call == 2 ? Array() : Array(static_cast<double>(piece.size()));
    };
    const Object connection = openDownload(response("abcdefgh"), consumer);
    EXPECT_EQ(failureOf([&] { receiveBytes(connection); }).identifier(),
              "VANTIK:webservices:OperationTerminatedByConsumer");
    EXPECT_EQ(consumer->Calls, (Calls{"start", "put 3", "put 3", "close", "save 6"}));
    EXPECT_EQ(consumer->Saved, "abcdef");
    EXPECT_EQ(connection.get("ResponsePayload").size(), 0U) << "the buffer was emptied";
    expectScopeUsable(connection);
}

TEST_F(Consumer, IsNotGivenSavedContentWithoutABuffer) {
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    consumer->OnPut = [](int, const std::string&) { return Array(); };
    const Object connection = openDownload(response("body"), consumer);
    failureOf([&] { receive(connection); });
    EXPECT_EQ(consumer->Calls.back(), "close");
    expectScopeUsable(connection);
}

TEST_F(Consumer, WithoutItsMethodsIsReported) {
    struct Row {
        const char* Method;
        Calls Seen;
    };
    for (const Row& row : {Row{"startInternal", {}}, Row{"putDataInternal", {"start", "close"}}}) {
        const ScriptedConsumer consumer = makeScriptedConsumer(host(), {row.Method});
        const Object connection = openDownload(response("body"), consumer);
        EXPECT_EQ(describe(failureOf([&] { receive(connection); })),
                  std::string("VANTIK:webservices:InternalError(vantik.net.http.io.ContentConsumer.") + row.Method +
                      " not found)");
        EXPECT_EQ(consumer->Calls, row.Seen);
        expectScopeUsable(connection);
    }
}

TEST_F(Consumer, MayLackAClose) {
    const ScriptedConsumer consumer = makeScriptedConsumer(host(), {"closeInternal"});
    const Object connection = openDownload(response("body"), consumer);
    receive(connection);
    EXPECT_EQ(consumer->content(), "body");
    expectScopeUsable(connection);
}

TEST_F(Consumer, GetsTheContentOfAFailedStatus) {
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    const Object connection = openDownload(response("gone", {}, "404 Not Found"), consumer);
    receive(connection);
    EXPECT_EQ(consumer->content(), "gone");
    EXPECT_EQ(connection.get("ResponseCode").number(), 404.0);
    expectScopeUsable(connection);
}

TEST_F(Consumer, IsNotAskedInTheOlderModeForAFailedStatus) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("gone", {}, "404 Not Found"))});
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    const Object connection = open(server.url("/"), false);
    connection.set("Consumer", consumer);
    EXPECT_EQ(failureOf([&] { receive(connection); }).identifier(), "VANTIK:webservices:StatusError");
    EXPECT_EQ(consumer->Calls, Calls{});
    expectScopeUsable(connection);
}

TEST_F(Consumer, GetsLargeContentInOrder) {
    const std::string body = patternedBytes(5'000'000);
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    std::size_t offset = 0;
    consumer->OnPut = [&](int, const std::string& piece) {
        EXPECT_EQ(difference(piece, std::string_view(body).substr(offset, piece.size())), "");
        offset += piece.size();
        return Array(static_cast<double>(piece.size()));
    };
    const Object connection = openDownload(response(body), consumer);
    receive(connection);
    EXPECT_EQ(offset, body.size());
    expectScopeUsable(connection);
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
    EXPECT_EQ(describe(failureOf([&] { receive(connection); })),
              "VANTIK:webservices:InternalError(Message contains data but neither consumer nor savePayload was set)");
    EXPECT_EQ(consumer->Calls, Calls{});
    server.raise("a place for it");
    EXPECT_EQ(receiveBytes(connection), "partrest");
    expectScopeUsable(connection);
}

} // namespace
