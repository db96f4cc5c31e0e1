// Every call into a host object of whole exchanges, in order: client, class, method, arguments, results wanted. Those
// of a transfer that stops midway are in TransferInterruptTest.cpp.
#include "tests/exchange/control/HostCallFixture.h"
#include "tests/exchange/request/ChallengedUpload.h"

#include <gmock/gmock.h>

namespace {

using namespace testsupport;
using testing::ElementsAre;
using testing::ElementsAreArray;
using vantik::Array;
using vantik::Object;

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

// The one size that is never announced: nothing set asks for 16384 bytes.
TEST_F(HostCalls, OfAnUploadOfNothingAskOnce) {
    ScriptedServer& server = serve(takes(response("ok")));
    Provider->Content.clear();
    EXPECT_EQ(receiveBytes(openUpload(server.url("/"), Provider)), "ok");
    EXPECT_EQ(server.record().Bodies.at(0), "");
    EXPECT_THAT(Calls.lines(), ElementsAre(kProviderStart, providerGet(": 16384")));
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

TEST_F(HostCalls, OfADownloadWithoutContentStartAndCloseTheConsumer) {
    for (const std::string& answer : {std::string("HTTP/1.1 204 No Content\r\n\r\n"), response("")}) {
        Calls.clear();
        const Object connection = openDownload(serve(answers(answer)).url("/"));
        EXPECT_EQ(receiveBytes(connection), "");
        EXPECT_THAT(Calls.lines(), ElementsAre(kConsumerStart, kConsumerClose));
        expectScopeUsable(connection);
    }
}

// The send has failed, so the consumer was never started; it is told what was saved all the same, which is nothing.
TEST_F(HostCalls, OfADownloadWhoseRequestFailsSaveNothing) {
    ScriptedServer& server = serve({step::expectHead(), step::reset()});
    const Object connection = openDownload(server.url("/"));
    EXPECT_EQ(keyOf([&] { receiveBytes(connection); }), "VANTIK:webservices:ConnectionRefused");
    EXPECT_THAT(Calls.lines(), ElementsAre(consumerSave("0x1")));
}

TEST_F(HostCalls, AreNotMadeForAFailedStatusOfTheOlderMode) {
    ScriptedServer& server = serve(answers(response("gone", {}, "404 Not Found")));
    const Object connection = openDownload(server.url("/"), false);
    EXPECT_EQ(keyOf([&] { copyToConsumer(connection); }), "VANTIK:webservices:StatusError");
    EXPECT_THAT(Calls.lines(), ElementsAre());
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

TEST_F(HostCalls, AreNotMadeByAClosedConnection) {
    const Object connection = makeAdapter();
    connection.set("Provider", Provider);
    connection.set("Consumer", Consumer);
    connection.set("ProgressReporter", Reporter);
    EXPECT_EQ(receiveBytes(connection), "");
    EXPECT_THAT(Calls.lines(), ElementsAre());
}

std::string notFound(const std::string& method) {
    return "VANTIK:webservices:InternalError(vantik.net.http." + method + " not found)";
}

// Calls of methods that are not there are made once, and never again.
TEST_F(HostCalls, OfAConsumerThatLacksAMethod) {
    struct Row {
        const char* Missing;
        std::string Outcome;
        Texts Calls;
    };
    for (const Row& row :
         {Row{"startInternal",
              notFound("io.ContentConsumer.startInternal"),
              {kConsumerStart + " absent", consumerSave("0x1")}},
          {"putDataInternal",
           notFound("io.ContentConsumer.putDataInternal"),
           {kConsumerStart, consumerPut("4x1") + " absent", kConsumerClose, consumerSave("4x1")}},
          {"closeInternal", "nothing", {kConsumerStart, consumerPut("4x1"), kConsumerClose + " absent"}}}) {
        const ScriptedConsumer bare = makeScriptedConsumer(host(), {row.Missing});
        Calls.name(bare.object(), "<consumer>");
        Calls.clear();
        const Object connection = open(serve(answers(response("body"))).url("/"));
        connection.set("Consumer", bare);
        EXPECT_EQ(outcomeOf([&] { receiveBytes(connection); }), row.Outcome);
        EXPECT_THAT(Calls.lines(), ElementsAreArray(row.Calls)) << row.Missing;
        expectScopeUsable(connection);
    }
}

TEST_F(HostCalls, OfAProviderOrAReporterThatLacksAMethodFail) {
    for (const std::string method : {"startInternal", "getDataInternal"}) {
        ScriptedServer& server = serve({step::awaitPeerEnd()});
        const Object connection = openUpload(server.url("/"), makeScriptedProvider(host(), "content", {method}));
        EXPECT_EQ(outcomeOf([&] { receiveBytes(connection); }), notFound("io.ContentProvider." + method));
        expectScopeUsable(connection);
    }
    const Object connection = open(serve(answers(response("body"))).url("/"));
    connection.set("ProgressReporter", makeScriptedReporter(host(), {"update"}));
    EXPECT_EQ(outcomeOf([&] { receiveBytes(connection); }), notFound("internal.ProgressReporter.update"));
}

} // namespace
