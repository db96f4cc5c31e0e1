#include "streaming/InterruptibleStreamCopier.h"

#include "hostcalls/HostObjectCall.h"
#include "tests/streaming/CopierFixture.h"
#include "tests/support/process/StandardOutputCapture.h"

#include <gmock/gmock.h>

#include <memory>
#include <string>

using namespace streamingtest;
using testing::ElementsAre;
using testsupport::StandardOutputCapture;

namespace {

class CopierConstruction : public CopierFixture {};
class CopierWrite : public CopierFixture {};
class CopierRead : public CopierFixture {};
class CopierSeek : public CopierFixture {};

TEST_F(CopierConstruction, RegistersTheCallbacksInOrder) {
    Curl.clear();
    const InterruptibleStreamCopier copier(Connection);
    EXPECT_THAT(Curl.options(), ElementsAre("CURLOPT_WRITEFUNCTION", "CURLOPT_WRITEDATA", "CURLOPT_READFUNCTION",
                                            "CURLOPT_READDATA", "CURLOPT_SEEKFUNCTION", "CURLOPT_SEEKDATA"));
    for (const CURLoption data : {CURLOPT_WRITEDATA, CURLOPT_READDATA, CURLOPT_SEEKDATA}) {
        EXPECT_EQ(Curl.lastOption(data)->Pointer, &copier);
    }
}

TEST_F(CopierConstruction, StartsOnThePayload) {
    setPayload("request content");
    const InterruptibleStreamCopier copier(Connection);
    EXPECT_EQ(copier.Connection, &Connection);
    EXPECT_EQ(copier.SendData, Connection.Settings.payload().data());
    EXPECT_EQ(copier.SendLength, 15U);
    EXPECT_EQ(copier.SendPosition, 0U);
    EXPECT_EQ(copier.TotalSent, 0U);
    EXPECT_TRUE(copier.ReceiveBuffer.empty());
    EXPECT_GE(copier.ReceiveBuffer.capacity(), 16384U);
    EXPECT_EQ(copier.Provider.get(), nullptr);
    EXPECT_EQ(copier.ProviderClass, vcos::internal::makeInterned("vantik.net.http.io.ContentProvider"));
    EXPECT_EQ(copier.ProviderArgs[0], nullptr);
    EXPECT_EQ(copier.ProviderArgs[1], nullptr);
}

TEST_F(CopierConstruction, TakesTheBufferOfACopierThatIsNoLongerDrained) {
    Connection.Transfer.Copier = std::make_shared<InterruptibleStreamCopier>(Connection);
    Connection.Transfer.Copier->ReceiveBuffer.assign(100000, 'x');
    const char* const memory = Connection.Transfer.Copier->ReceiveBuffer.data();
    const InterruptibleStreamCopier next(Connection);
    EXPECT_TRUE(next.ReceiveBuffer.empty());
    EXPECT_EQ(next.ReceiveBuffer.data(), memory);
}

TEST_F(CopierConstruction, RefusedOptionLeavesTheBufferOfTheCopierBefore) {
    Connection.Transfer.Copier = std::make_shared<InterruptibleStreamCopier>(Connection);
    Connection.Transfer.Copier->ReceiveBuffer = "not passed on yet";
    Curl.failOption(CURLOPT_SEEKDATA, CURLE_OUT_OF_MEMORY); // the last one
    EXPECT_NE(internalErrorOf([&] { const InterruptibleStreamCopier next(Connection); }), "");
    EXPECT_EQ(Connection.Transfer.Copier->ReceiveBuffer, "not passed on yet");
}

TEST_F(CopierConstruction, TakesTheProviderWithoutCallingIt) {
    const auto provider = provide("abc");
    const InterruptibleStreamCopier copier(Connection);
    EXPECT_EQ(copier.Provider.get(), handleOf(provider));
    EXPECT_EQ(copier.ProviderArgs[0], handleOf(provider));
    EXPECT_EQ(copier.ProviderArgs[1], nullptr);
    EXPECT_EQ(provider->Starts, 0);
}

struct OptionCase {
    CURLoption Option;
    const char* Name;
    std::size_t CallsBefore;
};

void PrintTo(const OptionCase& row, std::ostream* out) {
    *out << row.Name;
}

class CopierOption : public CopierFixture, public testing::WithParamInterface<OptionCase> {};

TEST_P(CopierOption, RefusedOptionIsNamedAndEndsTheConstruction) {
    Curl.clear();
    Curl.failOption(GetParam().Option, CURLE_OUT_OF_MEMORY);
    EXPECT_EQ(internalErrorOf([&] { const InterruptibleStreamCopier copier(Connection); }),
              std::string("\"") + GetParam().Name + "\" failed with CURLcode Out of memory");
    EXPECT_EQ(Curl.options().size(), GetParam().CallsBefore + 1);
}

TEST_P(CopierOption, RefusedOptionLeavesThePreviousCopier) {
    const auto previous = std::make_shared<InterruptibleStreamCopier>(Connection);
    Connection.Transfer.Copier = previous;
    Connection.Transfer.Opened = true;
    Curl.failOption(GetParam().Option, CURLE_OUT_OF_MEMORY);
    EXPECT_EQ(internalErrorOf([&] { Connection.sendRequest(); }),
              std::string("\"") + GetParam().Name + "\" failed with CURLcode Out of memory");
    EXPECT_EQ(Connection.Transfer.Copier, previous);
    EXPECT_EQ(Curl.count(CurlFunction::MultiPerform), 0U);
}

INSTANTIATE_TEST_SUITE_P(Each, CopierOption,
                         testing::Values(OptionCase{CURLOPT_WRITEFUNCTION, "CURLOPT_WRITEFUNCTION", 0},
                                         OptionCase{CURLOPT_WRITEDATA, "CURLOPT_WRITEDATA", 1},
                                         OptionCase{CURLOPT_READFUNCTION, "CURLOPT_READFUNCTION", 2},
                                         OptionCase{CURLOPT_READDATA, "CURLOPT_READDATA", 3},
                                         OptionCase{CURLOPT_SEEKFUNCTION, "CURLOPT_SEEKFUNCTION", 4},
                                         OptionCase{CURLOPT_SEEKDATA, "CURLOPT_SEEKDATA", 5}),
                         [](const auto& info) { return std::string(info.param.Name); });

TEST_F(CopierConstruction, EachSendGetsACopierOfItsOwn) {
    Connection.Transfer.Opened = true;
    Curl.giveInfo(CURLINFO_RESPONSE_CODE, 200L);
    willPerform({receives("left over", 0)});
    Connection.sendRequest();
    const std::weak_ptr<InterruptibleStreamCopier> first = Connection.Transfer.Copier;
    EXPECT_EQ(first.lock()->ReceiveBuffer, "left over");

    Connection.closeConnection();
    Connection.Transfer.Opened = true;
    willPerform({[&] {
        EXPECT_TRUE(first.expired()) << "the copier of the request before is still there";
        EXPECT_TRUE(Connection.Transfer.Copier->ReceiveBuffer.empty());
        EXPECT_EQ(Connection.Transfer.Copier->TotalSent, 0U);
        return 0;
    }});
    Connection.sendRequest();
}

TEST_F(CopierConstruction, RequestWithoutContentNeverUploads) {
    Connection.Transfer.Opened = true;
    Connection.Settings.ProviderBufferSize = 5;
    Curl.giveInfo(CURLINFO_RESPONSE_CODE, 200L);
    willPerform({sends(100, 0)});
    Connection.sendRequest();
    EXPECT_EQ(Curl.lastOption(CURLOPT_UPLOAD), nullptr);
    EXPECT_EQ(Uploaded, "");
    EXPECT_EQ(Connection.Transfer.Copier->SendLength, 0U);
}

TEST_F(CopierWrite, AppendsToTheBufferAndEndsTheWaitForTheHead) {
    InterruptibleStreamCopier copier(Connection);
    Connection.Transfer.PerformDone = false;
    EXPECT_EQ(Curl.callWrite("first "), 6U);
    EXPECT_TRUE(Connection.Transfer.PerformDone);
    Connection.Transfer.PerformDone = false;
    EXPECT_EQ(Curl.callWrite(std::string("se\0cond", 7)), 7U);
    EXPECT_TRUE(Connection.Transfer.PerformDone) << "every call sets it";
    EXPECT_EQ(copier.ReceiveBuffer, std::string("first se\0cond", 13));
}

TEST_F(CopierWrite, LengthIsSizeTimesCount) {
    InterruptibleStreamCopier copier(Connection);
    char data[] = "abcdefghij";
    EXPECT_EQ(InterruptibleStreamCopier::writeCallback(data, 3, 2, &copier), 6U);
    EXPECT_EQ(copier.ReceiveBuffer, "abcdef");
}

TEST_F(CopierWrite, NoBytesAreTakenToo) {
    InterruptibleStreamCopier copier(Connection);
    EXPECT_EQ(Curl.callWrite(""), 0U);
    EXPECT_TRUE(Connection.Transfer.PerformDone);
    EXPECT_TRUE(copier.ReceiveBuffer.empty());
}

TEST_F(CopierWrite, BufferGrowsBeyondItsReservation) {
    InterruptibleStreamCopier copier(Connection);
    const std::string block(10000, 'b');
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(Curl.callWrite(block), block.size());
    }
    EXPECT_EQ(copier.ReceiveBuffer, std::string(100000, 'b'));
}

TEST_F(CopierWrite, TraceIsSilentAtLevel0) {
    const InterruptibleStreamCopier copier(Connection);
    const StandardOutputCapture output;
    Curl.callWrite("abc");
    EXPECT_EQ(output.text(), "");
}

TEST_F(CopierWrite, TraceTellsTheLengthAtLevel1) {
    const InterruptibleStreamCopier copier(Connection);
    Connection.Settings.Debug = 1;
    const StandardOutputCapture output;
    Curl.callWrite("abc");
    EXPECT_EQ(output.text(), "RECEIVING 3 BYTES\n");
    Connection.Settings.Debug = 0;
}

TEST_F(CopierWrite, TraceHasTheBytesOnALineOfTheirOwnAtLevel2) {
    const InterruptibleStreamCopier copier(Connection);
    Connection.Settings.Debug = 2;
    const StandardOutputCapture output;
    Curl.callWrite(std::string("a\0b\r\n", 5));
    EXPECT_EQ(output.text(), std::string("RECEIVING 5 BYTES\na\0b\r\n\n", 24));
    Connection.Settings.Debug = 0;
}

TEST_F(CopierWrite, AfterAFailureOfAnotherCallbackTheTransferIsEnded) {
    InterruptibleStreamCopier copier(Connection);
    Connection.Transfer.EscapedFailure = std::make_exception_ptr(std::runtime_error("earlier"));
    EXPECT_EQ(Curl.callWrite("abc"), 0U);
    EXPECT_TRUE(copier.ReceiveBuffer.empty());
    Connection.Transfer.EscapedFailure = nullptr;
}

TEST_F(CopierRead, HandsOutThePayloadInOrderAndThenTheEnd) {
    setPayload("0123456789");
    const InterruptibleStreamCopier copier(Connection);
    std::string given;
    EXPECT_EQ(Curl.callRead(given, 4), 4U);
    EXPECT_EQ(given, "0123");
    EXPECT_EQ(copier.SendPosition, 4U);
    EXPECT_EQ(copier.TotalSent, 4U);
    EXPECT_EQ(Curl.callRead(given, 100), 6U);
    EXPECT_EQ(given, "456789");
    EXPECT_EQ(copier.TotalSent, 10U);
    EXPECT_EQ(Curl.callRead(given, 100), 0U);
    EXPECT_EQ(Curl.callRead(given, 100), 0U) << "the end stays the end";
    EXPECT_EQ(copier.TotalSent, 10U);
}

TEST_F(CopierRead, RoomIsSizeTimesCount) {
    setPayload("0123456789");
    InterruptibleStreamCopier copier(Connection);
    char buffer[10] = {};
    EXPECT_EQ(InterruptibleStreamCopier::readCallback(buffer, 3, 2, &copier), 6U);
    EXPECT_STREQ(buffer, "012345");
}

TEST_F(CopierRead, NoRoomGivesNothingAndDoesNotPause) {
    setPayload("0123456789");
    InterruptibleStreamCopier copier(Connection);
    std::string given;
    EXPECT_EQ(Curl.callRead(given, 0), 0U);
    copier.PumpWantsData = true; // as with a provider: there is still something on offer
    EXPECT_EQ(Curl.callRead(given, 0), 0U);
    EXPECT_FALSE(copier.ReadPaused);
}

TEST_F(CopierRead, WithoutContentGivesTheEnd) {
    const InterruptibleStreamCopier copier(Connection);
    std::string given;
    EXPECT_EQ(Curl.callRead(given, 100), 0U);
}

TEST_F(CopierRead, BytesMoveTheDeadlineAndTheEndDoesNot) {
    setPayload("0123456789");
    Connection.Limits.ResponseTimeout = 2000.0;
    Connection.Limits.ResponseTimeoutMs = 2000;
    const InterruptibleStreamCopier copier(Connection);
    Connection.Limits.Deadline = 5;
    Curl.setClock(7'000'000'000);
    std::string given;
    Curl.callRead(given, 10);
    EXPECT_EQ(Connection.Limits.Deadline, 9'000'000'000);
    Curl.advanceClock(1'000'000'000);
    Curl.callRead(given, 10);
    EXPECT_EQ(Connection.Limits.Deadline, 9'000'000'000);
}

TEST_F(CopierRead, TraceIsSilentAtLevel0) {
    setPayload("abc");
    const InterruptibleStreamCopier copier(Connection);
    const StandardOutputCapture output;
    std::string given;
    Curl.callRead(given, 10);
    EXPECT_EQ(output.text(), "");
}

TEST_F(CopierRead, TraceTellsTheLengthAtLevel1AndNothingOfTheEnd) {
    setPayload("abc");
    const InterruptibleStreamCopier copier(Connection);
    Connection.Settings.Debug = 1;
    const StandardOutputCapture output;
    std::string given;
    Curl.callRead(given, 2);
    Curl.callRead(given, 2);
    Curl.callRead(given, 2);
    EXPECT_EQ(output.text(), "SENDING 2 BYTES\nSENDING 1 BYTES\n");
    Connection.Settings.Debug = 0;
}

TEST_F(CopierRead, TraceHasTheBytesOnTheSameLineAtLevel2) {
    setPayload(std::string("a\0b\r\n", 5));
    const InterruptibleStreamCopier copier(Connection);
    Connection.Settings.Debug = 2;
    const StandardOutputCapture output;
    std::string given;
    Curl.callRead(given, 10);
    EXPECT_EQ(output.text(), std::string("SENDING 5 BYTES: a\0b\r\n\n", 23));
    Connection.Settings.Debug = 0;
}

TEST_F(CopierRead, BehindAFailureOfAnotherCallbackTheUploadIsAborted) {
    setPayload("abc");
    const InterruptibleStreamCopier copier(Connection);
    Connection.Transfer.EscapedFailure = std::make_exception_ptr(std::runtime_error("earlier"));
    std::string given;
    EXPECT_EQ(Curl.callRead(given, 10), std::size_t{CURL_READFUNC_ABORT});
    EXPECT_EQ(copier.SendPosition, 0U);
    Connection.Transfer.EscapedFailure = nullptr;
}

// A level below 0 is not 0 and not 1.
TEST_F(CopierRead, TraceOfANegativeLevelTellsOnlyWhatIsReceived) {
    setPayload("abc");
    const InterruptibleStreamCopier copier(Connection);
    Connection.Settings.Debug = -1;
    const StandardOutputCapture output;
    std::string given;
    Curl.callRead(given, 10);
    Curl.callWrite("abcd");
    EXPECT_EQ(output.text(), "RECEIVING 4 BYTES\n");
    Connection.Settings.Debug = 0;
}

TEST_F(CopierSeek, OffersContentInMemoryAgain) {
    setPayload("0123456789");
    const InterruptibleStreamCopier copier(Connection);
    std::string given;
    Curl.callRead(given, 8);
    EXPECT_EQ(Curl.callSeek(0), CURL_SEEKFUNC_OK);
    EXPECT_EQ(copier.TotalSent, 0U);
    Curl.callRead(given, 100);
    EXPECT_EQ(given, "0123456789");
    EXPECT_EQ(copier.TotalSent, 10U);
}

TEST_F(CopierSeek, TotalFollowsAnyOffset) {
    setPayload("0123456789");
    InterruptibleStreamCopier copier(Connection);
    copier.TotalSent = 100; // of which the last ten are on offer here
    copier.SendPosition = 10;
    EXPECT_EQ(Curl.callSeek(4), CURL_SEEKFUNC_OK);
    EXPECT_EQ(copier.TotalSent, 94U);
    EXPECT_EQ(copier.SendPosition, 4U);
    EXPECT_EQ(Curl.callSeek(6), CURL_SEEKFUNC_OK);
    EXPECT_EQ(copier.TotalSent, 96U);
    std::string given;
    Curl.callRead(given, 100);
    EXPECT_EQ(given, "6789");
}

TEST_F(CopierSeek, EveryOriginIsTakenAsAbsolute) {
    setPayload("0123456789");
    InterruptibleStreamCopier copier(Connection);
    for (const int origin : {SEEK_SET, SEEK_CUR, SEEK_END}) {
        copier.SendPosition = 7;
        EXPECT_EQ(InterruptibleStreamCopier::seekCallback(&copier, 2, origin), CURL_SEEKFUNC_OK);
        EXPECT_EQ(copier.SendPosition, 2U);
    }
}

TEST_F(CopierSeek, BehindTheOfferNothingIsRead) {
    setPayload("0123456789");
    const InterruptibleStreamCopier copier(Connection);
    std::string given;
    EXPECT_EQ(Curl.callSeek(11), CURL_SEEKFUNC_OK);
    EXPECT_EQ(Curl.callRead(given, 100), 0U);
    EXPECT_EQ(Curl.callSeek(-1), CURL_SEEKFUNC_OK);
    EXPECT_EQ(Curl.callRead(given, 100), 0U);
}

TEST_F(CopierSeek, TraceTellsTheOffset) {
    setPayload("0123456789");
    const InterruptibleStreamCopier copier(Connection);
    const StandardOutputCapture output;
    Curl.callSeek(3);
    EXPECT_EQ(output.text(), "");
    Connection.Settings.Debug = 1;
    Curl.callSeek(0);
    Curl.callSeek(-5);
    EXPECT_EQ(output.text(), "RESETTING STREAM TO 0\nRESETTING STREAM TO -5\n");
    Connection.Settings.Debug = 0;
}

TEST_F(CopierSeek, RestartsTheProvider) {
    const auto provider = provide("abc");
    InterruptibleStreamCopier copier(Connection);
    copier.PumpWantsData = true;
    EXPECT_EQ(Curl.callSeek(0), CURL_SEEKFUNC_OK);
    EXPECT_EQ(provider->Starts, 1);
    EXPECT_TRUE(provider->Wanted.empty()) << "only the pump asks for content";
}

TEST_F(CopierSeek, ProviderThatCannotBeRestartedFailsTheSeekAndIsReportedBehindTheCall) {
    const auto provider = provide("abc", {"startInternal"});
    const InterruptibleStreamCopier copier(Connection);
    willPerform({[&] {
        EXPECT_EQ(Curl.callSeek(0), CURL_SEEKFUNC_FAIL);
        return 1;
    }});
    EXPECT_EQ(internalErrorOf([&] { Connection.perform(""); }),
              "vantik.net.http.io.ContentProvider.startInternal not found");
    EXPECT_EQ(Connection.Transfer.EscapedFailure, nullptr);
    EXPECT_EQ(copier.SendPosition, 0U);
}

TEST_F(CopierSeek, WhatTheProviderRaisesIsKeptUntilLibcurlHasReturned) {
    const auto provider = provide("abc");
    provider->OnStart = [](int) { throw vantik::Failure({"test:provider", "Broken", {}, "no second time"}); };
    const InterruptibleStreamCopier copier(Connection);
    bool ranToItsEnd = false;
    willPerform({[&] {
        EXPECT_EQ(Curl.callSeek(0), CURL_SEEKFUNC_FAIL);
        std::string given;
        EXPECT_EQ(Curl.callRead(given, 100), std::size_t{CURL_READFUNC_ABORT});
        EXPECT_EQ(Curl.callSeek(0), CURL_SEEKFUNC_FAIL);
        ranToItsEnd = true;
        return 1;
    }});
    EXPECT_THAT(hostFailureOf([&] { Connection.perform(""); }), testing::StartsWith("test:provider:Broken"));
    EXPECT_TRUE(ranToItsEnd);
    EXPECT_EQ(provider->Starts, 1) << "behind a failure nothing is called any more";
}

} // namespace
