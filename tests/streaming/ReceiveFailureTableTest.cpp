// Every failure of the pump for response content: what is reported, who is told, what is left, and that the next
// request is none the worse for it.
#include "tests/streaming/CopierFixture.h"
#include "tests/support/host/FailureText.h"

#include <gmock/gmock.h>

#include <functional>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

using namespace streamingtest;
using testing::ElementsAreArray;
using testsupport::failureText;
using testsupport::internalError;

namespace {

enum class How {
    StartIsMissing,
    SizeIsNothing,
    NowhereToGo,
    WaitFails,
    PerformFails,
    TimedOut,
    TransferFails,
    PutIsMissing,
    PutAborts,
    PutRaises,
    HostInterrupts,
    ReporterStops,
    ReporterFails,
    StreamIsBad,
};

struct Row {
    const char* Name;
    How What;
    std::string Report;
    std::vector<std::string> Told; // the consumer's calls
    const char* Left;              // in the buffer of what had come, "abc" before
};

void PrintTo(const Row& row, std::ostream* stream) {
    *stream << row.Name;
}

using Calls = std::vector<std::string>;

std::vector<Row> rows() {
    const Calls closed{"start", "close"};
    const Calls closedBehindAPiece{"start", "put 3", "close"};
    const std::string stop = "Zentorak::System::InterruptException[The operation was stopped on request.]";
    return {
        {"StartIsMissing",
         How::StartIsMissing,
         internalError("vantik.net.http.io.ContentConsumer.startInternal not found"),
         {},
         "abc"},
        {"SizeIsNothing",
         How::SizeIsNothing,
         internalError("ContentConsumer.startInternal returned bufSize <= 0"),
         {"start"},
         "abc"},
        {"NowhereToGo",
         How::NowhereToGo,
         internalError("Message contains data but neither consumer nor savePayload was set"),
         {},
         "abc"},
        {"WaitFails", How::WaitFails, internalError("\"curl_multi_wait\" failed with CURLMcode Out of memory"),
         closedBehindAPiece, ""},
        {"PerformFails", How::PerformFails,
         internalError("\"curl_multi_perform\" failed with CURLMcode Out of memoryreading from network"),
         closedBehindAPiece, ""},
        {"TimedOut", How::TimedOut, "HTTPTimeoutException[the server stopped sending, 1000, HTTPOptions.DataTimeout]",
         closedBehindAPiece, ""},
        {"TransferFails", How::TransferFails, "HTTPConnectionRefusedException[Unknown exception]", closedBehindAPiece,
         "late"},
        {"PutIsMissing", How::PutIsMissing,
         internalError("vantik.net.http.io.ContentConsumer.putDataInternal not found"), closed, "abc"},
        {"PutAborts", How::PutAborts, "HTTPConsumerException[Web service copy operation aborted by consumer]",
         closedBehindAPiece, "abc"},
        {"PutRaises", How::PutRaises, "test:consumer:Full[]", closedBehindAPiece, "abc"},
        {"HostInterrupts", How::HostInterrupts, stop, {"start", "interrupt", "close"}, "abc"},
        {"ReporterStops", How::ReporterStops, stop, closedBehindAPiece, ""},
        {"ReporterFails", How::ReporterFails,
         internalError("vantik.net.http.internal.ProgressReporter.update not found"), closedBehindAPiece, ""},
        {"StreamIsBad", How::StreamIsBad, "HTTPCopyStreamException[Error saving to local data stream.]",
         closedBehindAPiece, ""},
    };
}

class ReceiveFailure : public CopierFixture, public testing::WithParamInterface<Row> {
protected:
    // The head of a response has come, and "abc" of its content.
    ReceiveFailure() {
        Connection.Transfer.Opened = true;
        Connection.SentHead.Sent = true;
        Connection.Transfer.ResponseDone = true;
        Connection.ReceivedHead.ResponseCode = 206;
        Curl.giveInfo(CURLINFO_RESPONSE_CODE, 206L);
        Connection.Transfer.Copier = std::make_shared<InterruptibleStreamCopier>(Connection);
        Curl.callWrite("abc");
    }

    void arrange() {
        switch (GetParam().What) {
        case How::WaitFails:
            Curl.failCall(CurlFunction::MultiWait, CURLM_OUT_OF_MEMORY);
            break;
        case How::PerformFails:
            Curl.failCall(CurlFunction::MultiPerform, CURLM_OUT_OF_MEMORY);
            break;
        case How::TimedOut:
            letDeadlinePass();
            willWait({0});
            break;
        case How::TransferFails:
            Curl.finishWith(CURLE_RECV_ERROR);
            willPerform({receives("late", 0)});
            break;
        case How::HostInterrupts:
            host().interrupt();
            break;
        case How::StreamIsBad:
            Stream.setstate(std::ios_base::badbit);
            willPerform({leaves(0)});
            break;
        default:
            break;
        }
    }

    testsupport::ScriptedConsumer failingConsumer() {
        testsupport::Missing missing;
        if (GetParam().What == How::StartIsMissing) {
            missing = {"startInternal"};
        }
        if (GetParam().What == How::PutIsMissing) {
            missing = {"putDataInternal"};
        }
        auto consumer = consume(missing);
        if (GetParam().What == How::SizeIsNothing) {
            consumer->OnStart = [] { return vantik::Array(0.5); };
        }
        if (GetParam().What == How::PutAborts) {
            consumer->OnPut = [](int, const std::string&) { return vantik::Array(); };
        }
        if (GetParam().What == How::PutRaises) {
            consumer->OnPut = [](int, const std::string&) -> vantik::Array {
                throw vantik::Failure({"test:consumer", "Full", {}, "no room"});
            };
        }
        return consumer;
    }

    std::ostringstream Stream;
};

TEST_P(ReceiveFailure, IsReportedAndToldAndLeavesTheRest) {
    const auto consumer = failingConsumer();
    const auto reporter =
        report(GetParam().What == How::ReporterFails ? testsupport::Missing{"update"} : testsupport::Missing{});
    if (GetParam().What == How::ReporterStops) {
        reporter->OnUpdate = [](int, std::uint64_t) { return vantik::Array(false); };
    }
    const bool nowhere = GetParam().What == How::NowhereToGo;
    if (nowhere) {
        Connection.Settings.Consumer = nullptr;
    }
    arrange();
    const auto copier = Connection.Transfer.Copier;
    const std::size_t arrays = vantik::Host::liveArrays();
    Curl.clear();
    EXPECT_EQ(failureText([&] { Connection.copyContentToStream(Stream, !nowhere); }), GetParam().Report);
    EXPECT_THAT(consumer->Calls, ElementsAreArray(GetParam().Told));

    // What stays: the copier with what was not drained, and the state of the exchange. Nothing stops the transfer.
    EXPECT_EQ(Connection.Transfer.Copier, copier);
    EXPECT_EQ(copier->ReceiveBuffer, GetParam().Left);
    EXPECT_TRUE(Connection.Transfer.Opened);
    EXPECT_TRUE(Connection.Transfer.ResponseDone);
    EXPECT_EQ(Connection.ReceivedHead.ResponseCode, 206);
    for (const CurlFunction stops : {CurlFunction::MultiRemoveHandle, CurlFunction::MultiAddHandle,
                                     CurlFunction::EasyReset, CurlFunction::EasyCleanup, CurlFunction::EasyPause}) {
        EXPECT_EQ(Curl.count(stops), 0U);
    }
    EXPECT_EQ(vantik::Host::liveArrays(), arrays);
    EXPECT_FALSE(host().interruptPending());
}

TEST_P(ReceiveFailure, DoesNotReachTheNextRequest) {
    const auto failing = failingConsumer();
    const auto reporter =
        report(GetParam().What == How::ReporterFails ? testsupport::Missing{"update"} : testsupport::Missing{});
    reporter->OnUpdate = [](int, std::uint64_t) { return vantik::Array(GetParam().What != How::ReporterStops); };
    const bool nowhere = GetParam().What == How::NowhereToGo;
    if (nowhere) {
        Connection.Settings.Consumer = nullptr;
    }
    arrange();
    EXPECT_NE(failureText([&] { Connection.copyContentToStream(Stream, !nowhere); }), "nothing");

    const auto consumer = consume();
    const auto counts = report();
    Connection.closeConnection();
    Connection.Transfer.Opened = true;
    Connection.Settings.HTTPOptionsMode = true; // the content comes without a head
    Connection.Limits.Deadline = SilenceLimits::kNoDeadline;
    Connection.Limits.DataTimeout = SilenceLimits::kUnlimited;
    willPerform({receives("all new", 1), leaves(0)});
    std::ostringstream next;
    Connection.copyContentToStream(next, true);
    EXPECT_EQ(next.view(), "all new");
    EXPECT_EQ(consumer->Calls, (Calls{"start", "put 7", "close"}));
    EXPECT_EQ(counts->Counts, (std::vector<std::uint64_t>{7}));
    EXPECT_FALSE(Connection.Transfer.ResponseDone);
}

INSTANTIATE_TEST_SUITE_P(Rows, ReceiveFailure, testing::ValuesIn(rows()),
                         [](const auto& info) { return std::string(info.param.Name); });

} // namespace
