// Every failure of the pump for response content: what is reported, what the consumer sees of it, what is left, and
// that the next request is none the worse for it.
#include "tests/streaming/CopierFixture.h"

#include <sstream>
#include <string>

using namespace streamingtest;

namespace {

class ReceiveFailure;

struct Row {
    const char* Name;
    std::function<void(ReceiveFailure&)> GoWrong;
    std::string Report;
    Lines Calls;           // of the consumer
    const char* Left = ""; // in the buffer, of "abc" that had come
    bool HasStream = true; // for the content
};

// The head of a response has come, and "abc" of its content.
class ReceiveFailure : public CopierFixture, public testing::WithParamInterface<Row> {
public:
    ReceiveFailure() {
        Connection.Transfer.Opened = true;
        Connection.SentHead.Sent = true;
        Connection.Transfer.ResponseDone = true;
        Connection.ReceivedHead.ResponseCode = 206;
        Curl.giveInfo(CURLINFO_RESPONSE_CODE, 206L);
        Connection.Transfer.Copier = std::make_shared<InterruptibleStreamCopier>(Connection);
        Curl.callWrite("abc");
    }

    // What goes wrong.
    void consumeWithout(const char* method) { Consumer = consume({method}); }
    void consumeByAProvider() { Connection.Settings.Consumer = sharedOf(testsupport::makeScriptedProvider(host())); }
    void consumeNothing() { Connection.Settings.Consumer = nullptr; }
    void start(const std::function<vantik::Array()>& answer) { Consumer->OnStart = answer; }
    void put(const std::function<vantik::Array()>& answer) {
        Consumer->OnPut = [answer](int, const std::string&) { return answer(); };
    }
    void failClose() {
        Consumer->OnClose = [] { throw vantik::Failure({"test:consumer", "Stuck", {}, "cannot close"}); };
        willPerform({leaves(0)});
    }
    void failCall(CurlFunction function) { Curl.failCall(function, CURLM_OUT_OF_MEMORY); }
    void failTransfer() { // which is judged before its last bytes are passed on
        Curl.finishWith(CURLE_RECV_ERROR);
        willPerform({receives("late", 0)});
    }
    void failStream() { // which is looked at after all content and the close
        Stream.setstate(std::ios_base::badbit);
        willPerform({receives("de", 0)});
    }
    void timeOut() {
        letDeadlinePass();
        willWait({0});
    }
    void stop() {
        Reporter->OnUpdate = [](int, std::uint64_t) { return vantik::Array(false); };
    }

    testsupport::ScriptedConsumer Consumer = consume();
    testsupport::ScriptedReporter Reporter = report();
    std::ostringstream Stream;
};

vantik::Array noAnswer() {
    return {};
}

vantik::Array refuse() {
    throw vantik::Failure({"test:consumer", "Full", {}, "no room"});
}

const Lines kClosed = {"start", "close"};
const Lines kPutAndClosed = {"start", "put 3", "close"};

const std::string kNoStart = internalError("vantik.net.http.io.ContentConsumer.startInternal not found");
const std::string kNoPut = internalError("vantik.net.http.io.ContentConsumer.putDataInternal not found");
const std::string kAborted = "HTTPConsumerException[Web service copy operation aborted by consumer]";

// clang-format off
const Row kRows[] = {
    {"StartIsMissing", [](auto& t) { t.consumeWithout("startInternal"); }, kNoStart, {}, "abc"},
    {"IsNotAConsumer", [](auto& t) { t.consumeByAProvider(); }, kNoStart, {}, "abc"},
    {"StartRaises", [](auto& t) { t.start(refuse); }, "test:consumer:Full[]", {"start"}, "abc"},
    {"WantsNothing", [](auto& t) { t.start([] { return vantik::Array(0.5); }); }, internalError("ContentConsumer.startInternal returned bufSize <= 0"), {"start"}, "abc"},
    {"NowhereToGo", [](auto& t) { t.consumeNothing(); }, internalError("Message contains data but neither consumer nor savePayload was set"), {}, "abc", false},
    {"WaitFails", [](auto& t) { t.failCall(CurlFunction::MultiWait); }, internalError("\"curl_multi_wait\" failed with CURLMcode Out of memory"), kPutAndClosed},
    {"PerformFails", [](auto& t) { t.failCall(CurlFunction::MultiPerform); }, internalError("\"curl_multi_perform\" failed with CURLMcode Out of memoryreading from network"), kPutAndClosed},
    {"TimedOut", [](auto& t) { t.timeOut(); }, "HTTPTimeoutException[the server stopped sending, 1000, HTTPOptions.DataTimeout]", kPutAndClosed},
    {"TransferFails", [](auto& t) { t.failTransfer(); }, "HTTPConnectionRefusedException[Unknown exception]", kPutAndClosed, "late"},
    {"PutIsMissing", [](auto& t) { t.consumeWithout("putDataInternal"); }, kNoPut, kClosed, "abc"},
    {"PutAborts", [](auto& t) { t.put(noAnswer); }, kAborted, kPutAndClosed, "abc"},
    {"PutAbortsWithoutAClose", [](auto& t) { t.consumeWithout("closeInternal"); t.put(noAnswer); }, kAborted, {"start", "put 3"}, "abc"},
    {"PutAbortsAndCloseRaises", [](auto& t) { t.failClose(); t.put(noAnswer); }, kAborted, kPutAndClosed, "abc"}, // the first failure stays
    {"PutRaises", [](auto& t) { t.put(refuse); }, "test:consumer:Full[]", kPutAndClosed, "abc"},
    {"CloseRaises", [](auto& t) { t.failClose(); }, "test:consumer:Stuck[]", kPutAndClosed},
    {"HostInterrupts", [](auto& t) { t.host().interrupt(); }, kStopText, {"start", "interrupt", "close"}, "abc"},
    {"HostInterruptsAConsumerWithoutTheMethod", [](auto& t) { t.consumeWithout("interruptInternal"); t.host().interrupt(); }, kStopText, kClosed, "abc"},
    {"HostInterruptsWithoutAConsumer", [](auto& t) { t.consumeNothing(); t.host().interrupt(); }, kStopText, {}, "abc"},
    {"ReporterStops", [](auto& t) { t.stop(); }, kStopText, kPutAndClosed}, // which is no interrupt to the consumer
    {"ReporterLacksItsMethod", [](auto& t) { t.Reporter = t.report({"update"}); }, internalError("vantik.net.http.internal.ProgressReporter.update not found"), kPutAndClosed},
    {"StreamIsBad", [](auto& t) { t.failStream(); }, "HTTPCopyStreamException[Error saving to local data stream.]", {"start", "put 3", "put 2", "close"}},
};
// clang-format on

TEST_P(ReceiveFailure, IsReportedLeavesTheRestAndDoesNotReachTheNextRequest) {
    const Row& row = GetParam();
    row.GoWrong(*this);
    const auto copier = Connection.Transfer.Copier;
    const std::size_t arrays = vantik::Host::liveArrays();
    Curl.clear();
    EXPECT_EQ(failureText([&] { Connection.copyContentToStream(Stream, row.HasStream); }), row.Report);
    EXPECT_EQ(Consumer->Calls, row.Calls);
    EXPECT_EQ(Stream.view().find("late"), std::string::npos);

    // What stays: the copier with what was not drained, and the state of the exchange. Nothing stops the transfer.
    EXPECT_EQ(Connection.Transfer.Copier, copier);
    EXPECT_EQ(copier->ReceiveBuffer, row.Left);
    EXPECT_TRUE(Connection.Transfer.Opened);
    EXPECT_TRUE(Connection.Transfer.ResponseDone);
    EXPECT_EQ(Connection.ReceivedHead.ResponseCode, 206);
    for (const CurlFunction stops : {CurlFunction::MultiRemoveHandle, CurlFunction::MultiAddHandle,
                                     CurlFunction::EasyReset, CurlFunction::EasyCleanup, CurlFunction::EasyPause}) {
        EXPECT_EQ(Curl.count(stops), 0U);
    }
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

INSTANTIATE_TEST_SUITE_P(Each, ReceiveFailure, testing::ValuesIn(kRows),
                         [](const auto& info) { return std::string(info.param.Name); });

} // namespace
