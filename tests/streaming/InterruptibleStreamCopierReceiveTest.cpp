// The pump for response content: order and conditions of its steps.
#include "errors/HTTPException.h"
#include "streaming/InterruptibleStreamCopier.h"
#include "tests/streaming/CopierFixture.h"
#include "tests/support/process/StandardOutputCapture.h"

#include <gmock/gmock.h>

#include <sstream>
#include <string>

using namespace streamingtest;
using testing::ElementsAre;
using testsupport::StandardOutputCapture;

namespace {

constexpr const char* kNowhereToGo = "Message contains data but neither consumer nor savePayload was set";

class ReceivePump : public CopierFixture {
protected:
    // Runs the pump on the copier with an empty record; what was buffered before is in the copier already.
    void receive() {
        Curl.clear();
        Copier.receiveResponse(&SaveTo);
    }
    void receiveWithoutStream() {
        Curl.clear();
        Copier.receiveResponse(nullptr);
    }

    InterruptibleStreamCopier Copier{Connection};
    std::ostringstream SaveTo;
};

TEST_F(ReceivePump, StepsUntilTheTransferHasEnded) {
    willPerform({receives("abc", 1), receives("def", 1), [] { return 0; }});
    receive();
    EXPECT_THAT(pumpJournal(), ElementsAre("curl_multi_wait 1000", "curl_multi_perform", "interrupt poll", //
                                           "curl_multi_wait 1000", "curl_multi_perform", "interrupt poll", //
                                           "curl_multi_wait 1000", "curl_multi_perform", "curl_multi_info_read"));
    EXPECT_EQ(SaveTo.view(), "abcdef");
}

TEST_F(ReceivePump, BytesOfThePassThatEndsTheTransferNeedNoFurtherPass) {
    willPerform({receives("abc", 1), receives("def", 0)});
    receive();
    EXPECT_THAT(pumpJournal(),
                ElementsAre("curl_multi_wait 1000", "curl_multi_perform", "interrupt poll", //
                            "curl_multi_wait 1000", "curl_multi_perform", "curl_multi_info_read", "interrupt poll"));
    EXPECT_EQ(SaveTo.view(), "abcdef");
}

// While bytes are buffered the network has to wait, and the transfer counts as running.
TEST_F(ReceivePump, BufferedBytesComeBeforeAnyNetworkStep) {
    Curl.callWrite("already here");
    willPerform({[&] {
        EXPECT_EQ(SaveTo.view(), "already here");
        EXPECT_TRUE(Copier.ReceiveBuffer.empty());
        return 0;
    }});
    receive();
    EXPECT_THAT(pumpJournal(),
                ElementsAre("interrupt poll", "curl_multi_wait 1000", "curl_multi_perform", "curl_multi_info_read"));
}

TEST_F(ReceivePump, BufferKeepsItsCapacity) {
    Curl.callWrite(std::string(100'000, 'x'));
    const std::size_t capacity = Copier.ReceiveBuffer.capacity();
    willPerform({receives(std::string(1000, 'y'), 0)});
    receive();
    EXPECT_TRUE(Copier.ReceiveBuffer.empty());
    EXPECT_EQ(Copier.ReceiveBuffer.capacity(), capacity);
}

TEST_F(ReceivePump, StreamGetsTheBytesAsTheyAre) {
    const std::string bytes("a\0\r\n\xff", 5);
    willPerform({receives(bytes, 0)});
    receive();
    EXPECT_EQ(SaveTo.view(), bytes);
}

TEST_F(ReceivePump, EmptyBodyEndsAtTheFirstPerform) {
    willPerform({[] { return 0; }});
    receive();
    EXPECT_THAT(pumpJournal(), ElementsAre("curl_multi_wait 1000", "curl_multi_perform", "curl_multi_info_read"));
    EXPECT_EQ(SaveTo.view(), "");
}

// Nowhere to put the content.

TEST_F(ReceivePump, EmptyBodyForNobodySucceeds) {
    willPerform({[] { return 0; }});
    EXPECT_NO_THROW(receiveWithoutStream());
}

TEST_F(ReceivePump, ContentForNobodyFails) {
    willPerform({receives("abc", 0)});
    EXPECT_EQ(internalErrorOf([&] { receiveWithoutStream(); }), kNowhereToGo);
    EXPECT_EQ(Copier.ReceiveBuffer, "abc");
}

TEST_F(ReceivePump, RunningTransferForNobodyFailsWithoutAByte) {
    host().interrupt();
    willPerform({[] { return 1; }});
    EXPECT_EQ(internalErrorOf([&] { receiveWithoutStream(); }), kNowhereToGo) << "before the interrupt is polled";
    EXPECT_TRUE(host().interruptPending());
    host().clearInterrupt();
}

// Empty waits are counted by themselves here.

TEST_F(ReceivePump, SecondEmptyWaitInARowPauses) {
    willWait({0, 0, 0, 1});
    willPerform({[] { return 1; }, [] { return 1; }, [] { return 1; }, [] { return 0; }});
    receive();
    EXPECT_THAT(journal({CurlFunction::MultiWait, CurlFunction::Pause, CurlFunction::MultiPerform}),
                ElementsAre("curl_multi_wait 1000", "curl_multi_perform",                    //
                            "curl_multi_wait 1000", "pause 100000000", "curl_multi_perform", //
                            "curl_multi_wait 1000", "pause 100000000", "curl_multi_perform", //
                            "curl_multi_wait 1000", "curl_multi_perform"));
}

TEST_F(ReceivePump, WaitThatFindsSomethingStartsTheCountAnew) {
    willWait({0, 1, 0, 3, 0});
    willPerform({[] { return 1; }, [] { return 1; }, [] { return 5; }, [] { return 1; }, [] { return 0; }});
    receive();
    EXPECT_EQ(Curl.pauses(), 0U);
}

TEST_F(ReceivePump, BytesBetweenEmptyWaitsDoNotStartTheCountAnew) {
    willWait({0, 0});
    willPerform({receives("abc", 1), [] { return 0; }});
    receive();
    EXPECT_EQ(Curl.pauses(), 1U);
}

// Timeouts.

TEST_F(ReceivePump, TimeoutIsSeenBehindAnEmptyWait) {
    letDeadlinePass();
    willWait({0});
    try {
        receive();
        FAIL() << "no timeout";
    } catch (const webservices::HTTPTimeoutException& timeout) {
        EXPECT_EQ(timeout.OptionName, u"HTTPOptions.DataTimeout");
        EXPECT_EQ(timeout.TimeoutMilliseconds, 1000.0) << "without a start the whole limit is reported";
    }
    EXPECT_EQ(Curl.count(CurlFunction::MultiPerform), 0U);
}

TEST_F(ReceivePump, PassThatBroughtNothingChecksTheTimeoutToo) {
    letDeadlinePass();
    willWait({1});
    willPerform({[] { return 1; }});
    EXPECT_THROW(receive(), webservices::HTTPTimeoutException);
    EXPECT_THAT(pumpJournal(), ElementsAre("curl_multi_wait 1000", "curl_multi_perform", "interrupt poll"));
}

TEST_F(ReceivePump, PassThatBroughtBytesDoesNotCheckTheTimeout) {
    letDeadlinePass();
    willWait({1});
    willPerform({receives("late", 0)});
    EXPECT_NO_THROW(receive());
    EXPECT_EQ(SaveTo.view(), "late");
}

TEST_F(ReceivePump, EndedTransferIsNotTimedOut) {
    letDeadlinePass();
    willWait({1});
    willPerform({[] { return 0; }});
    EXPECT_NO_THROW(receive());
}

// Failures.

TEST_F(ReceivePump, FailingWaitIsNamed) {
    Curl.failCall(CurlFunction::MultiWait, CURLM_OUT_OF_MEMORY);
    EXPECT_EQ(internalErrorOf([&] { Copier.receiveResponse(&SaveTo); }),
              "\"curl_multi_wait\" failed with CURLMcode Out of memory");
}

TEST_F(ReceivePump, FailingPerformIsNamed) {
    Curl.failCall(CurlFunction::MultiPerform, CURLM_OUT_OF_MEMORY);
    EXPECT_EQ(internalErrorOf([&] { receive(); }),
              "\"curl_multi_perform\" failed with CURLMcode Out of memoryreading from network");
}

TEST_F(ReceivePump, FailedTransferIsJudgedBeforeItsLastBytesArePassedOn) {
    Curl.giveInfo(CURLINFO_RESPONSE_CODE, 200L);
    Curl.finishWith(CURLE_RECV_ERROR);
    willPerform({receives("first", 1), receives("last", 0)});
    EXPECT_THROW(receive(), webservices::HTTPConnectionRefusedException);
    EXPECT_EQ(SaveTo.view(), "first");
    EXPECT_EQ(Copier.ReceiveBuffer, "last");
}

TEST_F(ReceivePump, StreamThatIsBadFailsOnlyAtTheEnd) {
    SaveTo.setstate(std::ios_base::badbit);
    willPerform({receives("abc", 1), receives("def", 0)});
    try {
        receive();
        FAIL() << "nothing was raised";
    } catch (const webservices::HTTPCopyStreamException& failure) {
        EXPECT_STREQ(failure.what(), "Error saving to local data stream.");
    }
    EXPECT_EQ(Curl.count(CurlFunction::MultiPerform), 2U);
    EXPECT_TRUE(Copier.ReceiveBuffer.empty());
}

TEST_F(ReceivePump, StreamThatOnlyFailedIsNotBad) {
    SaveTo.setstate(std::ios_base::failbit);
    willPerform({receives("abc", 0)});
    EXPECT_NO_THROW(receive());
}

// Progress.

TEST_F(ReceivePump, ProgressIsToldBehindEachDrainBeforeTheBufferIsEmptied) {
    const auto reporter = report();
    reporter->OnUpdate = [&](int, std::uint64_t bytes) {
        note("update " + std::to_string(bytes));
        EXPECT_FALSE(Copier.ReceiveBuffer.empty());
        EXPECT_EQ(SaveTo.view().size(), bytes);
        return vantik::Array(true);
    };
    Curl.callWrite("12345");
    Copier.TotalSent = 1000; // the counts are separate
    willPerform({[] { return 1; }, receives("678", 1), [] { return 1; }, receives("90", 0)});
    receive();
    EXPECT_THAT(reporter->Counts, ElementsAre(5U, 8U, 10U)) << "nothing on passes that bring nothing";
    EXPECT_EQ(pumpJournal()[1], "update 5") << "behind the interrupt poll";
}

TEST_F(ReceivePump, EveryCallCountsFromZero) {
    const auto reporter = report();
    Curl.callWrite("12345");
    willPerform({[] { return 0; }});
    receive();
    Curl.callWrite("123");
    willPerform({[] { return 0; }});
    receive();
    EXPECT_THAT(reporter->Counts, ElementsAre(5U, 3U));
}

TEST_F(ReceivePump, NoMemoryIsTakenByAPassThatBringsNothing) {
    const std::size_t before = vantik::Host::liveArrays();
    std::vector<std::size_t> living;
    const Perform nothing = [&] {
        living.push_back(vantik::Host::liveArrays() - before);
        return 1;
    };
    willPerform({nothing, nothing, nothing, [] { return 0; }});
    receive();
    EXPECT_THAT(living, testing::Each(1U)) << "the counter of progress alone";
    EXPECT_EQ(vantik::Host::liveArrays(), before);
}

// Trace.

TEST_F(ReceivePump, TraceCountsThePassesOnTheNetwork) {
    Connection.Settings.Debug = 1;
    willPerform({[] { return 1; }, [] { return 1; }, [] { return 0; }});
    const StandardOutputCapture output;
    receive();
    EXPECT_EQ(output.text(), "PERFORM IN READER 3 times\n");
    Connection.Settings.Debug = 0;
}

TEST_F(ReceivePump, TraceLineIsClosedByBytesAndByAFailure) {
    Connection.Settings.Debug = 1;
    Curl.failCall(CurlFunction::MultiPerform, CURLM_OUT_OF_MEMORY, 3);
    willPerform({[] { return 1; }, receives("abc", 1)});
    const StandardOutputCapture output;
    EXPECT_NE(internalErrorOf([&] { receive(); }), "");
    EXPECT_EQ(output.text(), "PERFORM IN READER 2 times\nRECEIVING 3 BYTES\nPERFORM IN READER 1 times\n");
    Connection.Settings.Debug = 0;
}

TEST_F(ReceivePump, FailedWaitIsNotTracedAsAPass) {
    Connection.Settings.Debug = 1;
    Curl.failCall(CurlFunction::MultiWait, CURLM_OUT_OF_MEMORY, 1);
    const StandardOutputCapture output;
    EXPECT_NE(internalErrorOf([&] { receive(); }), "");
    EXPECT_EQ(output.text(), "");
    Connection.Settings.Debug = 0;
}

} // namespace
