#include "errors/HTTPException.h"
#include "host/Interrupt.h"
#include "tests/streaming/CopierFixture.h"
#include "tests/support/process/StandardOutputCapture.h"
#include "transfer/HTTPConnection.h"

#include <gmock/gmock.h>

#include <limits>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <vector>

using namespace streamingtest;
using testsupport::StandardOutputCapture;

namespace {

class ContentToStream : public CopierFixture {
protected:
    // A request that has been sent: its head has come with this status, its content is waiting.
    void respond(std::int32_t status, const std::string& content = {}) {
        Connection.Transfer.begin(Connection.Handles->Generation);
        Connection.Transfer.Opened = true;
        Connection.Transfer.ResponseDone = true;
        Connection.ReceivedHead.ResponseCode = status;
        Connection.Transfer.Copier = std::make_shared<InterruptibleStreamCopier>(Connection);
        if (!content.empty()) {
            Curl.callWrite(content);
        }
        Curl.clear();
    }

    std::string copied() {
        std::ostringstream stream;
        Connection.copyContentToStream(stream, true);
        return stream.str();
    }

    // Makes the receive pump raise this.
    template <class Exception>
    void raiseWhileReceiving(Exception exception) {
        willPerform({[exception]() -> int { throw exception; }});
    }
};

TEST_F(ContentToStream, ClosedConnectionCopiesNothing) {
    Connection.Transfer.ResponseDone = true;
    Connection.Settings.Debug = 1;
    const StandardOutputCapture output;
    EXPECT_EQ(copied(), "");
    EXPECT_EQ(output.text(), "******************** DONE WITH TRANSFER ***************\n");
    EXPECT_FALSE(Connection.Transfer.ResponseDone);
    EXPECT_EQ(Curl.count(CurlFunction::MultiPerform), 0U);
    Connection.Settings.Debug = 0;
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
                 [] { return 0; }});
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
    willPerform({sends(100, 1), receives("down", 1), [] { return 0; }});
    std::ostringstream stream;
    Connection.copyContentToStream(stream, true);
    EXPECT_THAT(depths, testing::ElementsAre(1U, 0U));
    EXPECT_EQ(Uploaded, "up");
    EXPECT_EQ(consumer->content(), "down");
}

TEST_F(ContentToStream, WithoutTheStreamOnlyTheConsumerGetsTheContent) {
    const auto consumer = consume();
    respond(200, "for the consumer");
    willPerform({[] { return 0; }});
    std::ostringstream stream;
    Connection.copyContentToStream(stream, false);
    EXPECT_EQ(stream.str(), "");
    EXPECT_EQ(consumer->content(), "for the consumer");
}

TEST_F(ContentToStream, WithoutTheStreamAndAConsumerContentFails) {
    respond(200, "for nobody");
    std::ostringstream stream;
    EXPECT_EQ(internalErrorOf([&] { Connection.copyContentToStream(stream, false); }),
              "Message contains data but neither consumer nor savePayload was set");
}

TEST_F(ContentToStream, TraceHasItsLinesInOrder) {
    respond(200, "abc");
    Connection.Settings.Debug = 1;
    willPerform({[] { return 0; }});
    const StandardOutputCapture output;
    copied();
    EXPECT_EQ(output.text(), "COPY CONTENT TO STREAM\nPERFORM IN READER 1 times\nCLOSING\n"
                             "******************** DONE WITH TRANSFER ***************\n");
    Connection.Settings.Debug = 0;
}

// Status in the two modes.

TEST_F(ContentToStream, OlderModeFailsOutside200To299) {
    for (const std::int32_t status : {0, 101, 199, 300, 404, 503}) {
        respond(status, "error page");
        Connection.Settings.URL = u"http://host/path";
        Connection.ReceivedHead.ResponseHeaderLines = {"HTTP/1.1 404 Not Found at all", "A: b"};
        const auto consumer = consume();
        try {
            copied();
            ADD_FAILURE() << "status " << status << " passed";
        } catch (const webservices::HTTPStatusError& failure) {
            EXPECT_EQ(failure.StatusCode, status);
            EXPECT_EQ(failure.StatusURL, &Connection.Settings.URL);
            EXPECT_EQ(failure.Message, u"Not Found at all");
        }
        EXPECT_EQ(Connection.ReceivedHead.ResponseCode, status);
        EXPECT_TRUE(consumer->Calls.empty()) << "the content is not received at all";
        EXPECT_EQ(Connection.Transfer.Copier->ReceiveBuffer, "error page");
        EXPECT_TRUE(Connection.Transfer.ResponseDone);
    }
}

TEST_F(ContentToStream, OlderModeTakes200To299) {
    for (const std::int32_t status : {200, 204, 299}) {
        respond(status, "page");
        willPerform({[] { return 0; }});
        EXPECT_EQ(copied(), "page");
    }
}

TEST_F(ContentToStream, OptionsModeTakesEveryStatus) {
    Connection.Settings.HTTPOptionsMode = true;
    for (const std::int32_t status : {0, 199, 404, 503}) {
        respond(status, "page");
        willPerform({[] { return 0; }});
        EXPECT_EQ(copied(), "page");
    }
}

// What leaves the pump.

TEST_F(ContentToStream, TransferFailurePassesUnchanged) {
    respond(200);
    raiseWhileReceiving(webservices::HTTPDNSException("host"));
    EXPECT_THROW(copied(), webservices::HTTPDNSException);
    EXPECT_EQ(Connection.ReceivedHead.ResponseCode, 200);
    EXPECT_TRUE(Connection.Transfer.ResponseDone) << "a failure leaves it";
}

TEST_F(ContentToStream, HostFailurePassesUnchanged) {
    respond(200);
    Curl.failCall(CurlFunction::MultiWait, CURLM_OUT_OF_MEMORY);
    EXPECT_EQ(internalErrorOf([&] { copied(); }), "\"curl_multi_wait\" failed with CURLMcode Out of memory");
    EXPECT_EQ(Connection.ReceivedHead.ResponseCode, 200);
}

TEST_F(ContentToStream, InterruptPassesUnchanged) {
    respond(200);
    host().interrupt();
    willPerform({[] { return 1; }});
    EXPECT_THROW(copied(), Zentorak::System::InterruptException);
    EXPECT_EQ(Connection.ReceivedHead.ResponseCode, 200);
}

TEST_F(ContentToStream, AnythingElseIsAFailedConnectionAndStatus400InTheOlderMode) {
    respond(200);
    raiseWhileReceiving(std::out_of_range("what happened"));
    try {
        copied();
        FAIL() << "nothing was raised";
    } catch (const webservices::HTTPConnectionFailedException& failure) {
        EXPECT_STREQ(failure.what(), "what happened");
    }
    EXPECT_EQ(Connection.ReceivedHead.ResponseCode, 400);
}

TEST_F(ContentToStream, AnythingElseLeavesTheStatusInOptionsMode) {
    Connection.Settings.HTTPOptionsMode = true;
    respond(206);
    raiseWhileReceiving(std::bad_alloc());
    EXPECT_THROW(copied(), webservices::HTTPConnectionFailedException);
    EXPECT_EQ(Connection.ReceivedHead.ResponseCode, 206);
}

TEST_F(ContentToStream, WhatIsNoStandardExceptionPassesUnchanged) {
    respond(200);
    raiseWhileReceiving(42);
    EXPECT_THROW(copied(), int);
    EXPECT_EQ(Connection.ReceivedHead.ResponseCode, 200);
}

TEST_F(ContentToStream, FailureToSendIsSortedTheSameWay) {
    Connection.Transfer.Opened = true;
    raiseWhileReceiving(std::out_of_range("while sending"));
    EXPECT_THROW(copied(), webservices::HTTPConnectionFailedException);
    EXPECT_EQ(Connection.ReceivedHead.ResponseCode, 0) << "it has left the send as a failure of the transfer";
}

// Whatever has taken the handles away: no perform of this transfer runs on what is there now.
TEST_F(ContentToStream, TransferThatHasLostItsHandlesPerformsNoMore) {
    respond(200);
    willPerform({[this] {
        ++Connection.Handles->Generation;
        return 1;
    }});
    EXPECT_EQ(internalErrorOf([&] { copied(); }),
              "The connection was opened again before the last response was copied. Close it first.");
    EXPECT_EQ(Curl.count(CurlFunction::MultiPerform), 1U);
}

TEST_F(ContentToStream, BadStreamIsToldAtTheEnd) {
    respond(200, "content");
    willPerform({[] { return 0; }});
    std::ostringstream stream;
    stream.setstate(std::ios_base::badbit);
    try {
        Connection.copyContentToStream(stream, true);
        FAIL() << "nothing was raised";
    } catch (const webservices::HTTPCopyStreamException& failure) {
        EXPECT_STREQ(failure.what(), "Error saving to local data stream.");
    }
}

// Room for the announced content.

TEST_F(ContentToStream, MemoryGetsRoomForTheAnnouncedContentOnce) {
    constexpr std::int64_t announced = 300'003; // no size that growth would arrive at
    respond(200, std::string(announced, 'c'));
    Connection.Metadata.ResponseContentLength = announced;
    willPerform({[] { return 0; }});
    std::ostringstream stream;
    Connection.copyContentToStream(stream, true);
    const std::string content = std::move(stream).str();
    EXPECT_EQ(content, std::string(announced, 'c'));
    EXPECT_EQ(content.capacity(), static_cast<std::size_t>(announced));
}

TEST_F(ContentToStream, WhatTheStreamHeldBeforeStaysInFront) {
    respond(200, "new");
    Connection.Metadata.ResponseContentLength = 50'000;
    willPerform({[] { return 0; }});
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
        respond(200, "small");
        Connection.Metadata.ResponseContentLength = announced;
        willPerform({[] { return 0; }});
        std::ostringstream stream;
        Connection.copyContentToStream(stream, true);
        EXPECT_EQ(stream.view(), "small");
        EXPECT_LT(std::move(stream).str().capacity(), 100'000U) << announced;
    }
}

TEST_F(ContentToStream, ContentMayBeLongerThanAnnounced) {
    const std::string content(100'000, 'd');
    respond(200, content);
    Connection.Metadata.ResponseContentLength = 10; // as with decoded content
    willPerform({[] { return 0; }});
    EXPECT_EQ(copied(), content);
}

TEST_F(ContentToStream, OtherStreamsAreLeftAsTheyAre) {
    class Counting : public std::streambuf {
    public:
        std::string Content;

    protected:
        std::streamsize xsputn(const char* data, std::streamsize size) override {
            Content.append(data, static_cast<std::size_t>(size));
            return size;
        }
    };
    respond(200, "to the device");
    Connection.Metadata.ResponseContentLength = 13;
    willPerform({[] { return 0; }});
    Counting device;
    std::ostream stream(&device);
    Connection.copyContentToStream(stream, true);
    EXPECT_EQ(device.Content, "to the device");
}

} // namespace
