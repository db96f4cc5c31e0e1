// Copying content: what goes where, which status may pass, and what a failure becomes. The failures of the pump itself
// are in InterruptibleStreamCopierReceiveTestFailures.cpp.
#include "errors/HTTPException.h"
#include "tests/streaming/CopierFixture.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"

#include <limits>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>

using namespace streamingtest;
namespace step = testsupport::step;

namespace {

class ContentToStream : public CopierFixture {
public:
    // A request that has been sent: its head has come with this status, and of its content what is given here.
    void respond(std::int32_t status, const std::string& content = {}, std::int64_t announced = -1) {
        Connection.Transfer.begin(Connection.Handles->Generation);
        Connection.Transfer.Opened = true;
        Connection.Transfer.ResponseDone = true;
        Connection.ReceivedHead.ResponseCode = status;
        Connection.Metadata.ResponseContentLength = announced;
        Connection.Transfer.Copier = std::make_shared<InterruptibleStreamCopier>(Connection);
        if (!content.empty()) {
            Curl.callWrite(content);
        }
        willPerform({leaves(0)});
        Curl.clear();
    }
    std::string copied() {
        std::ostringstream stream;
        Connection.copyContentToStream(stream, true);
        return stream.str();
    }
    // The next perform raises this.
    template <class Exception>
    void raise(Exception exception) {
        willPerform({[exception]() -> int { throw exception; }});
    }
};

class ContentOnTheWire : public testsupport::ScopeFixture {
protected:
    testsupport::CurlInterposer Curl;
    HTTPConnection Connection;
};

TEST_F(ContentToStream, ClosedConnectionCopiesNothing) {
    Connection.Transfer.ResponseDone = true;
    EXPECT_EQ(traceOf(1, [&] { EXPECT_EQ(copied(), ""); }),
              "******************** DONE WITH TRANSFER ***************\n");
    EXPECT_FALSE(Connection.Transfer.ResponseDone);
    EXPECT_EQ(Curl.count(CurlFunction::MultiPerform), 0U);
}

TEST_F(ContentToStream, ContentGoesToTheStreamAndTheExchangeIsOver) {
    respond(200, "first ");
    willPerform({receives("second", 0)});
    EXPECT_EQ(copied(), "first second");
    EXPECT_FALSE(Connection.Transfer.ResponseDone);
    EXPECT_TRUE(Connection.Transfer.Opened);
}

TEST_F(ContentToStream, SendsTheRequestWhereThatIsDue) {
    Connection.Transfer.Opened = true;
    Curl.giveInfo(CURLINFO_RESPONSE_CODE, 200L);
    willPerform({[&] {
                     Curl.callRequestHead("GET / HTTP/1.1\r\nHost: x\r\n\r\n");
                     Curl.callResponseHead("HTTP/1.1 200 OK\r\n\r\n");
                     return receives("body", 1)();
                 },
                 leaves(0)});
    EXPECT_EQ(copied(), "body");
    EXPECT_TRUE(Connection.SentHead.Sent);
    EXPECT_EQ(Connection.ReceivedHead.ResponseCode, 200);
}

// The identity of the user is taken on for the send alone.
TEST_F(ContentToStream, ProviderRunsAsTheUserAndConsumerDoesNot) {
    const auto provider = provide("up");
    const auto consumer = consume();
    std::vector<std::size_t> depths;
    provider->OnStart = [&](int) { depths.push_back(host().impersonationDepth()); };
    consumer->OnClose = [&] { depths.push_back(host().impersonationDepth()); };
    Connection.Transfer.Opened = true;
    Connection.Settings.HTTPOptionsMode = true;
    Curl.giveInfo(CURLINFO_RESPONSE_CODE, 200L);
    willPerform({sends(100, 1), receives("down", 1), leaves(0)});
    copied();
    EXPECT_THAT(depths, ElementsAre(1U, 0U));
    EXPECT_EQ(Uploaded, "up");
    EXPECT_EQ(consumer->content(), "down");
}

TEST_F(ContentToStream, WithoutTheStreamOnlyTheConsumerGetsTheContent) {
    const auto consumer = consume();
    respond(200, "for the consumer");
    std::ostringstream stream;
    Connection.copyContentToStream(stream, false);
    EXPECT_EQ(stream.str(), "");
    EXPECT_EQ(consumer->content(), "for the consumer");
}

TEST_F(ContentToStream, TraceHasItsLinesInOrder) {
    respond(200, "abc");
    EXPECT_EQ(traceOf(1, [&] { copied(); }), "COPY CONTENT TO STREAM\nPERFORM IN READER 1 times\nCLOSING\n"
                                             "******************** DONE WITH TRANSFER ***************\n");
}

// Status in the two modes.

TEST_F(ContentToStream, OlderModeFailsOutside200To299) {
    Connection.Settings.URL = u"http://host/path";
    for (const std::int32_t status : {0, 101, 199, 300, 404, 503}) {
        respond(status, "error page");
        Connection.ReceivedHead.ResponseHeaderLines = {"HTTP/1.1 404 Not Found at all", "A: b"};
        const auto consumer = consume();
        EXPECT_EQ(failureText([&] { copied(); }),
                  "HTTPStatusError[Not Found at all, http://host/path, " + std::to_string(status) + ']');
        EXPECT_EQ(Connection.ReceivedHead.ResponseCode, status);
        EXPECT_TRUE(consumer->Calls.empty()) << "the content is not received at all";
        EXPECT_EQ(Connection.Transfer.Copier->ReceiveBuffer, "error page");
        EXPECT_TRUE(Connection.Transfer.ResponseDone);
    }
}

TEST_F(ContentToStream, OlderModeTakes200To299AndOptionsModeEveryStatus) {
    const std::pair<bool, std::int32_t> rows[] = {{false, 200}, {false, 204}, {false, 299}, {true, 0},
                                                  {true, 199},  {true, 404},  {true, 503}};
    for (const auto& [optionsMode, status] : rows) {
        Connection.Settings.HTTPOptionsMode = optionsMode;
        respond(status, "page");
        EXPECT_EQ(copied(), "page") << status;
    }
}

// What a failure becomes: those of the transfer layer and of the host pass, any other std::exception is a failed
// connection, and in the older mode status 400.

struct FailureRow {
    const char* Name;
    std::function<void(ContentToStream&)> Arrange;
    std::string Report;
    std::int32_t Status = 206; // afterwards; 206 before
    bool OptionsMode = false;
};

class ContentFailure : public ContentToStream, public testing::WithParamInterface<FailureRow> {};

TEST_P(ContentFailure, IsSortedByItsKind) {
    const FailureRow& row = GetParam();
    Connection.Settings.HTTPOptionsMode = row.OptionsMode;
    respond(206);
    row.Arrange(*this);
    EXPECT_EQ(failureText([&] { copied(); }), row.Report);
    EXPECT_EQ(Connection.ReceivedHead.ResponseCode, row.Status);
    EXPECT_TRUE(Connection.Transfer.ResponseDone) << "a failure leaves it";
}

const FailureRow kFailures[] = {
    {"OfTheTransfer", [](ContentToStream& t) { t.raise(webservices::HTTPDNSException("host")); },
     "HTTPDNSException[host]"},
    {"OfTheHost", [](ContentToStream& t) { t.Curl.failCall(CurlFunction::MultiWait, CURLM_OUT_OF_MEMORY); },
     internalError("\"curl_multi_wait\" failed with CURLMcode Out of memory")},
    {"AnInterrupt",
     [](ContentToStream& t) {
         t.host().interrupt();
         t.willPerform({t.leaves(1)});
     },
     kStopText},
    {"Another", [](ContentToStream& t) { t.raise(std::out_of_range("what happened")); },
     "HTTPConnectionFailedException[what happened]", 400},
    {"AnotherInOptionsMode", [](ContentToStream& t) { t.raise(std::bad_alloc()); },
     "HTTPConnectionFailedException[std::bad_alloc]", 206, true},
    {"NotAStandardException", [](ContentToStream& t) { t.raise(42); }, "unknown"},
    // Whatever has taken the handles away: no perform of this transfer runs on what is there now.
    {"HandlesAreLost",
     [](ContentToStream& t) {
         t.willPerform({[&t] {
             ++t.Connection.Handles->Generation;
             return 1;
         }});
     },
     internalError("The connection was opened again before the last response was copied. Close it first.")},
};

INSTANTIATE_TEST_SUITE_P(Each, ContentFailure, testing::ValuesIn(kFailures),
                         [](const auto& info) { return std::string(info.param.Name); });

TEST_F(ContentToStream, FailureToSendIsSortedTheSameWay) {
    Connection.Transfer.Opened = true;
    raise(std::out_of_range("while sending"));
    EXPECT_EQ(failureText([&] { copied(); }), "HTTPConnectionFailedException[while sending]");
    EXPECT_EQ(Connection.ReceivedHead.ResponseCode, 0) << "it has left the send as a failure of the transfer";
}

// On the wire: after a send that failed early the next one begins anew and reads from its own copier alone.
TEST_F(ContentOnTheWire, SendThatIsDueAgainTakesTheHandleOffAndOn) {
    testsupport::ScriptedServer server(std::vector<testsupport::Script>{
        {step::run([this] { host().interrupt(); }), step::awaitPeerEnd()},
        {step::expectBody(9), step::send(std::string("\0\x5a\0\0\0\0\0\0", 8)), step::expectHead(), step::expectBody(4),
         step::send(testsupport::response("taken"))}});
    Connection.Settings.HTTPOptionsMode = true;
    Connection.setURL(u"http://127.0.0.1/");
    Connection.openProxyConnection("socks4://127.0.0.1", server.port()); // as long as it is silent, nothing is sent
    Connection.setRequestMethod("PUT");
    Connection.addField("Content-Length", "4");
    Connection.addField("Expect", "");
    Connection.Settings.setPayload({'b', 'o', 'd', 'y'});
    EXPECT_EQ(failureText([&] { Connection.sendRequest(); }),
              "HTTPConnectionFailedException[The operation was stopped on request.]");
    EXPECT_FALSE(Connection.SentHead.Sent);
    Curl.clear();
    std::ostringstream content;
    Connection.copyContentToStream(content, true);
    EXPECT_EQ(content.view(), "taken");
    EXPECT_EQ(server.record(1).Bodies.at(1), "body");
    EXPECT_EQ(Curl.count(CurlFunction::MultiRemoveHandle), 1U);
    EXPECT_EQ(Curl.count(CurlFunction::MultiAddHandle), 1U);
    EXPECT_EQ(Curl.count(CurlFunction::EasyReset), 0U) << "the options of the open stay";
}

// Room for the announced content.

TEST_F(ContentToStream, MemoryGetsRoomForTheAnnouncedContentOnce) {
    const std::string content(300'003, 'c'); // not a size that growth would arrive at
    respond(200, content, 300'003);
    std::ostringstream stream;
    Connection.copyContentToStream(stream, true);
    const std::string bytes = std::move(stream).str();
    EXPECT_EQ(bytes, content);
    EXPECT_EQ(bytes.capacity(), content.size());
}

TEST_F(ContentToStream, WhatTheStreamHeldBeforeStaysInFront) {
    respond(200, "new", 50'000);
    std::ostringstream stream;
    stream << "before ";
    Connection.copyContentToStream(stream, true);
    EXPECT_EQ(stream.view(), "before new");
    EXPECT_GE(std::move(stream).str().capacity(), 50'007U);
}

TEST_F(ContentToStream, LengthThatIsUnknownOrBeyondAllSenseReservesNothing) {
    constexpr std::int64_t GiB = std::int64_t{1} << 30;
    for (const std::int64_t announced :
         {std::int64_t{-1}, std::int64_t{0}, GiB + 1, 2 * GiB, 1024 * GiB, std::numeric_limits<std::int64_t>::max()}) {
        respond(200, "small", announced);
        std::ostringstream stream;
        Connection.copyContentToStream(stream, true);
        EXPECT_EQ(stream.view(), "small");
        EXPECT_LT(std::move(stream).str().capacity(), 100'000U) << announced;
    }
}

TEST_F(ContentToStream, ContentMayBeLongerThanAnnounced) {
    const std::string content(100'000, 'd');
    respond(200, content, 10); // as with decoded content
    EXPECT_EQ(copied(), content);
}

TEST_F(ContentToStream, OtherStreamsAreLeftAsTheyAre) {
    class Device : public std::streambuf {
    public:
        std::string Content;

    protected:
        std::streamsize xsputn(const char* data, std::streamsize size) override {
            Content.append(data, static_cast<std::size_t>(size));
            return size;
        }
    };
    respond(200, "to the device", 13);
    Device device;
    std::ostream stream(&device);
    Connection.copyContentToStream(stream, true);
    EXPECT_EQ(device.Content, "to the device");
}

} // namespace
