// Uploads under a libcurl that asks for content twice before the pump can give more. A plain "nothing" to the second
// question would end the upload early, with a good status and no error.
#include "tests/exchange/request/DoubledReads.h"
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <tuple>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

class DoubledRead : public HostFixture, public ::testing::WithParamInterface<std::tuple<std::size_t, std::uint64_t>> {
protected:
    // A limit on silence: an upload that nobody takes up again ends as a timeout and not as a hanging test.
    Object openUpload(const std::string& url) {
        Object connection = makeAdapter();
        connection.set("URL", url);
        connection.set("TimeoutInMilliseconds", Array::doubles({5000, 20000, 20000}));
        connection.call("openConnection");
        connection.set("RequestMethod", "PUT");
        return connection;
    }
};

TEST_P(DoubledRead, UploadFromAProviderArrivesWhole) {
    const auto [size, piece] = GetParam();
    const std::string body = patternedBytes(size);
    for (const bool withLength : {false, true}) {
        ScriptedServer& server =
            serve({step::expectHead(), step::continueIfExpected(),
                   withLength ? step::expectBody(size) : step::expectChunkedBody(), step::send(response("taken"))});
        const Object connection = openUpload(server.url("/"));
        connection.set("Provider", makeScriptedProvider(host(), body));
        connection.set("ProviderBufferSize", piece);
        if (withLength) {
            connection.call("setRequestProperty", {"Content-Length", std::to_string(size)});
        }
        takeDoubledReads();
        EXPECT_EQ(receiveBytes(connection), "taken");
        const DoubledReads reads = takeDoubledReads();
        EXPECT_GT(reads.Seconds, 0U) << "nothing was read twice, so nothing was tried";
        EXPECT_EQ(difference(server.record().Bodies.at(0), body), "");
        expectScopeUsable(connection);
    }
}

INSTANTIATE_TEST_SUITE_P(Rows, DoubledRead,
                         ::testing::Combine(::testing::Values(1U, 16384U, 100000U, 1000000U),
                                            ::testing::Values(1000U, 16384U, 200000U)));

TEST_F(DoubledRead, SecondReadIsAnsweredWithAPauseAndNotWithTheEnd) {
    ScriptedServer& server = serve({step::expectHead(), step::expectChunkedBody(), step::send(response("taken"))});
    const Object connection = openUpload(server.url("/"));
    connection.set("Provider", makeScriptedProvider(host(), patternedBytes(10 * 16384)));
    connection.call("removeField", {"Expect"});
    takeDoubledReads();
    EXPECT_EQ(receiveBytes(connection), "taken");
    const DoubledReads reads = takeDoubledReads();
    EXPECT_EQ(reads.Pauses, 10U) << "once for each piece, since the end had not been said";
    EXPECT_EQ(reads.Ends, 0U);
    expectScopeUsable(connection);
}

// Nobody takes up a pause again once the upload is broken off, so nobody may wait for it either.
TEST_F(DoubledRead, PausedUploadThatFailsIsOverForGood) {
    ScriptedServer& server = serve({{step::expectHead(), step::expectChunkedBody(), step::send(response("taken"))},
                                    {step::expectHead(), step::expectChunkedBody(), step::send(response("taken"))}});
    const Object connection = openUpload(server.url("/"));
    const ScriptedProvider provider = makeScriptedProvider(host());
    provider->OnRead = [](int call, std::uint64_t) {
        return call == 3 ? throw std::domain_error("torn") : Array::bytes(std::string_view("piece"));
    };
    connection.set("Provider", provider);
    connection.call("removeField", {"Expect"});
    takeDoubledReads();
    EXPECT_THROW(receiveBytes(connection), std::domain_error);
    EXPECT_EQ(takeDoubledReads().Pauses, 2U) << "the last one is not over";
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })),
                  "VANTIK:webservices:InternalError(The upload was broken off before its end, so there is no response "
                  "to copy. Close the connection and open it again.)");
    }
    connection.call("closeConnection");
    connection.set("Provider", makeScriptedProvider(host(), "whole"));
    connection.call("openConnection");
    connection.set("RequestMethod", "PUT");
    connection.call("removeField", {"Expect"});
    EXPECT_EQ(receiveBytes(connection), "taken");
    EXPECT_EQ(server.record(1).Bodies.at(0), "whole");
    EXPECT_TRUE(server.record(0).Bodies.empty()) << "the cut content got no good end";
    expectScopeUsable(connection);
}

// For content in memory the second read is the end at once.
TEST_F(DoubledRead, PayloadArrivesWhole) {
    for (const std::size_t size : {1U, 16384U, 100000U}) {
        const std::string body = patternedBytes(size);
        ScriptedServer& server = serve(
            {step::expectHead(), step::continueIfExpected(), step::expectChunkedBody(), step::send(response("taken"))});
        const Object connection = openUpload(server.url("/"));
        connection.set("Payload", Array::bytes(std::string_view(body)));
        takeDoubledReads();
        EXPECT_EQ(receiveBytes(connection), "taken");
        const DoubledReads reads = takeDoubledReads();
        EXPECT_GT(reads.Seconds, 0U);
        EXPECT_EQ(reads.Pauses, 0U);
        EXPECT_EQ(difference(server.record().Bodies.at(0), body), "");
        expectScopeUsable(connection);
    }
}

} // namespace
