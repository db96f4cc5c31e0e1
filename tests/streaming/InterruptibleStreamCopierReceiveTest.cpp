// The pump for response content: order and conditions of its steps.
#include "errors/HTTPException.h"
#include "streaming/InterruptibleStreamCopier.h"
#include "tests/streaming/CopierFixture.h"

#include <sstream>
#include <string>

using namespace streamingtest;

namespace {

class ReceivePump : public CopierFixture {
protected:
    // Runs the pump on the copier with an empty record; what was buffered before is in the copier already.
    void receive() {
        Curl.clear();
        Copier.receiveResponse(&SaveTo);
    }

    InterruptibleStreamCopier Copier{Connection};
    std::ostringstream SaveTo;
};

TEST_F(ReceivePump, StepsUntilTheTransferHasEnded) {
    willPerform({receives("abc", 1), receives(std::string("a\0\r\n\xff", 5), 1), leaves(0)});
    receive();
    EXPECT_THAT(pumpJournal(), ElementsAre("curl_multi_wait 1000", "curl_multi_perform", "interrupt poll", //
                                           "curl_multi_wait 1000", "curl_multi_perform", "interrupt poll", //
                                           "curl_multi_wait 1000", "curl_multi_perform", "curl_multi_info_read"));
    EXPECT_EQ(SaveTo.view(), std::string("abca\0\r\n\xff", 8));
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

TEST_F(ReceivePump, EmptyBodyEndsAtTheFirstPerformAndMayBeForNobody) {
    willPerform({leaves(0)});
    receive();
    EXPECT_THAT(pumpJournal(), ElementsAre("curl_multi_wait 1000", "curl_multi_perform", "curl_multi_info_read"));
    EXPECT_EQ(SaveTo.view(), "");
    willPerform({leaves(0)});
    EXPECT_NO_THROW(Copier.receiveResponse(nullptr));
}

TEST_F(ReceivePump, RunningTransferForNobodyFailsWithoutAByteAndBeforeTheInterruptIsPolled) {
    host().interrupt();
    willPerform({leaves(1)});
    EXPECT_EQ(failureText([&] { Copier.receiveResponse(nullptr); }),
              internalError("Message contains data but neither consumer nor savePayload was set"));
    EXPECT_TRUE(host().interruptPending());
    host().clearInterrupt();
}

TEST_F(ReceivePump, StreamThatOnlyFailedIsNotBad) {
    SaveTo.setstate(std::ios_base::failbit);
    willPerform({receives("abc", 0)});
    EXPECT_NO_THROW(receive());
}

// Empty waits are counted by themselves here.

TEST_F(ReceivePump, SecondEmptyWaitInARowPauses) {
    willWait({0, 0, 0, 1});
    willPerform({leaves(1), receives("abc", 1), leaves(1), leaves(0)}); // bytes do not start the count anew
    receive();
    EXPECT_THAT(journal({CurlFunction::MultiWait, CurlFunction::Pause, CurlFunction::MultiPerform}),
                ElementsAre("curl_multi_wait 1000", "curl_multi_perform",                    //
                            "curl_multi_wait 1000", "pause 100000000", "curl_multi_perform", //
                            "curl_multi_wait 1000", "pause 100000000", "curl_multi_perform", //
                            "curl_multi_wait 1000", "curl_multi_perform"));
}

TEST_F(ReceivePump, WaitThatFindsSomethingStartsTheCountAnew) {
    willWait({0, 1, 0, 3, 0});
    willPerform({leaves(1), leaves(1), leaves(5), leaves(1), leaves(0)});
    receive();
    EXPECT_EQ(Curl.pauses(), 0U);
}

// Timeouts.

TEST_F(ReceivePump, PassThatBroughtNothingChecksTheTimeout) {
    letDeadlinePass();
    willPerform({leaves(1)});
    EXPECT_THROW(receive(), webservices::HTTPTimeoutException);
    EXPECT_THAT(pumpJournal(), ElementsAre("curl_multi_wait 1000", "curl_multi_perform", "interrupt poll"));
}

TEST_F(ReceivePump, NeitherAPassThatBroughtBytesNorTheEndIsTimedOut) {
    for (const Perform& last : {receives("late", 0), leaves(0)}) {
        letDeadlinePass();
        willPerform({last});
        EXPECT_NO_THROW(receive());
    }
    EXPECT_EQ(SaveTo.view(), "late");
}

// Progress.

TEST_F(ReceivePump, ProgressIsReportedAfterEachDrainBeforeTheBufferIsEmptied) {
    const auto reporter = report();
    reporter->OnUpdate = [&](int, std::uint64_t bytes) {
        note("update " + std::to_string(bytes));
        EXPECT_FALSE(Copier.ReceiveBuffer.empty());
        EXPECT_EQ(SaveTo.view().size(), bytes);
        return vantik::Array(true);
    };
    Curl.callWrite("12345");
    Copier.TotalSent = 1000; // the counts are separate
    willPerform({leaves(1), receives("678", 1), leaves(1), receives("90", 0)});
    receive();
    EXPECT_THAT(reporter->Counts, ElementsAre(5U, 8U, 10U)) << "nothing on passes that bring nothing";
    EXPECT_EQ(pumpJournal()[1], "update 5") << "after the interrupt poll";
}

TEST_F(ReceivePump, EveryCallCountsFromZero) {
    const auto reporter = report();
    for (const char* content : {"12345", "123"}) {
        Curl.callWrite(content);
        willPerform({leaves(0)});
        receive();
    }
    EXPECT_THAT(reporter->Counts, ElementsAre(5U, 3U));
}

TEST_F(ReceivePump, NoMemoryIsTakenByAPassThatBringsNothing) {
    const std::size_t before = vantik::Host::liveArrays();
    std::vector<std::size_t> living;
    const Perform nothing = [&] {
        living.push_back(vantik::Host::liveArrays() - before);
        return 1;
    };
    willPerform({nothing, nothing, nothing, leaves(0)});
    receive();
    EXPECT_THAT(living, testing::Each(1U)) << "the counter of progress alone";
    EXPECT_EQ(vantik::Host::liveArrays(), before);
}

// Trace. Its line is closed by bytes, by a failure and by the end; a wait that fails is no pass.
TEST_F(ReceivePump, TraceCountsThePassesOnTheNetwork) {
    willPerform({leaves(1), leaves(1), leaves(0)});
    EXPECT_EQ(traceOf(1, [&] { receive(); }), "PERFORM IN READER 3 times\n");

    const auto fail = [&] { EXPECT_NE(failureText([&] { receive(); }), "nothing"); };
    Curl.failCall(CurlFunction::MultiPerform, CURLM_OUT_OF_MEMORY, 3);
    willPerform({leaves(1), receives("abc", 1)});
    EXPECT_EQ(traceOf(1, fail), "PERFORM IN READER 2 times\nRECEIVING 3 BYTES\nPERFORM IN READER 1 times\n");
    Curl.failCall(CurlFunction::MultiWait, CURLM_OUT_OF_MEMORY);
    EXPECT_EQ(traceOf(1, fail), "");
}

} // namespace
