// Every call into a host object of whole exchanges, in order: client, class, method, arguments, results wanted. Those
// of a transfer that stops midway are in TransferInterruptTest.cpp.
#include "tests/exchange/control/HostCallFixture.h"
#include "tests/exchange/request/ChallengedUpload.h"

#include <gmock/gmock.h>

namespace {

using namespace testsupport;
using testing::ElementsAre;

class HostCalls : public HostCallFixture {};

// The head of the answer comes after the last byte, and before it nothing is reported.
TEST_F(HostCalls, OfAnUpload) {
    ScriptedServer& server = serve(takes(response("")));
    const Object connection = openUpload(server.url("/"), Provider);
    connection.set("ProviderBufferSize", std::uint64_t{4});
    connection.set("ProgressReporter", Reporter);
    EXPECT_EQ(receiveBytes(connection), "");
    EXPECT_EQ(server.record().Bodies.at(0), "0123456789");
    EXPECT_THAT(Calls.lines(), ElementsAre(kProviderStart, providerGet(": 4"), providerGet(": 4"), providerGet(": 4"),
                                           providerGet(": 4")));
}

// The restart comes from inside libcurl. After the end of the content nobody asks for more, so that this is all.
TEST_F(HostCalls, OfAnUploadThatIsRewoundAfterItsEnd) {
    ScriptedServer& server = serve(challengedUpload(step::expectChunkedBody()));
    const Object connection = openUpload(server.url("/"), Provider);
    setLogin(connection, "someone", "secret", {"Basic", "Digest"});
    failureOf([&] { receiveBytes(connection); });
    EXPECT_THAT(Calls.lines(),
                ElementsAre(kProviderStart, providerGet(": 16384"), providerGet(": 16384"), kProviderStart));
}

TEST_F(HostCalls, OfADownload) {
    ScriptedServer& server = serve(answers("HTTP/1.1 200 OK\r\nContent-Length: 15\r\n\r\n0123456789") +
                                   Script{step::await("first part taken"), step::send("abcde")});
    Consumer->OnStart = [] { return Array(4.0); };
    Reporter->OnUpdate = [&](int, std::uint64_t) {
        server.raise("first part taken");
        return Array(true);
    };
    EXPECT_EQ(receiveBytes(openDownload(server.url("/"))), "0123456789abcde");
    EXPECT_EQ(Consumer->content(), "0123456789abcde");
    EXPECT_THAT(Calls.lines(), ElementsAre(kConsumerStart, consumerPut("4x1"), consumerPut("4x1"), consumerPut("2x1"),
                                           reporterUpdate(": 10"), consumerPut("4x1"), consumerPut("1x1"),
                                           reporterUpdate(": 15"), kConsumerClose));
}

// The send has failed, so the consumer was never started; it is told what was saved all the same, which is nothing.
TEST_F(HostCalls, OfADownloadWhoseRequestFailsSaveNothing) {
    ScriptedServer& server = serve({step::expectHead(), step::reset()});
    const Object connection = openDownload(server.url("/"));
    EXPECT_EQ(keyOf([&] { receiveBytes(connection); }), "VANTIK:webservices:ConnectionRefused");
    EXPECT_THAT(Calls.lines(), ElementsAre(consumerSave("0x1")));
}

// Content in memory is offered as it stands. Its size has nothing to do with the provider's.
TEST_F(HostCalls, AreNotMadeForContentInMemory) {
    const std::string body = patternedBytes(100000);
    ScriptedServer& server = serve(takes(response("")));
    const Object connection = openUpload(server.url("/"), Array::bytes(body));
    connection.set("ProviderBufferSize", std::uint64_t{1});
    connection.set("ProgressReporter", Reporter);
    EXPECT_EQ(receiveBytes(connection), "");
    EXPECT_EQ(difference(server.record().Bodies.at(0), body), "");
    EXPECT_THAT(Calls.lines(), ElementsAre());
}

// A call of a method that is not there is made once, and never again.
TEST_F(HostCalls, OfAConsumerThatLacksItsWriteCloseItAndSave) {
    const ScriptedConsumer bare = makeScriptedConsumer(host(), {"putDataInternal"});
    Calls.name(bare.object(), "<consumer>");
    const Object connection = open(serve(answers(response("body"))).url("/"));
    connection.set("Consumer", bare);
    EXPECT_EQ(outcomeOf([&] { receiveBytes(connection); }),
              "VANTIK:webservices:InternalError(vantik.net.http.io.ContentConsumer.putDataInternal not found)");
    EXPECT_THAT(Calls.lines(),
                ElementsAre(kConsumerStart, consumerPut("4x1") + " absent", kConsumerClose, consumerSave("4x1")));
}

} // namespace
