// The pump for request content: order and conditions of its steps.
#include "embedded/scope/InterruptOrigin.h"
#include "errors/HTTPException.h"
#include "host/Interrupt.h"
#include "streaming/InterruptibleStreamCopier.h"
#include "tests/streaming/CopierFixture.h"
#include "tests/support/process/StandardOutputCapture.h"

#include <gmock/gmock.h>

#include <string>

using namespace streamingtest;
using testing::ElementsAre;
using testing::StartsWith;
using testsupport::StandardOutputCapture;

namespace {

class SendPump : public CopierFixture {
protected:
    // Runs the pump on a new copier with an empty record.
    void send() {
        InterruptibleStreamCopier copier(Connection);
        Curl.clear();
        copier.sendRequest();
    }
};

TEST_F(SendPump, StepsOfContentInMemory) {
    setPayload("0123456789");
    willPerform({sends(4, 1), sends(100, 1)});
    send();
    EXPECT_THAT(pumpJournal(), ElementsAre("curl_multi_wait 1000", "curl_multi_perform", "interrupt poll", //
                                           "curl_multi_wait 1000", "curl_multi_perform", "interrupt poll", //
                                           "curl_multi_wait 1000"));
    EXPECT_EQ(Uploaded, "0123456789");
}

TEST_F(SendPump, StepsWithAProvider) {
    const auto provider = provide(std::string(20000, 'x'));
    willPerform({sends(65536, 1), sends(65536, 1)});
    send();
    EXPECT_THAT(pumpJournal(),
                ElementsAre("start", "curl_multi_wait 1000", "get 16384", "curl_multi_perform", "interrupt poll", //
                            "curl_multi_wait 1000", "get 16384", "curl_multi_perform", "interrupt poll",          //
                            "curl_multi_wait 1000", "get 16384"));
    EXPECT_EQ(Uploaded, std::string(20000, 'x'));
    EXPECT_EQ(provider->Starts, 1);
}

TEST_F(SendPump, ProviderIsAskedOnlyWhenItsLastBytesAreGone) {
    const auto provider = provide("0123456789");
    Connection.Settings.ProviderBufferSize = 10;
    willPerform({sends(4, 1), sends(4, 1), sends(4, 1)});
    send();
    EXPECT_EQ(Uploaded, "0123456789");
    EXPECT_THAT(provider->Wanted, ElementsAre(10U, 10U));
}

TEST_F(SendPump, ContentInMemoryGoesBeforeThatOfAProvider) {
    setPayload("from memory, ");
    const auto provider = provide("from the provider");
    willPerform({sends(100, 1), sends(100, 1)});
    send();
    EXPECT_EQ(Uploaded, "from memory, from the provider");
    EXPECT_EQ(provider->Starts, 1);
}

TEST_F(SendPump, WantedSizeIs16384UnlessSet) {
    const auto provider = provide("");
    send();
    Connection.Settings.ProviderBufferSize = 1;
    send();
    Connection.Settings.ProviderBufferSize = 5'000'000'000'000U;
    send();
    EXPECT_THAT(provider->Wanted, ElementsAre(16384U, 1U, 5'000'000'000'000U));
}

TEST_F(SendPump, WantedSizeLivesOnlyAsLongAsThePump) {
    const auto provider = provide("abc");
    InterruptibleStreamCopier copier(Connection);
    willPerform({[&] {
        EXPECT_NE(copier.ProviderArgs[1], nullptr);
        return 0;
    }});
    copier.sendRequest();
    EXPECT_EQ(copier.ProviderArgs[0], handleOf(provider));
    EXPECT_EQ(copier.ProviderArgs[1], nullptr);
}

TEST_F(SendPump, WantedSizeStaysTheSameDuringThePump) {
    const auto provider = provide("abcdef");
    Connection.Settings.ProviderBufferSize = 3;
    willPerform({[&] {
                     Connection.Settings.ProviderBufferSize = 999;
                     return sends(100, 1)();
                 },
                 sends(100, 1)});
    send();
    EXPECT_THAT(provider->Wanted, ElementsAre(3U, 3U, 3U));
}

// The end of the loop.

TEST_F(SendPump, EmptyContentOfAProviderIsSentByNobodyHere) {
    const auto provider = provide("");
    send();
    EXPECT_THAT(pumpJournal(), ElementsAre("start", "curl_multi_wait 1000", "get 16384"));
}

TEST_F(SendPump, TransferThatEndsEarlyAsksForNothingMore) {
    const auto provider = provide(std::string(20000, 'x'));
    willPerform({sends(100, 0)});
    send();
    EXPECT_THAT(pumpJournal(), ElementsAre("start", "curl_multi_wait 1000", "get 16384", "curl_multi_perform",
                                           "curl_multi_info_read", "interrupt poll"));
    EXPECT_EQ(Uploaded.size(), 100U);
}

TEST_F(SendPump, ProviderIsNeitherClosedNorTold) {
    const auto provider = provide("abc");
    willPerform({sends(100, 0)});
    send();
    EXPECT_THAT(journal({}), ElementsAre("start", "get 16384"));
}

TEST_F(SendPump, NothingOfAProviderStaysOnOfferBehindThePump) {
    const auto provider = provide(std::string(1000, 'x'));
    InterruptibleStreamCopier copier(Connection);
    willPerform({sends(100, 0)});
    copier.sendRequest();
    std::string given;
    EXPECT_EQ(Curl.callRead(given, 100), 0U);
}

TEST_F(SendPump, RewindOffersContentInMemoryBeforeThatOfTheProvider) {
    setPayload("memory ");
    const auto provider = provide("provider");
    InterruptibleStreamCopier copier(Connection);
    willPerform({sends(100, 1),
                 [&] {
                     sends(100, 1)();
                     EXPECT_EQ(Curl.callSeek(0), CURL_SEEKFUNC_OK);
                     Uploaded.clear();
                     return 1;
                 },
                 sends(100, 1), sends(100, 1)});
    copier.sendRequest();
    EXPECT_EQ(Uploaded, "memory provider");
}

// Nothing would ask the provider any more: no content must not pass for all of it.
TEST_F(SendPump, RewindOfAProviderAfterThePumpFails) {
    const auto provider = provide(std::string(1000, 'x'));
    InterruptibleStreamCopier copier(Connection);
    willPerform({sends(2000, 1), [] { return 1; }});
    copier.sendRequest();
    EXPECT_EQ(Curl.callSeek(0), CURL_SEEKFUNC_FAIL);
    EXPECT_EQ(provider->Starts, 2) << "a rewind restarts it all the same";
    EXPECT_EQ(Connection.Transfer.Fault, TransferFault::UploadBroken);
    std::string given;
    EXPECT_EQ(Curl.callRead(given, 100), std::size_t{CURL_READFUNC_ABORT});
}

TEST_F(SendPump, ContentInMemoryIsReplayedByARewindBehindThePump) {
    setPayload("0123456789");
    InterruptibleStreamCopier copier(Connection);
    willPerform({sends(100, 1)});
    copier.sendRequest();
    std::string given;
    EXPECT_EQ(Curl.callRead(given, 100), 0U);
    EXPECT_EQ(Curl.callSeek(0), CURL_SEEKFUNC_OK);
    Curl.callRead(given, 100);
    EXPECT_EQ(given, "0123456789");
}

// Empty waits. One variable counts them and receives the number of running handles.

TEST_F(SendPump, EmptyWaitBeforeTheFirstPerformDoesNotPause) {
    setPayload("abc");
    willWait({0});
    willPerform({sends(100, 0)});
    send();
    EXPECT_EQ(Curl.pauses(), 0U);
}

TEST_F(SendPump, FirstEmptyWaitBehindAPerformPauses) {
    setPayload("abc");
    willWait({1, 0});
    willPerform({sends(1, 1), sends(100, 0)});
    send();
    EXPECT_THAT(pumpJournal(), ElementsAre("curl_multi_wait 1000", "curl_multi_perform", "interrupt poll", //
                                           "curl_multi_wait 1000", "pause 100000000", "curl_multi_perform",
                                           "curl_multi_info_read", "interrupt poll"));
}

TEST_F(SendPump, WaitThatFindsSomethingNeverPauses) {
    setPayload("abc");
    willWait({0, 2, 1, 7});
    willPerform({sends(1, 1), sends(1, 3), sends(0, 1), sends(100, 0)});
    send();
    EXPECT_EQ(Curl.pauses(), 0U);
}

// Timeouts.

TEST_F(SendPump, TimeoutIsSeenOnlyBehindAnEmptyWait) {
    setPayload("abc");
    letDeadlinePass();
    willWait({1, 1, 0});
    willPerform({[] { return 1; }, [] { return 1; }});
    try {
        send();
        FAIL() << "no timeout";
    } catch (const webservices::HTTPTimeoutException& timeout) {
        EXPECT_EQ(timeout.OptionName, u"HTTPOptions.DataTimeout");
        EXPECT_EQ(timeout.TimeoutMilliseconds, 1000.0) << "without a start the whole limit is reported";
    }
    EXPECT_EQ(Curl.count(CurlFunction::MultiPerform), 2U);
}

TEST_F(SendPump, TimeoutIsSeenBehindThePause) {
    setPayload("abc");
    letDeadlinePass();
    Connection.updateDeadline();
    Curl.advanceClock(950'000'000); // the pause of 100 ms takes it over the limit
    willWait({1, 0});
    willPerform({[] { return 1; }});
    EXPECT_THROW(send(), webservices::HTTPTimeoutException);
    EXPECT_THAT(pumpJournal(), ElementsAre("curl_multi_wait 1000", "curl_multi_perform", "interrupt poll",
                                           "curl_multi_wait 1000", "pause 100000000"));
}

TEST_F(SendPump, ProviderIsNotAskedBehindATimeout) {
    const auto provider = provide("abc");
    letDeadlinePass();
    willWait({0});
    EXPECT_THROW(send(), webservices::HTTPTimeoutException);
    EXPECT_THAT(journal({}), ElementsAre("start"));
}

TEST_F(SendPump, BytesHandedOverMoveTheDeadline) {
    setPayload("0123456789");
    letDeadlinePass();
    willWait({1, 0});
    willPerform({sends(4, 1), sends(100, 0)});
    EXPECT_NO_THROW(send());
    EXPECT_EQ(Curl.pauses(), 1U);
}

// Progress.

TEST_F(SendPump, ProgressIsToldInEveryPassOnceTheHeadIsComplete) {
    setPayload("0123456789");
    const auto reporter = report();
    willPerform({sends(4, 1),
                 [&] {
                     Connection.ReceivedHead.HeadersComplete = true;
                     return 1;
                 },
                 [] { return 1; }, sends(3, 1), sends(100, 0)});
    send();
    EXPECT_THAT(reporter->Counts, ElementsAre(4U, 4U, 7U, 10U));
    EXPECT_EQ(pumpJournal().back(), "update 10") << "behind the interrupt poll";
}

TEST_F(SendPump, PlainUploadReportsNothingHere) {
    setPayload("0123456789");
    const auto reporter = report();
    willPerform({sends(4, 1), sends(100, 1)});
    send();
    EXPECT_TRUE(reporter->Counts.empty());
}

TEST_F(SendPump, ProgressIsLowerBehindARewind) {
    setPayload("0123456789");
    const auto reporter = report();
    Connection.ReceivedHead.HeadersComplete = true;
    willPerform({sends(8, 1),
                 [&] {
                     EXPECT_EQ(Curl.callSeek(0), CURL_SEEKFUNC_OK);
                     return sends(2, 1)();
                 },
                 sends(100, 0)});
    send();
    EXPECT_THAT(reporter->Counts, ElementsAre(8U, 2U, 10U));
}

TEST_F(SendPump, ReporterThatSaysStopStops) {
    setPayload("0123456789");
    const auto reporter = report();
    reporter->OnUpdate = [](int, std::uint64_t) { return vantik::Array(false); };
    Connection.ReceivedHead.HeadersComplete = true;
    willPerform({sends(4, 1)});
    try {
        send();
        FAIL() << "it did not stop";
    } catch (const Zentorak::System::InterruptException& stop) {
        EXPECT_TRUE(vantik::detail::requestedByProgram(stop));
    }
}

TEST_F(SendPump, InterruptIsSeenBehindTheJudgementOfAFinishedTransfer) {
    setPayload("abc");
    host().interrupt();
    willPerform({sends(100, 0)});
    try {
        send();
        FAIL() << "the interrupt was not seen";
    } catch (const Zentorak::System::InterruptException& stop) {
        EXPECT_FALSE(vantik::detail::requestedByProgram(stop));
    }
    EXPECT_THAT(pumpJournal(),
                ElementsAre("curl_multi_wait 1000", "curl_multi_perform", "curl_multi_info_read", "interrupt poll"));
    EXPECT_FALSE(host().interruptPending());
}

TEST_F(SendPump, FailureOfAFinishedTransferComesBeforeAnInterrupt) {
    setPayload("abc");
    host().interrupt();
    Curl.giveInfo(CURLINFO_RESPONSE_CODE, 0L);
    Curl.giveInfo(CURLINFO_HTTP_CONNECTCODE, 0L);
    Curl.finishWith(CURLE_RECV_ERROR);
    willPerform({sends(100, 0)});
    EXPECT_THROW(send(), webservices::HTTPConnectionRefusedException);
    EXPECT_TRUE(host().interruptPending());
    host().clearInterrupt();
}

TEST_F(SendPump, InterruptComesBeforeProgress) {
    setPayload("abc");
    const auto reporter = report();
    Connection.ReceivedHead.HeadersComplete = true;
    host().interrupt();
    willPerform({sends(100, 1)});
    EXPECT_THROW(send(), Zentorak::System::InterruptException);
    EXPECT_TRUE(reporter->Counts.empty());
}

// Failures.

TEST_F(SendPump, FailingWaitIsNamed) {
    setPayload("abc");
    Curl.failCall(CurlFunction::MultiWait, CURLM_OUT_OF_MEMORY);
    EXPECT_EQ(internalErrorOf([&] { send(); }), "\"curl_multi_wait\" failed with CURLMcode Out of memory");
}

TEST_F(SendPump, FailingPerformIsNamed) {
    setPayload("abc");
    Curl.failCall(CurlFunction::MultiPerform, CURLM_OUT_OF_MEMORY);
    EXPECT_EQ(internalErrorOf([&] { send(); }),
              "\"curl_multi_perform\" failed with CURLMcode Out of memorywriting to network");
}

TEST_F(SendPump, ProviderWithoutStartFailsBeforeAnyNetworkWork) {
    const auto provider = provide("abc", {"startInternal"});
    EXPECT_EQ(internalErrorOf([&] { send(); }), "vantik.net.http.io.ContentProvider.startInternal not found");
    EXPECT_TRUE(pumpJournal().empty());
}

TEST_F(SendPump, ProviderWithoutContentMethodFails) {
    const auto provider = provide("abc", {"getDataInternal"});
    EXPECT_EQ(internalErrorOf([&] { send(); }), "vantik.net.http.io.ContentProvider.getDataInternal not found");
    EXPECT_THAT(pumpJournal(), ElementsAre("start", "curl_multi_wait 1000"));
}

TEST_F(SendPump, ObjectThatIsNoProviderFails) {
    const auto consumer = testsupport::makeScriptedConsumer(host());
    Connection.Settings.Provider = sharedOf(consumer);
    EXPECT_EQ(internalErrorOf([&] { send(); }), "vantik.net.http.io.ContentProvider.startInternal not found");
    EXPECT_TRUE(consumer->Calls.empty());
}

TEST_F(SendPump, WhatTheProviderRaisesPassesUnchanged) {
    const auto provider = provide("abc");
    provider->OnRead = [](int, std::uint64_t) -> vantik::Array {
        throw vantik::Failure({"test:provider", "Unreadable", {}, "bad sector"});
    };
    EXPECT_THAT(hostFailureOf([&] { send(); }), StartsWith("test:provider:Unreadable"));

    provider->OnStart = [](int) { throw vantik::Failure({"test:provider", "Gone", {}, "no such file"}); };
    EXPECT_THAT(hostFailureOf([&] { send(); }), StartsWith("test:provider:Gone"));
}

TEST_F(SendPump, InterruptRaisedByTheProviderPassesUnchanged) {
    const auto provider = provide("abc");
    provider->OnRead = [](int, std::uint64_t) -> vantik::Array { throw Zentorak::System::InterruptException(false); };
    EXPECT_THROW(send(), Zentorak::System::InterruptException);
}

TEST_F(SendPump, ProviderThatCannotBeRestartedInARewindFailsThePump) {
    const auto provider = provide("abcdef");
    provider->OnStart = [](int call) {
        if (call > 1) {
            throw vantik::Failure({"test:provider", "OnlyOnce", {}, "read once only"});
        }
    };
    willPerform({[&] {
        sends(3, 1)();
        EXPECT_EQ(Curl.callSeek(0), CURL_SEEKFUNC_FAIL);
        return 0;
    }});
    EXPECT_THAT(hostFailureOf([&] { send(); }), StartsWith("test:provider:OnlyOnce"));
    EXPECT_EQ(Curl.count(CurlFunction::MultiInfoRead), 0U) << "the failure comes before the result is looked at";
}

// Trace.

TEST_F(SendPump, TraceCountsThePassesAndClosesTheLine) {
    setPayload("abc");
    Connection.Settings.Debug = 1;
    willPerform({[] { return 1; }, [] { return 1; }, [] { return 0; }});
    const StandardOutputCapture output;
    send();
    EXPECT_EQ(output.text(), "PERFORM IN WRITER 3 times\n");
    Connection.Settings.Debug = 0;
}

TEST_F(SendPump, TraceLineIsClosedByWhatIsTracedInAPerform) {
    setPayload("abc");
    Connection.Settings.Debug = 1;
    willPerform({sends(2, 1), sends(2, 0)});
    const StandardOutputCapture output;
    send();
    EXPECT_EQ(output.text(),
              "PERFORM IN WRITER 1 times\nSENDING 2 BYTES\nPERFORM IN WRITER 1 times\nSENDING 1 BYTES\n");
    Connection.Settings.Debug = 0;
}

TEST_F(SendPump, TraceLineIsClosedOnAFailureToo) {
    setPayload("abc");
    Connection.Settings.Debug = 1;
    Curl.failCall(CurlFunction::MultiPerform, CURLM_OUT_OF_MEMORY, 2);
    willPerform({[] { return 1; }});
    const StandardOutputCapture output;
    EXPECT_NE(internalErrorOf([&] { send(); }), "");
    EXPECT_EQ(output.text(), "PERFORM IN WRITER 2 times\n");
    Connection.Settings.Debug = 0;
}

} // namespace
