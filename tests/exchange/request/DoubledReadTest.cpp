// Uploads under a libcurl that asks for content twice before the pump can answer with more. A plain "nothing" to the
// second question would end the upload early, with a good status and no error.
#include "tests/exchange/ExchangeFixture.h"
#include "tests/exchange/request/DoubledReads.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

class DoubledRead : public ExchangeFixture {
protected:
    // A limit on silence: an upload that nobody takes up again ends as a timeout and not as a hanging test.
    Object openLimited(const std::string& url, const Array& content) {
        Object connection = makeFor(url);
        connection.set("TimeoutInMilliseconds", Array::doubles({5000, 20000, 20000}));
        connection.call("openConnection");
        prepareUpload(connection, content);
        takeDoubledReads();
        return connection;
    }
    DoubledReads expectWhole(const Array& content, const std::string& body, bool withLength,
                             const std::function<void(const Object& connection)>& prepare) {
        ScriptedServer& server =
            serve({step::expectHead(), withLength ? step::expectBody(body.size()) : step::expectChunkedBody(),
                   step::send(response("taken"))});
        const Object connection = openLimited(server.url("/"), content);
        prepare(connection);
        if (withLength) {
            connection.call("setRequestProperty", {"Content-Length", std::to_string(body.size())});
        }
        EXPECT_EQ(receiveBytes(connection), "taken");
        const DoubledReads reads = takeDoubledReads();
        EXPECT_GT(reads.Seconds, 0U) << "nothing was read twice, so nothing was tried";
        EXPECT_EQ(difference(server.record().Bodies.at(0), body), "");
        expectScopeUsable(connection);
        return reads;
    }
};

TEST_F(DoubledRead, UploadFromAProviderArrivesWhole) {
    for (const std::size_t size : {1U, 16384U, 100000U, 1000000U}) {
        for (const std::uint64_t piece : {1000U, 16384U, 200000U}) {
            SCOPED_TRACE(std::to_string(size) + " bytes by " + std::to_string(piece));
            const ScriptedProvider provider = makeScriptedProvider(host(), patternedBytes(size));
            for (const bool withLength : {false, true}) {
                expectWhole(provider, provider->Content, withLength,
                            [piece](const Object& connection) { connection.set("ProviderBufferSize", piece); });
            }
        }
    }
}

// The second read is the end at once.
TEST_F(DoubledRead, UploadFromMemoryArrivesWhole) {
    for (const std::size_t size : {1U, 16384U, 100000U}) {
        const std::string body = patternedBytes(size);
        EXPECT_EQ(expectWhole(Array::bytes(body), body, false, [](const Object&) {}).Pauses, 0U);
    }
}

TEST_F(DoubledRead, SecondReadIsAnsweredWithAPauseAndNotWithTheEnd) {
    ScriptedServer& server = serve(takes(response("taken")));
    const Object connection = openLimited(server.url("/"), makeScriptedProvider(host(), patternedBytes(10 * 16384)));
    EXPECT_EQ(receiveBytes(connection), "taken");
    const DoubledReads reads = takeDoubledReads();
    EXPECT_EQ(reads.Pauses, 10U) << "once for each piece, since the end had not been said";
    EXPECT_EQ(reads.Ends, 0U);
}

// Nobody takes up a pause again once the upload is broken off, so nobody may wait for it either.
TEST_F(DoubledRead, PausedUploadThatFailsIsOverForGood) {
    ScriptedServer& server = serve({takes(response("taken")), takes(response("taken"))});
    const ScriptedProvider provider = makeScriptedProvider(host());
    provider->OnRead = [](int call, std::uint64_t) {
        return call == 3 ? throw std::domain_error("torn") : Array::bytes("piece");
    };
    const Object connection = openLimited(server.url("/"), provider);
    EXPECT_EQ(outcomeOf([&] { receiveBytes(connection); }), "torn");
    EXPECT_EQ(takeDoubledReads().Pauses, 2U) << "the last one is not over";
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(outcomeOf([&] { receiveBytes(connection); }), kUploadBroken);
    }
    connection.call("closeConnection");
    connection.call("openConnection");
    prepareUpload(connection, makeScriptedProvider(host(), "whole"));
    EXPECT_EQ(receiveBytes(connection), "taken");
    EXPECT_EQ(server.record(1).Bodies.at(0), "whole");
    EXPECT_TRUE(server.record(0).Bodies.empty()) << "the cut content got no good end";
}

} // namespace
