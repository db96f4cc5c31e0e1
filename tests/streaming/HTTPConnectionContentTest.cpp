// Copying content: what goes where, which status may pass, and what a failure becomes. The failures of the pump itself
// are in InterruptibleStreamCopierTestFailures.cpp.
#include "errors/HTTPException.h"
#include "streaming/ContentBuffer.h"
#include "tests/streaming/CopierFixture.h"

#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>

using namespace streamingtest;

namespace {

class ContentToStream : public CopierFixture {
protected:
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
    const std::string done = "******************** DONE WITH TRANSFER ***************\n";
    respond(200, "abc");
    EXPECT_EQ(traceOf(1, [&] { EXPECT_EQ(copied(), "abc"); }),
              "COPY CONTENT TO STREAM\nPERFORM IN READER 1 times\nCLOSING\n" + done);
    Connection.Transfer.Opened = false; // nothing is copied then
    const auto consumer = consume();
    EXPECT_EQ(traceOf(1, [&] { EXPECT_EQ(copied(), ""); }), done);
    EXPECT_EQ(Curl.count(CurlFunction::MultiPerform), 1U);
    EXPECT_TRUE(consumer->Calls.empty());
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
TEST_F(ContentToStream, FailureIsSortedByItsKind) {
    struct Row {
        std::function<void()> Arrange;
        std::string Report;
        std::int32_t Status = 206; // afterwards; 206 before
        bool OptionsMode = false;
    };
    const Row rows[] = {
        {[&] { raise(webservices::HTTPDNSException("host")); }, "HTTPDNSException[host]"},
        {[&] { Curl.failCall(CurlFunction::MultiWait, CURLM_OUT_OF_MEMORY); },
         internalError("\"curl_multi_wait\" failed with CURLMcode Out of memory")},
        {[&] {
             host().interrupt();
             willPerform({leaves(1)});
         },
         kStopText},
        {[&] { raise(std::out_of_range("what happened")); }, "HTTPConnectionFailedException[what happened]", 400},
        {[&] { raise(std::bad_alloc()); }, "HTTPConnectionFailedException[std::bad_alloc]", 206, true},
        {[&] { raise(42); }, "unknown"},
        // Whatever has taken the handles away: no perform of this transfer runs on what is there now.
        {[&] {
             willPerform({[&] {
                 ++Connection.Handles->Generation;
                 return 1;
             }});
         },
         internalError("The connection was opened again before the last response was copied. Close it first.")},
    };
    for (const auto& [arrange, report, status, optionsMode] : rows) {
        Connection.Settings.HTTPOptionsMode = optionsMode;
        respond(206);
        arrange();
        EXPECT_EQ(failureText([&] { copied(); }), report);
        EXPECT_EQ(Connection.ReceivedHead.ResponseCode, status) << report;
        EXPECT_TRUE(Connection.Transfer.ResponseDone) << "a failure leaves it";
    }
}

// Room for the announced content.

TEST_F(ContentToStream, MemoryGetsRoomForWhatIsStillToCome) {
    struct Row {
        std::int64_t Announced;
        const char* Coding;
        bool Decodes;
        bool HasRoom;
    };
    constexpr std::int64_t kLength = 1'000'000;
    for (const Row& row :
         {Row{kLength, "", true, true}, Row{kLength, "gzip", true, false}, // of what is not yet decoded
          Row{kLength, "gzip", false, true}, Row{-1, "", true, false}}) {
        respond(200, "", row.Announced);
        Connection.Handles->Decodes = row.Decodes;
        Connection.ReceivedHead.ResponseHeaderLines = {"HTTP/1.1 200 OK",
                                                       std::string("Content-Encoding: ") + row.Coding};
        ContentBuffer buffer;
        std::size_t room = 0;
        willPerform({receives("begins", 1), [&] {
                         room = buffer.room().size();
                         return 0;
                     }});
        Connection.copyContentToStream(buffer, true);
        EXPECT_EQ(room >= kLength - 6, row.HasRoom) << row.Coding << row.Announced;
        EXPECT_EQ(buffer.size(), 6U);
    }
}

TEST_F(ContentToStream, OtherStreamsAreLeftAsTheyAre) {
    respond(200, "to the device", 13);
    std::stringbuf device;
    std::ostream stream(&device);
    Connection.copyContentToStream(stream, true);
    EXPECT_EQ(device.str(), "to the device");
}

} // namespace
