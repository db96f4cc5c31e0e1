// Every call into the host objects of whole exchanges, in order. Those of a transfer that stops midway are in
// TransferInterruptTest.cpp.
#include "tests/exchange/control/HostCallFixture.h"

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
    EXPECT_THAT(Calls,
                ElementsAre("provider start", "provider get 4", "provider get 4", "provider get 4", "provider get 4"));
}

// Nothing set asks for 16384 bytes.
TEST_F(HostCalls, OfAnUploadOfNothingAskOnce) {
    ScriptedServer& server = serve(takes(response("ok")));
    Provider->Content.clear();
    EXPECT_EQ(receiveBytes(openUpload(server.url("/"), Provider)), "ok");
    EXPECT_EQ(server.record().Bodies.at(0), "");
    EXPECT_THAT(Calls, ElementsAre("provider start", "provider get 16384"));
}

// The restart comes from inside libcurl. After the end of the content nobody asks for more, so that this is all.
TEST_F(HostCalls, OfAnUploadThatIsRewoundAfterItsEnd) {
    ScriptedServer& server = serve(challengedUpload(step::expectChunkedBody()));
    const Object connection = openUpload(server.url("/"), Provider);
    setLogin(connection, "someone", "secret", {"Basic", "Digest"});
    failureOf([&] { receiveBytes(connection); });
    EXPECT_THAT(Calls, ElementsAre("provider start", "provider get 16384", "provider get 16384", "provider start"));
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
    EXPECT_THAT(Calls, ElementsAre("consumer start", "consumer put 4", "consumer put 4", "consumer put 2", "report 10",
                                   "consumer put 4", "consumer put 1", "report 15", "consumer close"));
}

// The send has failed, so the consumer was never started; it is told what was saved all the same, which is nothing.
TEST_F(HostCalls, OfADownloadWhoseRequestFailsSaveNothing) {
    ScriptedServer& server = serve({step::expectHead(), step::reset()});
    const Object connection = openDownload(server.url("/"));
    EXPECT_EQ(keyOf([&] { receiveBytes(connection); }), "VANTIK:webservices:ConnectionRefused");
    EXPECT_THAT(Calls, ElementsAre("consumer save 0"));
}

} // namespace
