// Every failure of the pump for request content: what is reported, how often the provider was called, that nothing of
// it stays on offer, and that the next pump is none the worse for it.
#include "host/Interrupt.h"
#include "tests/streaming/CopierFixture.h"
#include "tests/support/host/FailureText.h"

#include <gmock/gmock.h>

#include <ostream>
#include <string>
#include <vector>

using namespace streamingtest;
using testing::ElementsAreArray;
using testsupport::failureText;
using testsupport::internalError;

namespace {

enum class How {
    WaitFails,
    PerformFails,
    StartIsMissing,
    StartRaises,
    ReadIsMissing,
    ReadRaises,
    ReadInterrupts,
    ReadGivesNoBytes,
    TimedOut,
    TransferFails,
    HostInterrupts,
    ReporterStops,
    ReporterFails,
    ReporterGivesNoAnswer,
    RewindFails,
};

struct Row {
    const char* Name;
    How What;
    std::string Report;
    std::vector<std::string> Calls; // the provider's
    std::size_t Performs;
};

void PrintTo(const Row& row, std::ostream* stream) {
    *stream << row.Name;
}

using Calls = std::vector<std::string>;

std::vector<Row> rows() {
    const Calls once{"start", "get 16384"};
    const std::string stop = "Zentorak::System::InterruptException[The operation was stopped on request.]";
    return {
        {"WaitFails",
         How::WaitFails,
         internalError("\"curl_multi_wait\" failed with CURLMcode Out of memory"),
         {"start"},
         0},
        {"PerformFails", How::PerformFails,
         internalError("\"curl_multi_perform\" failed with CURLMcode Out of memorywriting to network"), once, 1},
        {"StartIsMissing",
         How::StartIsMissing,
         internalError("vantik.net.http.io.ContentProvider.startInternal not found"),
         {},
         0},
        {"StartRaises", How::StartRaises, "test:provider:Gone[]", {"start"}, 0},
        {"ReadIsMissing",
         How::ReadIsMissing,
         internalError("vantik.net.http.io.ContentProvider.getDataInternal not found"),
         {"start"},
         0},
        {"ReadRaises", How::ReadRaises, "test:provider:Unreadable[]", once, 0},
        {"ReadInterrupts", How::ReadInterrupts, stop, once, 0},
        {"ReadGivesNoBytes", How::ReadGivesNoBytes,
         internalError("vantik.net.http.io.ContentProvider.getDataInternal returned no bytes"), once, 0},
        {"TimedOut",
         How::TimedOut,
         "HTTPTimeoutException[the server stopped sending, 1000, HTTPOptions.DataTimeout]",
         {"start"},
         0},
        {"TransferFails", How::TransferFails, "HTTPConnectionRefusedException[Unknown exception]", once, 1},
        {"HostInterrupts", How::HostInterrupts, stop, once, 1},
        {"ReporterStops", How::ReporterStops, stop, once, 1},
        {"ReporterFails", How::ReporterFails,
         internalError("vantik.net.http.internal.ProgressReporter.update not found"), once, 1},
        {"ReporterGivesNoAnswer", How::ReporterGivesNoAnswer,
         internalError("Expected ProgressReporter.update to return scalar."), once, 1},
        {"RewindFails", How::RewindFails, "test:provider:OnlyOnce[]", {"start", "get 16384", "start"}, 1},
    };
}

class SendFailure : public CopierFixture, public testing::WithParamInterface<Row> {
protected:
    testsupport::ScriptedProvider failingProvider() {
        testsupport::Missing missing;
        if (GetParam().What == How::StartIsMissing) {
            missing = {"startInternal"};
        }
        if (GetParam().What == How::ReadIsMissing) {
            missing = {"getDataInternal"};
        }
        auto provider = provide("0123456789", missing);
        const How what = GetParam().What;
        if (what == How::StartRaises || what == How::RewindFails) {
            provider->OnStart = [this, what](int call) {
                note("start");
                if (what == How::StartRaises) {
                    throw vantik::Failure({"test:provider", "Gone", {}, "no such file"});
                }
                if (call > 1) {
                    throw vantik::Failure({"test:provider", "OnlyOnce", {}, "read once only"});
                }
            };
        }
        if (what == How::ReadRaises || what == How::ReadInterrupts || what == How::ReadGivesNoBytes) {
            provider->OnRead = [this, what](int, std::uint64_t wanted) -> vantik::Array {
                note("get " + std::to_string(wanted));
                if (what == How::ReadRaises) {
                    throw vantik::Failure({"test:provider", "Unreadable", {}, "bad sector"});
                }
                if (what == How::ReadInterrupts) {
                    throw Zentorak::System::InterruptException(false);
                }
                return vantik::Array::structure({{"A", 1.0}});
            };
        }
        return provider;
    }

    void arrange() {
        willPerform({sends(4, 1)});
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
            Curl.giveInfo(CURLINFO_RESPONSE_CODE, 200L);
            Curl.finishWith(CURLE_RECV_ERROR);
            willPerform({sends(4, 0)});
            break;
        case How::HostInterrupts:
            host().interrupt();
            break;
        case How::ReporterStops:
        case How::ReporterFails:
        case How::ReporterGivesNoAnswer:
            Connection.ReceivedHead.HeadersComplete = true;
            break;
        case How::RewindFails:
            willPerform({[this] {
                sends(4, 1)();
                EXPECT_EQ(Curl.callSeek(0), CURL_SEEKFUNC_FAIL);
                return 1;
            }});
            break;
        default:
            break;
        }
    }
};

TEST_P(SendFailure, IsReportedAndBreaksTheUpload) {
    const auto provider = failingProvider();
    const auto reporter =
        report(GetParam().What == How::ReporterFails ? testsupport::Missing{"update"} : testsupport::Missing{});
    reporter->OnUpdate = [](int, std::uint64_t) {
        return GetParam().What == How::ReporterGivesNoAnswer ? vantik::Array() : vantik::Array(false);
    };
    arrange();
    const std::size_t arrays = vantik::Host::liveArrays();
    InterruptibleStreamCopier copier(Connection);
    Curl.clear();
    EXPECT_EQ(failureText([&] { copier.sendRequest(); }), GetParam().Report);
    EXPECT_THAT(journal({}), ElementsAreArray(GetParam().Calls)) << "the provider is told nothing behind it";
    EXPECT_EQ(Curl.count(CurlFunction::MultiPerform), GetParam().Performs);

    EXPECT_EQ(copier.ProviderArgs[0], handleOf(provider));
    EXPECT_EQ(copier.ProviderArgs[1], nullptr);
    EXPECT_EQ(copier.SendData, nullptr);
    EXPECT_EQ(copier.SendLength, 0U);
    EXPECT_FALSE(copier.PumpWantsData);
    EXPECT_EQ(Connection.Transfer.EscapedFailure, nullptr);
    EXPECT_FALSE(host().interruptPending());
    EXPECT_EQ(vantik::Host::liveArrays(), arrays);
    std::string given;
    EXPECT_EQ(Curl.callRead(given, 100), std::size_t{CURL_READFUNC_ABORT}) << "no server sees a good end";
    EXPECT_NE(Connection.Transfer.Fault, TransferFault::None);
    for (const CurlFunction stops :
         {CurlFunction::MultiRemoveHandle, CurlFunction::MultiAddHandle, CurlFunction::EasyReset}) {
        EXPECT_EQ(Curl.count(stops), 0U);
    }
}

TEST_P(SendFailure, DoesNotReachTheNextPump) {
    {
        const auto provider = failingProvider();
        const auto reporter =
            report(GetParam().What == How::ReporterFails ? testsupport::Missing{"update"} : testsupport::Missing{});
        reporter->OnUpdate = [](int, std::uint64_t) {
            return GetParam().What == How::ReporterGivesNoAnswer ? vantik::Array() : vantik::Array(false);
        };
        arrange();
        InterruptibleStreamCopier copier(Connection);
        EXPECT_NE(failureText([&] { copier.sendRequest(); }), "nothing");
    }
    Connection.Transfer.begin(Connection.Handles->Generation);
    const auto provider = provide("all of the next one");
    const auto reporter = report();
    Connection.ReceivedHead.HeadersComplete = true;
    Connection.Limits.Deadline = SilenceLimits::kNoDeadline;
    Uploaded.clear();
    willPerform({sends(100, 1)});
    InterruptibleStreamCopier copier(Connection);
    copier.sendRequest();
    EXPECT_EQ(Uploaded, "all of the next one");
    EXPECT_EQ(provider->Starts, 1);
    EXPECT_EQ(reporter->Counts, (std::vector<std::uint64_t>{19}));
}

// The same from memory: what is left of it is not sent any more.
TEST_F(CopierFixture, FailureBreaksTheUploadFromMemory) {
    setPayload("0123456789");
    InterruptibleStreamCopier copier(Connection);
    Curl.failCall(CurlFunction::MultiPerform, CURLM_OUT_OF_MEMORY, 2);
    willPerform({sends(4, 1)});
    EXPECT_NE(failureText([&] { copier.sendRequest(); }), "nothing");
    std::string given;
    EXPECT_EQ(Curl.callRead(given, 100), std::size_t{CURL_READFUNC_ABORT});
    EXPECT_NE(Connection.Transfer.Fault, TransferFault::None);
}

INSTANTIATE_TEST_SUITE_P(Rows, SendFailure, testing::ValuesIn(rows()),
                         [](const auto& info) { return std::string(info.param.Name); });

} // namespace
