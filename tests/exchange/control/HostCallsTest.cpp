// Every call into a host object of whole exchanges, in order: client, class, method, arguments, results wanted.
#include "tests/exchange/control/HostCallRecord.h"
#include "tests/exchange/request/ChallengedUpload.h"
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>

namespace {

using namespace testsupport;
using testing::ElementsAre;
using testing::ElementsAreArray;
using vantik::Array;
using vantik::Object;

using Texts = std::vector<std::string>;

// The provider and the consumer are addressed by the name of their base class on behalf of the system, the reporter by
// its own class on behalf of the public.
constexpr const char* kProviderStart = "system vantik.net.http.io.ContentProvider.startInternal(<provider>) -> 0";
constexpr const char* kConsumerStart = "system vantik.net.http.io.ContentConsumer.startInternal(<consumer>) -> 1";
constexpr const char* kConsumerClose = "system vantik.net.http.io.ContentConsumer.closeInternal(<consumer>) -> 0";

class HostCalls : public HostFixture {
protected:
    HostCalls()
        : Provider(makeScriptedProvider(host(), "0123456789")), Consumer(makeScriptedConsumer(host())),
          Reporter(makeScriptedReporter(host())) {
        Calls.name(Provider.object(), "<provider>");
        Calls.name(Consumer.object(), "<consumer>");
        Calls.name(Reporter.object(), "<reporter>");
    }

    Object openUpload(const std::string& url) {
        Object connection = open(url);
        connection.set("RequestMethod", "PUT");
        connection.set("Provider", Provider);
        return connection;
    }
    Object openDownload(const std::string& url, bool optionsMode = true) {
        Object connection = open(url, optionsMode);
        connection.set("Consumer", Consumer);
        connection.set("ProgressReporter", Reporter);
        return connection;
    }
    // The answer in two parts; the second waits until the client has dealt with the first.
    ScriptedServer& serveInParts(const Step& end) {
        return serve({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 15\r\n\r\n0123456789"),
                      step::await("first part taken"), end});
    }

    HostCallRecord Calls;
    ScriptedProvider Provider;
    ScriptedConsumer Consumer;
    ScriptedReporter Reporter;
};

TEST_F(HostCalls, UploadFromAProvider) {
    ScriptedServer& server =
        serve({step::expectHead(), step::continueIfExpected(), step::expectChunkedBody(), step::send(response("ok"))});
    const Object connection = openUpload(server.url("/"));
    connection.set("ProviderBufferSize", std::uint64_t{4});
    EXPECT_EQ(receiveBytes(connection), "ok");
    EXPECT_EQ(server.record().Bodies.at(0), "0123456789");
    EXPECT_THAT(
        Calls.lines(),
        ElementsAre("system vantik.net.http.io.ContentProvider.startInternal(<provider>) -> 0",
                    "system vantik.net.http.io.ContentProvider.getDataInternal(<provider>, uint64 1x1: 4) -> 1",
                    "system vantik.net.http.io.ContentProvider.getDataInternal(<provider>, uint64 1x1: 4) -> 1",
                    "system vantik.net.http.io.ContentProvider.getDataInternal(<provider>, uint64 1x1: 4) -> 1",
                    "system vantik.net.http.io.ContentProvider.getDataInternal(<provider>, uint64 1x1: 4) -> 1"));
    expectScopeUsable(connection);
}

// The one size that is never announced: nothing set asks for 16384 bytes.
TEST_F(HostCalls, UploadOfNothingAsksOnceAndSendsAnEmptyBody) {
    ScriptedServer& server =
        serve({step::expectHead(), step::continueIfExpected(), step::expectChunkedBody(), step::send(response("ok"))});
    Provider->Content.clear();
    const Object connection = openUpload(server.url("/"));
    EXPECT_EQ(receiveBytes(connection), "ok");
    EXPECT_EQ(server.record().Bodies.at(0), "");
    EXPECT_THAT(
        Calls.lines(),
        ElementsAre("system vantik.net.http.io.ContentProvider.startInternal(<provider>) -> 0",
                    "system vantik.net.http.io.ContentProvider.getDataInternal(<provider>, uint64 1x1: 16384) -> 1"));
    expectScopeUsable(connection);
}

// The restart comes from inside libcurl. After the end of the content nobody asks for more, so that this is all.
TEST_F(HostCalls, UploadThatIsRewoundAfterItsEnd) {
    ScriptedServer& server = serve(challengedUpload(step::expectChunkedBody()));
    const Object connection = openUpload(server.url("/"));
    connection.set("Username", "someone");
    connection.set("Password", "secret");
    connection.call("setAuthenticationSchemes",
                    {Array::enumeration("vantik.net.http.AuthenticationScheme", Texts{"Basic", "Digest"}), false});
    failureOf([&] { receiveBytes(connection); });
    const std::string get =
        "system vantik.net.http.io.ContentProvider.getDataInternal(<provider>, uint64 1x1: 16384) -> 1";
    EXPECT_THAT(Calls.lines(), ElementsAre(kProviderStart, get, get, kProviderStart));
    expectScopeUsable(connection);
}

TEST_F(HostCalls, DownloadIntoAConsumerWithAReporter) {
    ScriptedServer& server = serveInParts(step::send("abcde"));
    Consumer->OnStart = [] { return Array(4.0); };
    Reporter->OnUpdate = [&](int, std::uint64_t) {
        server.raise("first part taken");
        return Array(true);
    };
    const Object connection = openDownload(server.url("/"));
    EXPECT_EQ(receiveBytes(connection), "0123456789abcde");
    EXPECT_EQ(Consumer->content(), "0123456789abcde");
    EXPECT_THAT(Calls.lines(),
                ElementsAre("system vantik.net.http.io.ContentConsumer.startInternal(<consumer>) -> 1",
                            "system vantik.net.http.io.ContentConsumer.putDataInternal(<consumer>, uint8 4x1) -> 1",
                            "system vantik.net.http.io.ContentConsumer.putDataInternal(<consumer>, uint8 4x1) -> 1",
                            "system vantik.net.http.io.ContentConsumer.putDataInternal(<consumer>, uint8 2x1) -> 1",
                            "public <reporter>.update(<reporter>, uint64 1x1: 10) -> 1",
                            "system vantik.net.http.io.ContentConsumer.putDataInternal(<consumer>, uint8 4x1) -> 1",
                            "system vantik.net.http.io.ContentConsumer.putDataInternal(<consumer>, uint8 1x1) -> 1",
                            "public <reporter>.update(<reporter>, uint64 1x1: 15) -> 1",
                            "system vantik.net.http.io.ContentConsumer.closeInternal(<consumer>) -> 0"));
    expectScopeUsable(connection);
}

TEST_F(HostCalls, DownloadWithoutContentStartsAndClosesTheConsumer) {
    ScriptedServer& server = serve({step::expectHead(), step::send("HTTP/1.1 204 No Content\r\n\r\n")});
    const Object connection = openDownload(server.url("/"));
    EXPECT_EQ(receiveBytes(connection), "");
    EXPECT_THAT(Calls.lines(), ElementsAre(kConsumerStart, kConsumerClose));
    expectScopeUsable(connection);
}

// The interrupt comes in a piece. The rest of that drain is passed on and reported, and the next pass sees it.
TEST_F(HostCalls, DownloadThatIsInterrupted) {
    ScriptedServer& server = serveInParts(step::awaitPeerEnd());
    Consumer->OnStart = [] { return Array(6.0); };
    Consumer->OnPut = [&](int call, const std::string& piece) {
        if (call == 1) {
            host().interrupt();
            server.raise("first part taken");
        }
        return Array(static_cast<double>(piece.size()));
    };
    const Object connection = openDownload(server.url("/"));
    EXPECT_THROW(receiveBytes(connection), vantik::Interrupted);
    EXPECT_THAT(
        Calls.lines(),
        ElementsAre("system vantik.net.http.io.ContentConsumer.startInternal(<consumer>) -> 1",
                    "system vantik.net.http.io.ContentConsumer.putDataInternal(<consumer>, uint8 6x1) -> 1",
                    "system vantik.net.http.io.ContentConsumer.putDataInternal(<consumer>, uint8 4x1) -> 1",
                    "public <reporter>.update(<reporter>, uint64 1x1: 10) -> 1",
                    "system vantik.net.http.io.ContentConsumer.interruptInternal(<consumer>) -> 0",
                    "system vantik.net.http.io.ContentConsumer.closeInternal(<consumer>) -> 0",
                    "system vantik.net.http.io.ContentConsumer.savePayloadInternal(<consumer>, uint8 10x1) -> 0"));
    EXPECT_EQ(Consumer->Saved, "0123456789");
    expectScopeUsable(connection);
}

// The piece that is refused has gone to the buffer before, so what is saved holds it.
TEST_F(HostCalls, DownloadThatTheConsumerAborts) {
    ScriptedServer& server = serveInParts(step::awaitPeerEnd());
    Consumer->OnStart = [] { return Array(4.0); };
    Consumer->OnPut = [&](int call, const std::string& piece) {
        server.raise("first part taken");
        return call == 2 ? Array() : Array(static_cast<double>(piece.size()));
    };
    const Object connection = openDownload(server.url("/"));
    EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })),
              "VANTIK:webservices:OperationTerminatedByConsumer(" + server.url("/") + ")");
    EXPECT_THAT(
        Calls.lines(),
        ElementsAre("system vantik.net.http.io.ContentConsumer.startInternal(<consumer>) -> 1",
                    "system vantik.net.http.io.ContentConsumer.putDataInternal(<consumer>, uint8 4x1) -> 1",
                    "system vantik.net.http.io.ContentConsumer.putDataInternal(<consumer>, uint8 4x1) -> 1",
                    "system vantik.net.http.io.ContentConsumer.closeInternal(<consumer>) -> 0",
                    "system vantik.net.http.io.ContentConsumer.savePayloadInternal(<consumer>, uint8 8x1) -> 0"));
    EXPECT_EQ(Consumer->Saved, "01234567");
    expectScopeUsable(connection);
}

TEST_F(HostCalls, DownloadThatFails) {
    ScriptedServer& server = serveInParts(step::reset());
    Reporter->OnUpdate = [&](int, std::uint64_t) {
        server.raise("first part taken");
        return Array(true);
    };
    const Object connection = openDownload(server.url("/"));
    EXPECT_EQ(failureOf([&] { receiveBytes(connection); }).identifier(), "VANTIK:webservices:ConnectionRefused");
    EXPECT_THAT(
        Calls.lines(),
        ElementsAre("system vantik.net.http.io.ContentConsumer.startInternal(<consumer>) -> 1",
                    "system vantik.net.http.io.ContentConsumer.putDataInternal(<consumer>, uint8 10x1) -> 1",
                    "public <reporter>.update(<reporter>, uint64 1x1: 10) -> 1",
                    "system vantik.net.http.io.ContentConsumer.closeInternal(<consumer>) -> 0",
                    "system vantik.net.http.io.ContentConsumer.savePayloadInternal(<consumer>, uint8 10x1) -> 0"));
    EXPECT_EQ(Consumer->Saved, "0123456789");
    EXPECT_EQ(connection.get("ResponsePayload").size(), 0U);
    expectScopeUsable(connection);
}

// The send has failed, so the consumer was never started; it is told what was saved all the same, which is nothing.
TEST_F(HostCalls, DownloadWhoseRequestFailsSavesNothing) {
    ScriptedServer& server = serve({step::expectHead(), step::reset()});
    const Object connection = openDownload(server.url("/"));
    EXPECT_EQ(failureOf([&] { receiveBytes(connection); }).identifier(), "VANTIK:webservices:ConnectionRefused");
    EXPECT_THAT(
        Calls.lines(),
        ElementsAre("system vantik.net.http.io.ContentConsumer.savePayloadInternal(<consumer>, uint8 0x1) -> 0"));
    expectScopeUsable(connection);
}

TEST_F(HostCalls, FailedStatusOfTheOlderModeReachesNoConsumer) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("gone", {}, "404 Not Found"))});
    const Object connection = openDownload(server.url("/"), false);
    EXPECT_EQ(failureOf([&] { connection.call("copyContentToByteArray", {false}); }).identifier(),
              "VANTIK:webservices:StatusError");
    EXPECT_THAT(Calls.lines(), ElementsAre());
    expectScopeUsable(connection);
}

// Content in memory is offered as it stands. Its size has nothing to do with the provider's.
TEST_F(HostCalls, UploadFromMemoryCallsNothing) {
    const std::string body = patternedBytes(100000);
    ScriptedServer& server =
        serve({step::expectHead(), step::continueIfExpected(), step::expectChunkedBody(), step::send(response(""))});
    const Object connection = open(server.url("/"));
    connection.set("RequestMethod", "PUT");
    connection.set("Payload", Array::bytes(std::string_view(body)));
    connection.set("ProviderBufferSize", std::uint64_t{1});
    connection.set("ProgressReporter", Reporter);
    EXPECT_EQ(receiveBytes(connection), "");
    EXPECT_EQ(difference(server.record().Bodies.at(0), body), "");
    EXPECT_THAT(Calls.lines(), ElementsAre());
    expectScopeUsable(connection);
}

TEST_F(HostCalls, ProviderThatWasTakenAwayIsNotCalled) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("none"))});
    const Object connection = openUpload(server.url("/"));
    connection.set("Provider", Array());
    connection.set("ProviderBufferSize", std::uint64_t{5});
    EXPECT_EQ(receiveBytes(connection), "none");
    EXPECT_EQ(server.record().Received, "PUT / HTTP/1.1\r\nHost: " + server.authority() + "\r\n\r\n");
    EXPECT_THAT(Calls.lines(), ElementsAre());
    expectScopeUsable(connection);
}

TEST_F(HostCalls, ClosedConnectionCallsNothing) {
    const Object connection = makeAdapter();
    connection.set("Provider", Provider);
    connection.set("Consumer", Consumer);
    connection.set("ProgressReporter", Reporter);
    EXPECT_EQ(receiveBytes(connection), "");
    EXPECT_THAT(Calls.lines(), ElementsAre());
    expectScopeUsable(connection);
}

// Calls for methods that are not there: made once, and never again.
struct MissingRow {
    const char* Method;
    Texts Calls;
};

std::vector<MissingRow> missingRows() {
    const std::string put = "system vantik.net.http.io.ContentConsumer.putDataInternal(<bare>, uint8 4x1) -> 1";
    const std::string start = "system vantik.net.http.io.ContentConsumer.startInternal(<bare>) -> 1";
    const std::string close = "system vantik.net.http.io.ContentConsumer.closeInternal(<bare>) -> 0";
    const std::string save = "system vantik.net.http.io.ContentConsumer.savePayloadInternal(<bare>, uint8 ";
    return {{"startInternal", {start + " absent", save + "0x1) -> 0"}},
            {"putDataInternal", {start, put + " absent", close, save + "4x1) -> 0"}},
            {"closeInternal", {start, put, close + " absent"}}};
}

TEST_F(HostCalls, ConsumerThatLacksAMethod) {
    for (const MissingRow& row : missingRows()) {
        const ScriptedConsumer bare = makeScriptedConsumer(host(), {row.Method});
        ScriptedServer& server = serve({step::expectHead(), step::send(response("body"))});
        const Object connection = open(server.url("/"));
        connection.set("Consumer", bare);
        Calls.name(bare.object(), "<bare>");
        Calls.clear();
        try {
            receiveBytes(connection);
            EXPECT_STREQ(row.Method, "closeInternal");
        } catch (const vantik::Failure& failure) {
            EXPECT_EQ(describe(failure.message()),
                      std::string("VANTIK:webservices:InternalError(vantik.net.http.io.ContentConsumer.") + row.Method +
                          " not found)");
        }
        EXPECT_THAT(Calls.lines(), ElementsAreArray(row.Calls)) << row.Method;
        expectScopeUsable(connection);
    }
}

TEST_F(HostCalls, ConsumerThatCannotBeToldOfAnInterruptOrSaveIsClosedAllTheSame) {
    const ScriptedConsumer bare = makeScriptedConsumer(host(), {"interruptInternal", "savePayloadInternal"});
    ScriptedServer& server = serveInParts(step::awaitPeerEnd());
    bare->OnPut = [&](int, const std::string& piece) {
        host().interrupt();
        server.raise("first part taken");
        return Array(static_cast<double>(piece.size()));
    };
    const Object connection = open(server.url("/"));
    connection.set("Consumer", bare);
    Calls.name(bare.object(), "<bare>");
    EXPECT_THROW(receiveBytes(connection), vantik::Interrupted);
    EXPECT_THAT(
        Calls.lines(),
        ElementsAre("system vantik.net.http.io.ContentConsumer.startInternal(<bare>) -> 1",
                    "system vantik.net.http.io.ContentConsumer.putDataInternal(<bare>, uint8 10x1) -> 1",
                    "system vantik.net.http.io.ContentConsumer.interruptInternal(<bare>) -> 0 absent",
                    "system vantik.net.http.io.ContentConsumer.closeInternal(<bare>) -> 0",
                    "system vantik.net.http.io.ContentConsumer.savePayloadInternal(<bare>, uint8 10x1) -> 0 absent"));
    expectScopeUsable(connection);
}

} // namespace
