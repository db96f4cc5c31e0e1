// The copier's construction, and what its callbacks do in each of its states.
#include "streaming/InterruptibleStreamCopier.h"

#include "hostcalls/HostObjectCall.h"
#include "tests/streaming/CopierFixture.h"
#include "transfer/CurlCallbacks.h"

#include <memory>
#include <stdexcept>
#include <string>

using namespace streamingtest;

namespace {

class CopierConstruction : public CopierFixture {};
class CopierCallbacks : public CopierFixture {};

TEST_F(CopierConstruction, StartsOnThePayload) {
    setPayload("request content");
    const auto provider = provide("");
    const InterruptibleStreamCopier copier(Connection);
    EXPECT_EQ(copier.Connection, &Connection);
    EXPECT_EQ(copier.SendData, Connection.Settings.payload().data());
    EXPECT_EQ(copier.SendLength, 15U);
    EXPECT_EQ(copier.SendPosition + copier.TotalSent, 0U);
    EXPECT_TRUE(copier.ReceiveBuffer.empty());
    EXPECT_GE(copier.ReceiveBuffer.capacity(), 16384U);
    EXPECT_EQ(copier.ProviderClass, vcos::internal::makeInterned("vantik.net.http.io.ContentProvider"));
    EXPECT_EQ(copier.Provider, Connection.Settings.Provider);
    EXPECT_THAT(copier.ProviderArgs, ElementsAre(Connection.Settings.Provider.get(), nullptr));
    for (const CURLoption data : {CURLOPT_WRITEDATA, CURLOPT_READDATA, CURLOPT_SEEKDATA}) {
        EXPECT_EQ(Curl.lastOption(data)->Pointer, &copier);
    }
}

TEST_F(CopierConstruction, TakesTheBufferOfTheCopierBefore) {
    Connection.Transfer.Copier = std::make_shared<InterruptibleStreamCopier>(Connection);
    Connection.Transfer.Copier->ReceiveBuffer.assign(100000, 'x');
    const char* const memory = Connection.Transfer.Copier->ReceiveBuffer.data();
    const InterruptibleStreamCopier next(Connection);
    EXPECT_TRUE(next.ReceiveBuffer.empty());
    EXPECT_EQ(next.ReceiveBuffer.data(), memory);
}

// In their order: those before the refused one have been set, and none after it.
TEST_F(CopierConstruction, RefusedOptionIsNamedAndLeavesTheCopierBefore) {
    const std::pair<CURLoption, std::string> registered[] = {
        {CURLOPT_WRITEFUNCTION, "CURLOPT_WRITEFUNCTION"}, {CURLOPT_WRITEDATA, "CURLOPT_WRITEDATA"},
        {CURLOPT_READFUNCTION, "CURLOPT_READFUNCTION"},   {CURLOPT_READDATA, "CURLOPT_READDATA"},
        {CURLOPT_SEEKFUNCTION, "CURLOPT_SEEKFUNCTION"},   {CURLOPT_SEEKDATA, "CURLOPT_SEEKDATA"},
    };
    const auto before = std::make_shared<InterruptibleStreamCopier>(Connection);
    Connection.Transfer.Copier = before;
    before->ReceiveBuffer = "not passed on yet";
    Lines names;
    for (const auto& [option, name] : registered) {
        names.push_back(name);
        Curl.clear();
        Curl.failOption(option, CURLE_OUT_OF_MEMORY);
        EXPECT_EQ(failureText([&] { const InterruptibleStreamCopier next(Connection); }),
                  internalError('"' + name + "\" failed with CURLcode Out of memory"));
        EXPECT_EQ(Curl.options(), names);
        EXPECT_EQ(before->ReceiveBuffer, "not passed on yet");
    }
    Connection.Transfer.Opened = true;
    Curl.failOption(CURLOPT_WRITEFUNCTION, CURLE_OUT_OF_MEMORY);
    EXPECT_NE(failureText([&] { Connection.sendRequest(); }), "nothing");
    EXPECT_EQ(Connection.Transfer.Copier, before);
}

TEST_F(CopierConstruction, EachSendGetsACopierOfItsOwn) {
    Curl.giveInfo(CURLINFO_RESPONSE_CODE, 200L);
    std::weak_ptr<InterruptibleStreamCopier> before;
    for (int i = 0; i < 2; ++i) {
        Connection.closeConnection();
        EXPECT_EQ(before.expired(), i == 0) << "it goes when the next one takes its place";
        Connection.Transfer.Opened = true;
        willPerform({[&] {
            EXPECT_TRUE(before.expired());
            EXPECT_EQ(Connection.Transfer.Copier->ReceiveBuffer, "");
            return receives("left over", 0)();
        }});
        Connection.sendRequest();
        before = Connection.Transfer.Copier;
    }
}

// The callbacks.

TEST_F(CopierCallbacks, LengthIsSizeTimesCountAndMayBeNothing) {
    setPayload("0123456789");
    InterruptibleStreamCopier copier(Connection);
    char data[] = "abcdefghij";
    EXPECT_EQ(InterruptibleStreamCopier::writeCallback(data, 3, 2, &copier), 6U);
    EXPECT_EQ(copier.ReceiveBuffer, "abcdef");
    EXPECT_EQ(InterruptibleStreamCopier::readCallback(data, 3, 2, &copier), 6U);
    EXPECT_STREQ(data, "012345ghij");
    Connection.Transfer.PerformDone = false;
    EXPECT_EQ(Curl.callWrite(""), 0U);
    EXPECT_TRUE(Connection.Transfer.PerformDone) << "the wait for the head is over all the same";
}

TEST_F(CopierCallbacks, BytesReadMoveTheDeadlineAndTheEndDoesNot) {
    setPayload("0123456789");
    Connection.Limits.ResponseTimeout = 2000.0;
    Connection.Limits.ResponseTimeoutMs = 2000;
    const InterruptibleStreamCopier copier(Connection);
    Connection.Limits.Deadline = 5;
    Curl.setClock(7'000'000'000);
    read(10);
    EXPECT_EQ(Connection.Limits.Deadline, 9'000'000'000);
    Curl.advanceClock(1'000'000'000);
    read(10);
    EXPECT_EQ(Connection.Limits.Deadline, 9'000'000'000);
}

TEST_F(CopierCallbacks, EveryOriginOfASeekIsTakenAsAbsolute) {
    setPayload("0123456789");
    InterruptibleStreamCopier copier(Connection);
    for (const int origin : {SEEK_SET, SEEK_CUR, SEEK_END}) {
        copier.SendPosition = 7;
        EXPECT_EQ(InterruptibleStreamCopier::seekCallback(&copier, 2, origin), CURL_SEEKFUNC_OK);
        EXPECT_EQ(copier.SendPosition, 2U);
    }
    EXPECT_EQ(Curl.callSeek(-1), CURL_SEEKFUNC_OK);
    EXPECT_EQ(read(100), "end");
}

// A head that comes before the end of the content has forbidden to use the network connection again.
TEST_F(CopierCallbacks, EndOfTheUploadAllowsReuseAfterAnEarlyHead) {
    setPayload("ab");
    const InterruptibleStreamCopier copier(Connection);
    bool& pending = Connection.Transfer.UploadPending;
    const auto allowed = [&] { return Curl.texts({CurlFunction::EasySetopt}); };
    Curl.clear();
    pending = true;
    EXPECT_EQ(read(2), "2 ab");
    EXPECT_EQ(read(2), "end");
    EXPECT_FALSE(pending);
    EXPECT_THAT(allowed(), ElementsAre()) << "nothing has forbidden it";
    Connection.ReceivedHead.HeadersComplete = true;
    EXPECT_EQ(read(2), "end");
    EXPECT_THAT(allowed(), ElementsAre()) << "the upload had ended before";
    Curl.callSeek(0);
    EXPECT_TRUE(pending) << "the content is sent again";
    Connection.Transfer.HasContentLength = true;
    Connection.Transfer.ContentLengthToSend = 2;
    EXPECT_EQ(read(1), "1 a");
    EXPECT_TRUE(pending);
    EXPECT_EQ(read(1), "1 b");
    EXPECT_FALSE(pending) << "libcurl does not ask again after the announced length";
    EXPECT_THAT(allowed(), ElementsAre("CURLOPT_FORBID_REUSE 0"));
}

// In the middle of decoding, libcurl would go on into a buffer of its own.
TEST_F(CopierCallbacks, ContentThatMayExpandWithoutLimitPausesAtTheNextReadOfTheNetwork) {
    Connection.ReceivedHead.ResponseHeaderLines = {"HTTP/1.1 200 OK", "Content-Encoding: br"};
    Connection.Transfer.Copier = std::make_shared<InterruptibleStreamCopier>(Connection);
    const auto readNetwork = [&] {
        char byte = 'x';
        debugCallback(Connection.Handles->EasyHandle, CURLINFO_DATA_IN, &byte, 1, &Connection);
    };
    Curl.OnEasyPause = [](int) { return CURLE_OK; };
    Curl.clear();
    Curl.callWrite(std::string(InterruptibleStreamCopier::kReceiveStep - 1, 'x'));
    readNetwork();
    Curl.callWrite("x");
    EXPECT_EQ(Curl.count(CurlFunction::EasyPause), 0U);
    readNetwork();
    readNetwork();
    EXPECT_THAT(Curl.texts({CurlFunction::EasyPause}), ElementsAre("curl_easy_pause 1"));
}

// Bytes sent are on the line of their length, bytes received on a line of their own. A level below 0 is neither 0
// nor 1.
TEST_F(CopierCallbacks, TraceHasLengthsAtLevel1AndBytesFromLevel2) {
    const std::string bytes("a\0b\r\n", 5);
    setPayload(bytes);
    const auto traceAt = [&](int level) {
        const InterruptibleStreamCopier copier(Connection);
        return traceOf(level, [&] {
            read(3);
            read(3);
            read(3); // the end is not traced
            Curl.callWrite(bytes);
            Curl.callSeek(-5);
        });
    };
    EXPECT_EQ(traceAt(0), "");
    EXPECT_EQ(traceAt(1), "SENDING 3 BYTES\nSENDING 2 BYTES\nRECEIVING 5 BYTES\nRESETTING STREAM TO -5\n");
    EXPECT_EQ(traceAt(2), "SENDING 3 BYTES: " + bytes.substr(0, 3) + "\nSENDING 2 BYTES: \r\n\n" +
                              "RECEIVING 5 BYTES\n" + bytes + "\nRESETTING STREAM TO -5\n");
    EXPECT_EQ(traceAt(-1), "RECEIVING 5 BYTES\nRESETTING STREAM TO -5\n");
}

TEST_F(CopierCallbacks, WhatTheProviderRaisesInARewindIsKeptUntilLibcurlHasReturned) {
    const auto provider = provide("abc");
    provider->OnStart = [](int) { throw vantik::Failure({"test:provider", "Broken", {}, "no second time"}); };
    const InterruptibleStreamCopier copier(Connection);
    bool ranToItsEnd = false;
    willPerform({[&] {
        EXPECT_EQ(Curl.callSeek(0), CURL_SEEKFUNC_FAIL);
        EXPECT_EQ(read(100), "abort");
        EXPECT_EQ(Curl.callSeek(0), CURL_SEEKFUNC_FAIL);
        ranToItsEnd = true;
        return 1;
    }});
    EXPECT_EQ(failureText([&] { Connection.perform(""); }), "test:provider:Broken[]");
    EXPECT_TRUE(ranToItsEnd);
    EXPECT_EQ(Connection.Transfer.EscapedFailure, nullptr);
    EXPECT_EQ(provider->Starts, 1) << "after a failure nothing is called any more";
}

// Each callback in each state.

struct State {
    const char* Name;
    bool HasProvider;
    bool PumpWantsData; // the pump runs, and the provider has not said end of content
    const char* Offer;  // bytes on offer
    std::size_t Position;
    bool Paused; // an earlier read has paused the upload
    bool Failed; // a failure waits for libcurl's return
    const char* Read;
    const char* ReadWithoutRoom;
    int Seek;
};

// clang-format off
const State kStates[] = {
    // name                  provider wants  offer     pos paused failed | room for 4  no room  seek
    {"ProviderBeforeThePump",   true,  false, "",       0, false, false,   "end",      "end",   CURL_SEEKFUNC_FAIL},
    {"PumpBeforeTheFirstBytes", true,  true,  "",       0, false, false,   "pause",    "pause", CURL_SEEKFUNC_OK},
    {"PumpWithAnOffer",         true,  true,  "abcdef", 0, false, false,   "4 abcd",   "end",   CURL_SEEKFUNC_OK},
    {"PumpWithALastByte",       true,  true,  "abcdef", 5, false, false,   "1 f",      "end",   CURL_SEEKFUNC_OK},
    {"PumpWithItsOfferGone",    true,  true,  "abcdef", 6, false, false,   "pause",    "pause", CURL_SEEKFUNC_OK},
    {"PumpPaused",              true,  true,  "abcdef", 6, true,  false,   "pause",    "pause", CURL_SEEKFUNC_OK},
    {"PumpPausedAndRewound",    true,  true,  "abcdef", 0, true,  false,   "4 abcd",   "end",   CURL_SEEKFUNC_OK},
    {"MemoryUntouched",         false, false, "abcdef", 0, false, false,   "4 abcd",   "end",   CURL_SEEKFUNC_OK},
    {"MemoryInTheMiddle",       false, false, "abcdef", 3, false, false,   "3 def",    "end",   CURL_SEEKFUNC_OK},
    {"MemoryUsedUp",            false, false, "abcdef", 6, false, false,   "end",      "end",   CURL_SEEKFUNC_OK},
    {"MemoryAfterItsEnd",       false, false, "abcdef", 9, false, false,   "end",      "end",   CURL_SEEKFUNC_OK},
    {"NoContent",               false, false, "",       0, false, false,   "end",      "end",   CURL_SEEKFUNC_OK},
    {"MemoryAfterAFailure",     false, false, "abcdef", 3, false, true,    "abort",    "abort", CURL_SEEKFUNC_FAIL},
    {"PumpAfterAFailure",       true,  true,  "abcdef", 3, false, true,    "abort",    "abort", CURL_SEEKFUNC_FAIL},
};
// clang-format on

class CopierState : public CopierFixture, public testing::WithParamInterface<State> {
protected:
    static constexpr std::uint64_t kTotalBefore = 100;

    CopierState() {
        Connection.Settings.Provider = Now.HasProvider ? sharedOf(Provider) : nullptr;
        Copier = std::make_unique<InterruptibleStreamCopier>(Connection);
        Copier->SendData = reinterpret_cast<const std::uint8_t*>(Now.Offer);
        Copier->SendLength = std::string_view(Now.Offer).size();
        Copier->SendPosition = Now.Position;
        Copier->TotalSent = kTotalBefore;
        Copier->PumpWantsData = Now.PumpWantsData;
        Copier->ReadPaused = Now.Paused;
        if (Now.Failed) {
            Connection.Transfer.EscapedFailure = std::make_exception_ptr(std::runtime_error("earlier"));
        }
        Connection.Transfer.PerformDone = false;
    }
    void expectSent(std::size_t bytes) {
        EXPECT_EQ(Copier->SendPosition, Now.Position + bytes);
        EXPECT_EQ(Copier->TotalSent, kTotalBefore + bytes);
    }

    const State& Now = GetParam();
    testsupport::ScriptedProvider Provider = testsupport::makeScriptedProvider(host());
    std::unique_ptr<InterruptibleStreamCopier> Copier;
};

TEST_P(CopierState, Read) {
    const std::string answer = read(4);
    EXPECT_EQ(answer, Now.Read);
    expectSent(answer.find(' ') == std::string::npos ? 0 : answer.size() - 2);
    EXPECT_EQ(Copier->ReadPaused, Now.Paused || answer == "pause");
    EXPECT_TRUE(Provider->Wanted.empty()) << "a callback never asks the provider for content";
}

TEST_P(CopierState, ReadWithoutRoom) {
    EXPECT_EQ(read(0), Now.ReadWithoutRoom);
    expectSent(0);
}

TEST_P(CopierState, SeekToTheSecondByte) {
    EXPECT_EQ(Curl.callSeek(1), Now.Seek);
    EXPECT_EQ(Provider->Starts, Now.HasProvider && !Now.Failed ? 1 : 0);
    // A provider that the pump still asks starts over: what is left of its last array is dropped.
    const bool startsOver = Now.PumpWantsData && !Now.Failed;
    EXPECT_EQ(Copier->SendPosition, startsOver ? 0 : Now.Failed ? Now.Position : 1);
    EXPECT_EQ(Copier->TotalSent, Now.Failed ? kTotalBefore : kTotalBefore + 1 - Now.Position);
    EXPECT_EQ(Copier->SendLength, startsOver ? 0 : std::string_view(Now.Offer).size());
    EXPECT_EQ(Copier->PumpWantsData, Now.PumpWantsData);
    EXPECT_EQ(Copier->ReadPaused, Now.Paused);
}

// Bytes are refused after a failure only.
TEST_P(CopierState, Write) {
    EXPECT_EQ(Curl.callWrite("xy"), Now.Failed ? 0U : 2U);
    EXPECT_EQ(Copier->ReceiveBuffer, Now.Failed ? "" : "xy");
    EXPECT_EQ(Connection.Transfer.PerformDone, !Now.Failed);
    expectSent(0);
}

INSTANTIATE_TEST_SUITE_P(Each, CopierState, testing::ValuesIn(kStates),
                         [](const auto& info) { return std::string(info.param.Name); });

} // namespace
