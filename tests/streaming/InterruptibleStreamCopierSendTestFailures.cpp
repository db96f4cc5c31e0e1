// Every failure of the pump for request content: what is reported, which steps came before it, that nothing stays on
// offer, and that the next pump is none the worse for it.
#include "host/Interrupt.h"
#include "tests/streaming/CopierFixture.h"

#include <optional>
#include <string>

using namespace streamingtest;

namespace {

class SendFailure;

struct Row {
    const char* Name;
    std::function<void(SendFailure&)> GoWrong;
    std::string Report;
    Lines Steps;
};

class SendFailure : public CopierFixture, public testing::WithParamInterface<Row> {
public:
    SendFailure() { willPerform({sends(4, 1)}); }

    // What goes wrong.
    void provideWithout(const char* method) { Provider = provide("", {method}); }
    void provideAConsumer() { Connection.Settings.Provider = sharedOf(testsupport::makeScriptedConsumer(host())); }
    void failStart(int which) {
        Provider->OnStart = [this, which](int call) {
            note("start");
            if (call == which) {
                throw vantik::Failure({"test:provider", "Gone", {}, "no such file"});
            }
        };
    }
    void failRestart() {
        failStart(2);
        willPerform({[this] {
            sends(4, 1)();
            EXPECT_EQ(Curl.callSeek(0), CURL_SEEKFUNC_FAIL);
            return 0; // the failure is seen before the result is looked at
        }});
    }
    void read(const std::function<vantik::Array()>& content) {
        Provider->OnRead = [this, content](int, std::uint64_t wanted) {
            note("get " + std::to_string(wanted));
            return content();
        };
    }
    void readAnObject() {
        read([this]() -> vantik::Array { return testsupport::makeScriptedConsumer(host()); });
    }
    void failCall(CurlFunction function) { Curl.failCall(function, CURLM_OUT_OF_MEMORY); }
    void failTransfer() {
        Curl.giveInfo(CURLINFO_RESPONSE_CODE, 200L);
        Curl.finishWith(CURLE_RECV_ERROR);
        willPerform({sends(4, 0)});
    }
    void timeOut() {
        letDeadlinePass();
        willWait({0});
    }
    void interrupt() {
        completeHead(); // progress would be reported, were it not for the interrupt
        host().interrupt();
    }
    void answer(std::optional<bool> goOn) {
        completeHead();
        Reporter->OnUpdate = [this, goOn](int, std::uint64_t) {
            note("update");
            return goOn ? vantik::Array(*goOn) : vantik::Array();
        };
    }
    void reportWithoutUpdate() {
        completeHead();
        Reporter = report({"update"});
    }
    void completeHead() { Connection.ReceivedHead.HeadersComplete = true; }

    testsupport::ScriptedProvider Provider = provide("0123456789");
    testsupport::ScriptedReporter Reporter = report();
};

vantik::Array refuse() {
    throw vantik::Failure({"test:provider", "Unreadable", {}, "bad sector"});
}

vantik::Array interrupt() {
    throw Zentorak::System::InterruptException(false);
}

vantik::Array makeStructure() {
    return vantik::Array::structure({{"A", 1.0}});
}

const Lines kStart = {"start"};
const Lines kWait = {"start", "curl_multi_wait 1000"};
const Lines kRead = {"start", "curl_multi_wait 1000", "get 16384"};
const Lines kPerform = {"start", "curl_multi_wait 1000", "get 16384", "curl_multi_perform"};
const Lines kRestart = {"start", "curl_multi_wait 1000", "get 16384", "curl_multi_perform", "start"};
const Lines kJudge = {"start", "curl_multi_wait 1000", "get 16384", "curl_multi_perform", "curl_multi_info_read"};
const Lines kPoll = {"start", "curl_multi_wait 1000", "get 16384", "curl_multi_perform", "interrupt poll"};
const Lines kUpdate = {"start", "curl_multi_wait 1000", "get 16384", "curl_multi_perform", "interrupt poll", "update"};

const std::string kNoStart = internalError("vantik.net.http.io.ContentProvider.startInternal not found");
const std::string kNoRead = internalError("vantik.net.http.io.ContentProvider.getDataInternal not found");
const std::string kNoBytes = internalError("vantik.net.http.io.ContentProvider.getDataInternal returned no bytes");

// clang-format off
const Row kRows[] = {
    {"StartIsMissing", [](auto& t) { t.provideWithout("startInternal"); }, kNoStart, {}},
    {"IsNotAProvider", [](auto& t) { t.provideAConsumer(); }, kNoStart, {}},
    {"StartRaises", [](auto& t) { t.failStart(1); }, "test:provider:Gone[]", kStart},
    {"WaitFails", [](auto& t) { t.failCall(CurlFunction::MultiWait); }, internalError("\"curl_multi_wait\" failed with CURLMcode Out of memory"), kWait},
    {"TimedOut", [](auto& t) { t.timeOut(); }, "HTTPTimeoutException[the server stopped sending, 1000, HTTPOptions.DataTimeout]", kWait},
    {"ReadIsMissing", [](auto& t) { t.provideWithout("getDataInternal"); }, kNoRead, kWait},
    {"ReadRaises", [](auto& t) { t.read(refuse); }, "test:provider:Unreadable[]", kRead},
    {"ReadInterrupts", [](auto& t) { t.read(interrupt); }, kStopText, kRead},
    {"ReadReturnsAStructure", [](auto& t) { t.read(makeStructure); }, kNoBytes, kRead},
    {"ReadReturnsAnObject", [](auto& t) { t.readAnObject(); }, kNoBytes, kRead},
    {"PerformFails", [](auto& t) { t.failCall(CurlFunction::MultiPerform); }, internalError("\"curl_multi_perform\" failed with CURLMcode Out of memorywriting to network"), kPerform},
    {"RewindFails", [](auto& t) { t.failRestart(); }, "test:provider:Gone[]", kRestart},
    {"TransferFails", [](auto& t) { t.failTransfer(); }, "HTTPConnectionRefusedException[Unknown exception]", kJudge},
    {"HostInterrupts", [](auto& t) { t.interrupt(); }, kStopText, kPoll},
    {"ReporterStops", [](auto& t) { t.answer(false); }, kStopText, kUpdate},
    {"ReporterLacksItsMethod", [](auto& t) { t.reportWithoutUpdate(); }, internalError("vantik.net.http.internal.ProgressReporter.update not found"), kPoll},
    {"ReporterDoesNotAnswer", [](auto& t) { t.answer(std::nullopt); }, internalError("Expected ProgressReporter.update to return scalar."), kUpdate},
};
// clang-format on

TEST_P(SendFailure, IsReportedBreaksTheUploadAndDoesNotReachTheNextPump) {
    GetParam().GoWrong(*this);
    {
        const std::size_t arrays = vantik::Host::liveArrays();
        InterruptibleStreamCopier copier(Connection);
        Curl.clear();
        EXPECT_EQ(failureText([&] { copier.sendRequest(); }), GetParam().Report);
        EXPECT_EQ(pumpJournal(), GetParam().Steps);
        EXPECT_THAT(copier.ProviderArgs, ElementsAre(Connection.Settings.Provider.get(), nullptr));
        EXPECT_EQ(copier.SendData, nullptr);
        EXPECT_EQ(copier.SendLength, 0U);
        EXPECT_EQ(copier.SendPosition, 0U);
        EXPECT_FALSE(copier.PumpWantsData);
        EXPECT_FALSE(copier.ReadPaused);
        EXPECT_EQ(Connection.Transfer.EscapedFailure, nullptr);
        EXPECT_FALSE(host().interruptPending());
        EXPECT_EQ(vantik::Host::liveArrays(), arrays);
        EXPECT_EQ(CopierFixture::read(100), "abort") << "no server sees a good end";
        EXPECT_NE(Connection.Transfer.Fault, TransferFault::None);
        for (const CurlFunction stops :
             {CurlFunction::MultiRemoveHandle, CurlFunction::MultiAddHandle, CurlFunction::EasyReset}) {
            EXPECT_EQ(Curl.count(stops), 0U);
        }
    }
    Connection.Transfer.begin(Connection.Handles->Generation);
    const auto provider = provide("all of the next one");
    const auto reporter = report();
    completeHead();
    Connection.Limits.Deadline = SilenceLimits::kNoDeadline;
    Uploaded.clear();
    willPerform({sends(100, 1)});
    InterruptibleStreamCopier copier(Connection);
    copier.sendRequest();
    EXPECT_EQ(Uploaded, "all of the next one");
    EXPECT_EQ(provider->Starts, 1);
    EXPECT_THAT(reporter->Counts, ElementsAre(19U));
}

INSTANTIATE_TEST_SUITE_P(Each, SendFailure, testing::ValuesIn(kRows),
                         [](const auto& info) { return std::string(info.param.Name); });

// The same from memory: what is left of it is not sent any more.
TEST_F(CopierFixture, FailureBreaksTheUploadFromMemory) {
    setPayload("0123456789");
    InterruptibleStreamCopier copier(Connection);
    Curl.failCall(CurlFunction::MultiPerform, CURLM_OUT_OF_MEMORY, 2);
    willPerform({sends(4, 1)});
    EXPECT_NE(failureText([&] { copier.sendRequest(); }), "nothing");
    EXPECT_EQ(read(100), "abort");
    EXPECT_NE(Connection.Transfer.Fault, TransferFault::None);
}

} // namespace
