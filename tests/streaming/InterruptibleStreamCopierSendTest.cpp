// The pump for request content: order and conditions of its steps, and what a provider's array offers.
#include "errors/HTTPException.h"
#include "streaming/InterruptibleStreamCopier.h"
#include "tests/streaming/CopierFixture.h"

#include <string>

using namespace streamingtest;

namespace {

class SendPump : public CopierFixture {
protected:
    // Runs the pump on a new copier with an empty record.
    void send() {
        InterruptibleStreamCopier copier(Connection);
        Curl.clear();
        copier.sendRequest();
    }
    // What goes up where the provider gives this array and then nothing.
    std::string uploadOf(const std::function<vantik::Array()>& make, std::size_t performs) {
        const auto provider = provide("");
        provider->OnRead = [make](int call, std::uint64_t) { return call == 1 ? make() : vantik::Array(); };
        Uploaded.clear();
        willPerform(std::vector<Perform>(performs, sends(1'000'000, 1)));
        send();
        EXPECT_EQ(provider->Wanted.size(), performs + 1) << "the end was not asked for";
        return Uploaded;
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

TEST_F(SendPump, WantedSizeIs16384UnlessSet) {
    const auto provider = provide("");
    for (const std::uint64_t size : {0U, 1U}) {
        Connection.Settings.ProviderBufferSize = size;
        send();
    }
    Connection.Settings.ProviderBufferSize = 5'000'000'000'000U;
    send();
    EXPECT_THAT(provider->Wanted, ElementsAre(16384U, 1U, 5'000'000'000'000U));
}

TEST_F(SendPump, WantedSizeStaysTheSameDuringThePumpAndLivesNoLonger) {
    const auto provider = provide("abcdef");
    Connection.Settings.ProviderBufferSize = 3;
    InterruptibleStreamCopier copier(Connection);
    willPerform({[&] {
                     EXPECT_NE(copier.ProviderArgs[1], nullptr);
                     Connection.Settings.ProviderBufferSize = 999;
                     return sends(100, 1)();
                 },
                 sends(100, 1)});
    copier.sendRequest();
    EXPECT_THAT(provider->Wanted, ElementsAre(3U, 3U, 3U));
    EXPECT_THAT(copier.ProviderArgs, ElementsAre(Connection.Settings.Provider.get(), nullptr));
}

// The end of the loop.

TEST_F(SendPump, EmptyContentOfAProviderIsLeftToTheSend) {
    const auto provider = provide("");
    send();
    EXPECT_THAT(pumpJournal(), ElementsAre("start", "curl_multi_wait 1000", "get 16384"));
}

TEST_F(SendPump, TransferThatEndsEarlyAsksForNothingMoreAndLeavesNothingOnOffer) {
    const auto provider = provide(std::string(20000, 'x'));
    InterruptibleStreamCopier copier(Connection);
    Curl.clear();
    willPerform({sends(100, 0)});
    copier.sendRequest();
    EXPECT_THAT(pumpJournal(), ElementsAre("start", "curl_multi_wait 1000", "get 16384", "curl_multi_perform",
                                           "curl_multi_info_read", "interrupt poll"));
    EXPECT_EQ(Uploaded.size(), 100U);
    EXPECT_EQ(read(100), "end");
}

// Rewinds.

TEST_F(SendPump, ContentInMemoryGoesBeforeThatOfTheProviderAlsoAfterARewind) {
    setPayload("memory ");
    const auto provider = provide("provider");
    willPerform({sends(100, 1),
                 [&] {
                     sends(100, 1)();
                     EXPECT_EQ(Uploaded, "memory provider");
                     EXPECT_EQ(Curl.callSeek(0), CURL_SEEKFUNC_OK);
                     Uploaded.clear();
                     return 1;
                 },
                 sends(100, 1), sends(100, 1)});
    send();
    EXPECT_EQ(Uploaded, "memory provider");
}

// Nothing would ask the provider any more: no content must not pass for all of it.
TEST_F(SendPump, RewindOfAProviderAfterThePumpFails) {
    const auto provider = provide(std::string(1000, 'x'));
    InterruptibleStreamCopier copier(Connection);
    willPerform({sends(2000, 1), leaves(1)});
    copier.sendRequest();
    EXPECT_EQ(Curl.callSeek(0), CURL_SEEKFUNC_FAIL);
    EXPECT_EQ(provider->Starts, 2) << "a rewind restarts it all the same";
    EXPECT_EQ(Connection.Transfer.Fault, TransferFault::UploadBroken);
    EXPECT_EQ(read(100), "abort");
}

TEST_F(SendPump, RewindAfterThePumpOffersContentInMemoryAgain) {
    setPayload("0123456789");
    InterruptibleStreamCopier copier(Connection);
    willPerform({sends(100, 1)});
    copier.sendRequest();
    EXPECT_EQ(read(100), "end");
    EXPECT_EQ(Curl.callSeek(0), CURL_SEEKFUNC_OK);
    EXPECT_EQ(read(100), "10 0123456789");
}

// Empty waits. One variable counts them and receives the number of running handles.

TEST_F(SendPump, FirstEmptyWaitAfterAPerformPauses) {
    setPayload("abc");
    willWait({1, 0});
    willPerform({sends(1, 1), sends(100, 0)});
    send();
    EXPECT_THAT(pumpJournal(), ElementsAre("curl_multi_wait 1000", "curl_multi_perform", "interrupt poll", //
                                           "curl_multi_wait 1000", "pause 100000000", "curl_multi_perform",
                                           "curl_multi_info_read", "interrupt poll"));
}

TEST_F(SendPump, NeitherAnEmptyWaitBeforeAllPerformsNorOneThatFindsSomethingPauses) {
    setPayload("abc");
    willWait({0, 2, 1, 7});
    willPerform({sends(1, 1), sends(1, 3), sends(0, 1), sends(100, 0)});
    send();
    EXPECT_EQ(Curl.pauses(), 0U);
}

// Timeouts.

TEST_F(SendPump, TimeoutIsSeenOnlyAfterAnEmptyWait) {
    setPayload("abc");
    letDeadlinePass();
    willWait({1, 1, 0});
    willPerform({leaves(1), leaves(1)});
    EXPECT_THROW(send(), webservices::HTTPTimeoutException);
    EXPECT_EQ(Curl.count(CurlFunction::MultiPerform), 2U);
}

TEST_F(SendPump, TimeoutIsSeenAfterThePause) {
    setPayload("abc");
    letDeadlinePass();
    Connection.updateDeadline();
    Curl.advanceClock(950'000'000); // the pause of 100 ms takes it over the limit
    willWait({1, 0});
    willPerform({leaves(1)});
    EXPECT_THROW(send(), webservices::HTTPTimeoutException);
    EXPECT_THAT(pumpJournal(), ElementsAre("curl_multi_wait 1000", "curl_multi_perform", "interrupt poll",
                                           "curl_multi_wait 1000", "pause 100000000"));
}

TEST_F(SendPump, BytesHandedOverMoveTheDeadline) {
    setPayload("0123456789");
    letDeadlinePass();
    willWait({1, 0});
    willPerform({sends(4, 1), sends(100, 0)});
    EXPECT_NO_THROW(send());
    EXPECT_EQ(Curl.pauses(), 1U);
}

// Progress and interrupts.

TEST_F(SendPump, ProgressIsReportedInEveryPassOnceTheHeadIsComplete) {
    setPayload("0123456789");
    const auto reporter = report();
    willPerform({sends(4, 1),
                 [&] {
                     Connection.ReceivedHead.HeadersComplete = true;
                     return 1;
                 },
                 leaves(1), sends(3, 1), sends(100, 0)});
    send();
    EXPECT_THAT(reporter->Counts, ElementsAre(4U, 4U, 7U, 10U));
    EXPECT_EQ(pumpJournal().back(), "update 10") << "after the interrupt poll";
}

TEST_F(SendPump, ProgressIsLowerAfterARewind) {
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

TEST_F(SendPump, FinishedTransferIsJudgedBeforeAnInterruptIsSeen) {
    setPayload("abc");
    host().interrupt();
    Curl.giveInfo(CURLINFO_RESPONSE_CODE, 0L);
    Curl.giveInfo(CURLINFO_HTTP_CONNECTCODE, 0L);
    Curl.finishWith(CURLE_RECV_ERROR);
    willPerform({sends(100, 0)});
    EXPECT_THROW(send(), webservices::HTTPConnectionRefusedException);
    EXPECT_TRUE(host().interruptPending());

    Connection.Transfer.begin(Connection.Handles->Generation);
    willPerform({sends(100, 0)});
    EXPECT_EQ(failureText([&] { send(); }), kStopText);
    EXPECT_THAT(pumpJournal(),
                ElementsAre("curl_multi_wait 1000", "curl_multi_perform", "curl_multi_info_read", "interrupt poll"));
    EXPECT_FALSE(host().interruptPending());
}

// What a provider's array offers: its first dimension counts as bytes, whatever the class.

TEST_F(SendPump, ArrayOffersAsManyBytesAsItHasRows) {
    const double value = 0.1;
    const std::string large(200'000, 'm'); // more than was asked for
    const std::pair<std::function<vantik::Array()>, std::string> rows[] = {
        {[] { return byteMatrix(5, 1, std::string("ab\0de", 5)); }, std::string("ab\0de", 5)},
        {[] { return byteMatrix(1, 5, "abcde"); }, "a"},
        {[] { return byteMatrix(2, 3, "abcdef"); }, "ab"},
        {[&] {
             return vantik::Array::doubles({value, 1.0});
         },
         std::string(reinterpret_cast<const char*>(&value), 1)},
        {[] { return zeros(7, 1, vxDOUBLE_CLASS); }, std::string(7, '\0')},
        {[] { return vantik::Array("text"); }, "t"},
        {[] { return vantik::Array(true); }, "\x01"},
        {[&] { return vantik::Array::bytes(std::string_view(large)); }, large},
    };
    for (const auto& [make, offered] : rows) {
        EXPECT_EQ(uploadOf(make, 1), offered);
    }
}

TEST_F(SendPump, NothingInWhateverShapeIsTheEnd) {
    const std::function<vantik::Array()> nothings[] = {
        [] { return vantik::Array(); },
        [] { return vantik::Array(""); },
        [] { return zeros(0, 1, vxUINT8_CLASS); },
        [] { return zeros(0, 0, vxUINT8_CLASS); },
        [] { return zeros(1, 0, vxUINT8_CLASS); }, // a row without bytes has height 1
        [] { return zeros(9, 0, vxUINT8_CLASS); },
    };
    for (const auto& make : nothings) {
        EXPECT_EQ(uploadOf(make, 0), "");
    }
}

TEST_F(SendPump, NoResultAtAllIsTheEnd) {
    vantik::HostClass("test.silent.Provider")
        .derivesFrom("vantik.net.http.io.ContentProvider")
        .method("startInternal", [](std::span<const vantik::Array>) { return std::vector<vantik::Array>(); })
        .method("getDataInternal", [](std::span<const vantik::Array>) { return std::vector<vantik::Array>(); })
        .defineIn(host());
    const vantik::Object provider = host().create("test.silent.Provider");
    Connection.Settings.Provider = sharedOf(provider);
    EXPECT_NO_THROW(send());
}

// The bytes on offer are those of the array itself: it stays until the next one takes its place, and no longer.
TEST_F(SendPump, OneArrayLivesAtATime) {
    const auto provider = provide(std::string(10 * 16384, 'x'));
    InterruptibleStreamCopier copier(Connection);
    const std::size_t before = vantik::Host::liveArrays();
    std::vector<std::size_t> living;
    const Perform take = [&] {
        sends(65536, 1)();
        living.push_back(vantik::Host::liveArrays() - before);
        return 1;
    };
    willPerform(std::vector<Perform>(10, take));
    copier.sendRequest();
    EXPECT_THAT(living, testing::Each(3U)) << "the wanted size, the counter of progress and the last array";
    EXPECT_EQ(vantik::Host::liveArrays(), before);
}

TEST_F(SendPump, OfferPointsIntoTheHostsArray) {
    const auto provider = provide("");
    const vantik::Array content = vantik::Array::bytes(std::string_view("shared bytes"));
    provider->OnRead = [&](int call, std::uint64_t) { return call == 1 ? content : vantik::Array(); };
    InterruptibleStreamCopier copier(Connection);
    willPerform({[&] {
        EXPECT_EQ(static_cast<const void*>(copier.SendData), static_cast<const void*>(content.bytes().data()));
        return sends(100, 1)();
    }});
    copier.sendRequest();
    EXPECT_EQ(Uploaded, "shared bytes");
}

// Trace. Its line is closed by whatever else is traced, by a failure and by the end.
TEST_F(SendPump, TraceCountsThePasses) {
    setPayload("abc");
    willPerform({leaves(1), leaves(1), leaves(0)});
    EXPECT_EQ(traceOf(1, [&] { send(); }), "PERFORM IN WRITER 3 times\n");
    willPerform({sends(2, 1), sends(2, 0)});
    EXPECT_EQ(traceOf(1, [&] { send(); }),
              "PERFORM IN WRITER 1 times\nSENDING 2 BYTES\nPERFORM IN WRITER 1 times\nSENDING 1 BYTES\n");
    Curl.failCall(CurlFunction::MultiPerform, CURLM_OUT_OF_MEMORY, 2);
    willPerform({leaves(1)});
    EXPECT_EQ(traceOf(1, [&] { EXPECT_NE(failureText([&] { send(); }), "nothing"); }), "PERFORM IN WRITER 2 times\n");
}

} // namespace
