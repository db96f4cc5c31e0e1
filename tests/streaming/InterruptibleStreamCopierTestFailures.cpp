// Every failure of the pumps: what is reported, which steps or calls of the consumer came before it, what is left, and
// that the next request is none the worse for it.
#include "host/Interrupt.h"
#include "tests/streaming/CopierFixture.h"

#include <functional>
#include <memory>
#include <sstream>
#include <string>

using namespace streamingtest;

namespace {

const std::string kWaitFailed = internalError("\"curl_multi_wait\" failed with CURLMcode Out of memory");
const std::string kPerformFailed = "\"curl_multi_perform\" failed with CURLMcode Out of memory";
const std::string kLate = "HTTPTimeoutException[the server stopped sending, 1000, HTTPOptions.DataTimeout]";
const std::string kRefused = "HTTPConnectionRefusedException[Unknown exception]";
const std::string kNoUpdate = internalError("vantik.net.http.internal.ProgressReporter.update not found");

vantik::Array refuse() {
    throw vantik::Failure({"test:object", "Refused", {}, "no room"});
}

class CopierFailure : public CopierFixture {
public:
    void failCall(CurlFunction function) { Curl.failCall(function, CURLM_OUT_OF_MEMORY); }
    void timeOut() {
        letDeadlinePass();
        willWait({0});
    }
    void answerUpdates(const vantik::Array& answer) {
        Reporter->OnUpdate = [this, answer](int, std::uint64_t) {
            note("update");
            return answer;
        };
    }
    void reportWithoutUpdate() { Reporter = report({"update"}); }
    // Nothing of the library stops a transfer that has failed.
    void expectTransferUntouched() const {
        for (const CurlFunction stops : {CurlFunction::MultiRemoveHandle, CurlFunction::MultiAddHandle,
                                         CurlFunction::EasyReset, CurlFunction::EasyCleanup, CurlFunction::EasyPause}) {
            EXPECT_EQ(Curl.count(stops), 0U);
        }
    }

    testsupport::ScriptedReporter Reporter = report();
};

// The pump for request content.

class SendFailure;

struct SendRow {
    const char* Name;
    std::function<void(SendFailure&)> GoWrong;
    std::string Report;
    std::string Steps;
};

class SendFailure : public CopierFailure, public testing::WithParamInterface<SendRow> {
public:
    SendFailure() { willPerform({sends(4, 1)}); }

    void provideWithout(const char* method) { Provider = provide("", {method}); }
    void provideAConsumer() { Connection.Settings.Provider = sharedOf(testsupport::makeScriptedConsumer(host())); }
    void failStart(int which) {
        Provider->OnStart = [this, which](int call) {
            note("start");
            if (call == which) {
                refuse();
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
    void failTransfer() {
        Curl.giveInfo(CURLINFO_RESPONSE_CODE, 200L);
        Curl.finishWith(CURLE_RECV_ERROR);
        willPerform({sends(4, 0)});
    }
    SendFailure& completeHead() { // from here on progress is reported
        Connection.ReceivedHead.HeadersComplete = true;
        return *this;
    }

    testsupport::ScriptedProvider Provider = provide("0123456789");
};

vantik::Array interrupt() {
    throw Zentorak::System::InterruptException(false);
}

vantik::Array makeStructure() {
    return vantik::Array::structure({{"A", 1.0}});
}

const std::string kNoProviderStart = internalError("vantik.net.http.io.ContentProvider.startInternal not found");
const std::string kNoRead = internalError("vantik.net.http.io.ContentProvider.getDataInternal not found");
const std::string kNoBytes = internalError("vantik.net.http.io.ContentProvider.getDataInternal returned no bytes");
const std::string kPerform = "start, wait, get 16384, perform";

// clang-format off
const SendRow kSendRows[] = {
    {"StartIsMissing", [](auto& t) { t.provideWithout("startInternal"); }, kNoProviderStart, ""},
    {"IsNotAProvider", [](auto& t) { t.provideAConsumer(); }, kNoProviderStart, ""},
    {"StartRaises", [](auto& t) { t.failStart(1); }, "test:object:Refused[]", "start"},
    {"WaitFails", [](auto& t) { t.failCall(CurlFunction::MultiWait); }, kWaitFailed, "start, wait"},
    {"TimedOut", [](auto& t) { t.timeOut(); }, kLate, "start, wait"},
    {"ReadIsMissing", [](auto& t) { t.provideWithout("getDataInternal"); }, kNoRead, "start, wait"},
    {"ReadRaises", [](auto& t) { t.read(refuse); }, "test:object:Refused[]", "start, wait, get 16384"},
    {"ReadInterrupts", [](auto& t) { t.read(interrupt); }, kStopText, "start, wait, get 16384"},
    {"ReadReturnsAStructure", [](auto& t) { t.read(makeStructure); }, kNoBytes, "start, wait, get 16384"},
    {"ReadReturnsAnObject", [](auto& t) { t.read([&t] { return t.Reporter; }); }, kNoBytes, "start, wait, get 16384"},
    {"PerformFails", [](auto& t) { t.failCall(CurlFunction::MultiPerform); }, internalError(kPerformFailed + "writing to network"), kPerform},
    {"RewindFails", [](auto& t) { t.failRestart(); }, "test:object:Refused[]", kPerform + ", start"},
    {"TransferFails", [](auto& t) { t.failTransfer(); }, kRefused, kPerform + ", message"},
    {"HostInterrupts", [](auto& t) { t.completeHead().host().interrupt(); }, kStopText, kPerform + ", poll"},
    {"ReporterStops", [](auto& t) { t.completeHead().answerUpdates(false); }, kStopText, kPerform + ", poll, update"},
    {"ReporterLacksItsMethod", [](auto& t) { t.completeHead().reportWithoutUpdate(); }, kNoUpdate, kPerform + ", poll"},
    {"ReporterDoesNotAnswer", [](auto& t) { t.completeHead().answerUpdates({}); }, internalError("Expected ProgressReporter.update to return scalar."), kPerform + ", poll, update"},
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
        EXPECT_EQ(copier.SendLength + copier.SendPosition, 0U);
        EXPECT_FALSE(copier.PumpWantsData || copier.ReadPaused);
        EXPECT_EQ(Connection.Transfer.EscapedFailure, nullptr);
        EXPECT_FALSE(host().interruptPending());
        EXPECT_EQ(vantik::Host::liveArrays(), arrays);
        EXPECT_EQ(CopierFixture::read(100), "abort") << "no server sees a good end";
        EXPECT_NE(Connection.Transfer.Fault, TransferFault::None);
        expectTransferUntouched();
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

INSTANTIATE_TEST_SUITE_P(Each, SendFailure, testing::ValuesIn(kSendRows),
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

// The pump for response content.

class ReceiveFailure;

struct ReceiveRow {
    const char* Name;
    std::function<void(ReceiveFailure&)> GoWrong;
    std::string Report;
    Lines Calls;           // of the consumer
    const char* Left = ""; // in the buffer, of "abc" that had come
    bool HasStream = true; // for the content
};

// The head of a response has come, and "abc" of its content.
class ReceiveFailure : public CopierFailure, public testing::WithParamInterface<ReceiveRow> {
public:
    ReceiveFailure() {
        Connection.Transfer.Opened = Connection.SentHead.Sent = Connection.Transfer.ResponseDone = true;
        Connection.ReceivedHead.ResponseCode = 206;
        Curl.giveInfo(CURLINFO_RESPONSE_CODE, 206L);
        Connection.Transfer.Copier = std::make_shared<InterruptibleStreamCopier>(Connection);
        Curl.callWrite("abc");
    }

    void consumeWithout(const char* method) { Consumer = consume({method}); }
    void consumeByAProvider() { Connection.Settings.Consumer = sharedOf(testsupport::makeScriptedProvider(host())); }
    void consumeNothing() { Connection.Settings.Consumer = nullptr; }
    void start(const std::function<vantik::Array()>& answer) { Consumer->OnStart = answer; }
    void put(const std::function<vantik::Array()>& answer) {
        Consumer->OnPut = [answer](int, const std::string&) { return answer(); };
    }
    void failClose() {
        Consumer->OnClose = [] { refuse(); };
        willPerform({leaves(0)});
    }
    void failTransfer() { // which is judged before its last bytes are passed on
        Curl.finishWith(CURLE_RECV_ERROR);
        willPerform({receives("late", 0)});
    }
    void failStream() { // which is looked at after all content and the close
        Stream.setstate(std::ios_base::badbit);
        willPerform({receives("de", 0)});
    }

    testsupport::ScriptedConsumer Consumer = consume();
    std::ostringstream Stream;
};

vantik::Array noAnswer() {
    return {};
}

const Lines kClosed = {"start", "close"};
const Lines kPutAndClosed = {"start", "put 3", "close"};

const std::string kNoConsumerStart = internalError("vantik.net.http.io.ContentConsumer.startInternal not found");
const std::string kNoPut = internalError("vantik.net.http.io.ContentConsumer.putDataInternal not found");
const std::string kAborted = "HTTPConsumerException[Web service copy operation aborted by consumer]";

// clang-format off
const ReceiveRow kReceiveRows[] = {
    {"StartIsMissing", [](auto& t) { t.consumeWithout("startInternal"); }, kNoConsumerStart, {}, "abc"},
    {"IsNotAConsumer", [](auto& t) { t.consumeByAProvider(); }, kNoConsumerStart, {}, "abc"},
    {"StartRaises", [](auto& t) { t.start(refuse); }, "test:object:Refused[]", {"start"}, "abc"},
    {"WantsNothing", [](auto& t) { t.start([] { return vantik::Array(0.5); }); }, internalError("ContentConsumer.startInternal returned bufSize <= 0"), {"start"}, "abc"},
    {"NowhereToGo", [](auto& t) { t.consumeNothing(); }, internalError("Message contains data but neither consumer nor savePayload was set"), {}, "abc", false},
    {"WaitFails", [](auto& t) { t.failCall(CurlFunction::MultiWait); }, kWaitFailed, kPutAndClosed},
    {"PerformFails", [](auto& t) { t.failCall(CurlFunction::MultiPerform); }, internalError(kPerformFailed + "reading from network"), kPutAndClosed},
    {"TimedOut", [](auto& t) { t.timeOut(); }, kLate, kPutAndClosed},
    {"TransferFails", [](auto& t) { t.failTransfer(); }, kRefused, kPutAndClosed, "late"},
    {"PutIsMissing", [](auto& t) { t.consumeWithout("putDataInternal"); }, kNoPut, kClosed, "abc"},
    {"PutAborts", [](auto& t) { t.put(noAnswer); }, kAborted, kPutAndClosed, "abc"},
    {"PutAbortsByAnEmptyText", [](auto& t) { t.put([] { return vantik::Array(""); }); }, kAborted, kPutAndClosed, "abc"},
    {"PutAbortsWithoutAClose", [](auto& t) { t.consumeWithout("closeInternal"); t.put(noAnswer); }, kAborted, {"start", "put 3"}, "abc"},
    {"PutAbortsAndCloseRaises", [](auto& t) { t.failClose(); t.put(noAnswer); }, kAborted, kPutAndClosed, "abc"}, // the first failure stays
    {"PutRaises", [](auto& t) { t.put(refuse); }, "test:object:Refused[]", kPutAndClosed, "abc"},
    {"CloseRaises", [](auto& t) { t.failClose(); }, "test:object:Refused[]", kPutAndClosed},
    {"HostInterrupts", [](auto& t) { t.host().interrupt(); }, kStopText, {"start", "interrupt", "close"}, "abc"},
    {"HostInterruptsAConsumerWithoutTheMethod", [](auto& t) { t.consumeWithout("interruptInternal"); t.host().interrupt(); }, kStopText, kClosed, "abc"},
    {"HostInterruptsWithoutAConsumer", [](auto& t) { t.consumeNothing(); t.host().interrupt(); }, kStopText, {}, "abc"},
    {"ReporterStops", [](auto& t) { t.answerUpdates(false); }, kStopText, kPutAndClosed}, // the consumer does not see that as an interrupt
    {"ReporterLacksItsMethod", [](auto& t) { t.reportWithoutUpdate(); }, kNoUpdate, kPutAndClosed},
    {"StreamIsBad", [](auto& t) { t.failStream(); }, "HTTPCopyStreamException[Error saving to local data stream.]", {"start", "put 3", "put 2", "close"}},
};
// clang-format on

TEST_P(ReceiveFailure, IsReportedLeavesTheRestAndDoesNotReachTheNextRequest) {
    const ReceiveRow& row = GetParam();
    row.GoWrong(*this);
    const auto copier = Connection.Transfer.Copier;
    const std::size_t arrays = vantik::Host::liveArrays();
    Curl.clear();
    EXPECT_EQ(failureText([&] { Connection.copyContentToStream(Stream, row.HasStream); }), row.Report);
    EXPECT_EQ(Consumer->Calls, row.Calls);
    EXPECT_EQ(Stream.view().find("late"), std::string::npos);

    // What stays: the copier with what was not drained, and the state of the exchange.
    EXPECT_EQ(Connection.Transfer.Copier, copier);
    EXPECT_EQ(copier->ReceiveBuffer, row.Left);
    EXPECT_TRUE(Connection.Transfer.Opened && Connection.Transfer.ResponseDone);
    EXPECT_EQ(Connection.ReceivedHead.ResponseCode, 206);
    expectTransferUntouched();
    EXPECT_EQ(vantik::Host::liveArrays(), arrays);
    EXPECT_FALSE(host().interruptPending());

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
    EXPECT_THAT(consumer->Calls, ElementsAre("start", "put 7", "close"));
    EXPECT_THAT(counts->Counts, ElementsAre(7U));
    EXPECT_FALSE(Connection.Transfer.ResponseDone);
}

INSTANTIATE_TEST_SUITE_P(Each, ReceiveFailure, testing::ValuesIn(kReceiveRows),
                         [](const auto& info) { return std::string(info.param.Name); });

} // namespace
