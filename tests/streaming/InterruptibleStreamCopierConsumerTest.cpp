// The pump for response content with a consumer: what it is given, what its answers mean, how it is closed.
#include "embedded/scope/InterruptOrigin.h"
#include "errors/HTTPException.h"
#include "host/Interrupt.h"
#include "streaming/InterruptibleStreamCopier.h"
#include "tests/streaming/CopierFixture.h"

#include <boost/thread/exceptions.hpp>
#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

using namespace streamingtest;
using testing::ElementsAre;
using testing::StartsWith;

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

class Consumer : public CopierFixture {
protected:
    void receive(std::ostream* saveTo = nullptr) {
        Curl.clear();
        Copier.receiveResponse(saveTo);
    }
    // The rest of a transfer that brings nothing more.
    void willEnd() {
        willPerform({[] { return 0; }});
    }

    InterruptibleStreamCopier Copier{Connection};
};

TEST_F(Consumer, LifeOfOneResponse) {
    const auto consumer = consume();
    willPerform({receives("abc", 1), receives("de", 0)});
    receive();
    EXPECT_THAT(pumpJournal(),
                ElementsAre("start", "curl_multi_wait 1000", "curl_multi_perform", "interrupt poll", "put 3", //
                            "curl_multi_wait 1000", "curl_multi_perform", "curl_multi_info_read", "interrupt poll",
                            "put 2", "close"));
    EXPECT_EQ(consumer->content(), "abcde");
}

TEST_F(Consumer, IsStartedAndClosedWithoutABody) {
    const auto consumer = consume();
    willEnd();
    receive();
    EXPECT_THAT(consumer->Calls, ElementsAre("start", "close"));
}

TEST_F(Consumer, GetsEachPieceAsAColumnOfBytes) {
    std::vector<std::string> classes;
    vantik::HostClass("test.looking.Consumer")
        .derivesFrom("vantik.net.http.io.ContentConsumer")
        .method("startInternal", [](std::span<const vantik::Array>) { return std::vector<vantik::Array>(); })
        .method("putDataInternal",
                [&](std::span<const vantik::Array> inputs) {
                    classes.push_back(inputs[1].className());
                    EXPECT_THAT(inputs[1].dimensions(), ElementsAre(5U, 1U));
                    return std::vector<vantik::Array>{vantik::Array(5.0)};
                })
        .method("closeInternal", [](std::span<const vantik::Array>) { return std::vector<vantik::Array>(); })
        .defineIn(host());
    const vantik::Object consumer = host().create("test.looking.Consumer");
    Connection.Settings.Consumer = sharedOf(consumer);
    Curl.callWrite(std::string("a\0b\r\n", 5));
    willEnd();
    receive();
    EXPECT_THAT(classes, ElementsAre("uint8"));
}

// The size that the consumer wants.

struct SizeCase {
    const char* Label;
    double Wanted;
    std::size_t FirstPiece; // of 20000 bytes; 0: it fails
};

void PrintTo(const SizeCase& row, std::ostream* out) {
    *out << row.Label;
}

class WantedSize : public Consumer, public testing::WithParamInterface<SizeCase> {};

TEST_P(WantedSize, BoundsThePieces) {
    const auto consumer = consume();
    consumer->OnStart = [] { return vantik::Array(GetParam().Wanted); };
    const std::string content(20'000, 'x');
    Curl.callWrite(content);
    willEnd();
    if (GetParam().FirstPiece == 0) {
        EXPECT_EQ(internalErrorOf([&] { receive(); }), "ContentConsumer.startInternal returned bufSize <= 0");
        EXPECT_THAT(consumer->Calls, ElementsAre("start")) << "it is not even closed";
        return;
    }
    receive();
    EXPECT_EQ(consumer->Pieces.front().size(), GetParam().FirstPiece);
    EXPECT_EQ(consumer->content(), content);
    EXPECT_EQ(consumer->Pieces.size(), (content.size() + GetParam().FirstPiece - 1) / GetParam().FirstPiece);
}

INSTANTIATE_TEST_SUITE_P(
    Numbers, WantedSize,
    testing::Values(SizeCase{"Hundred", 100.0, 100}, SizeCase{"Fraction", 100.9, 100}, SizeCase{"One", 1.0, 1},
                    SizeCase{"JustBelowTheLargest", 16383.0, 16383}, SizeCase{"Largest", 16384.0, 16384},
                    SizeCase{"BeyondTheLargest", 100000.0, 16384}, SizeCase{"Zero", 0.0, 0}, SizeCase{"Half", 0.5, 0},
                    SizeCase{"AlmostOne", std::nextafter(1.0, 0.0), 0}, SizeCase{"MinusHalf", -0.5, 0},
                    SizeCase{"AlmostMinusOne", std::nextafter(-1.0, 0.0), 0}, SizeCase{"MinusOne", -1.0, 16384},
                    SizeCase{"Lowest", -1.0e300, 16384}, SizeCase{"NaN", std::nan(""), 16384},
                    SizeCase{"Infinity", kInfinity, 16384}, SizeCase{"MinusInfinity", -kInfinity, 16384},
                    SizeCase{"TwoTo63", 0x1p63, 16384}, SizeCase{"AboveTwoTo63", 0x1.8p63, 16384},
                    SizeCase{"TwoTo64", 0x1p64, 16384}),
    [](const auto& info) { return std::string(info.param.Label); });

TEST_F(Consumer, SizeMayBeOfAnyNumericClassOrEmpty) {
    const auto consumer = consume();
    const auto pieceFor = [&](const vantik::Array& wanted) {
        consumer->OnStart = [&] { return wanted; };
        consumer->Pieces.clear();
        Curl.callWrite(std::string(20'000, 'x'));
        willEnd();
        receive();
        return consumer->Pieces.front().size();
    };
    EXPECT_EQ(pieceFor(std::uint64_t{300}), 300U);
    EXPECT_EQ(pieceFor(std::int32_t{-7}), 16384U);
    EXPECT_EQ(pieceFor(byteMatrix(1, 1, "\x20")), 32U);
    EXPECT_EQ(pieceFor(vantik::Array()), 16384U);
    EXPECT_EQ(pieceFor(zeros(0, 1, vxDOUBLE_CLASS)), 16384U);
}

// Pieces of one drain.

TEST_F(Consumer, OneDrainMayTakeSeveralPiecesAndIsOneUpdate) {
    const auto consumer = consume();
    const auto reporter = report();
    consumer->OnStart = [] { return vantik::Array(4.0); };
    Curl.callWrite("0123456789");
    willEnd();
    receive();
    EXPECT_THAT(consumer->Pieces, ElementsAre("0123", "4567", "89"));
    EXPECT_THAT(reporter->Counts, ElementsAre(10U));
    EXPECT_EQ(Curl.count(CurlFunction::InterruptPoll), 1U) << "not between the pieces";
}

TEST_F(Consumer, StreamGetsEachPieceBeforeTheConsumer) {
    const auto consumer = consume();
    std::ostringstream saveTo;
    consumer->OnStart = [] { return vantik::Array(4.0); };
    consumer->OnPut = [&](int call, const std::string& piece) {
        EXPECT_EQ(saveTo.view(), std::string("01234567").substr(0, static_cast<std::size_t>(call) * 4));
        return vantik::Array(static_cast<double>(piece.size()));
    };
    Curl.callWrite("01234567");
    willEnd();
    receive(&saveTo);
    EXPECT_EQ(saveTo.view(), "01234567");
}

TEST_F(Consumer, PiecesLeaveNoArrayBehind) {
    const auto consumer = consume();
    consumer->OnStart = [] { return vantik::Array(10.0); };
    std::vector<std::size_t> living;
    consumer->OnPut = [&](int, const std::string& piece) {
        living.push_back(vantik::Host::liveArrays());
        return vantik::Array(static_cast<double>(piece.size()));
    };
    Curl.callWrite(std::string(100, 'x'));
    willEnd();
    const std::size_t before = vantik::Host::liveArrays();
    receive();
    ASSERT_EQ(living.size(), 10U);
    EXPECT_THAT(living, testing::Each(living.front()));
    EXPECT_EQ(vantik::Host::liveArrays(), before);
}

// What the consumer takes.

struct TakenCase {
    const char* Label;
    double Taken;
    bool CountsAsAll;
};

void PrintTo(const TakenCase& row, std::ostream* out) {
    *out << row.Label;
}

class Taken : public Consumer, public testing::WithParamInterface<TakenCase> {};

TEST_P(Taken, DecidesWhetherTheCopyGoesOn) {
    const auto consumer = consume();
    consumer->OnPut = [](int, const std::string&) { return vantik::Array(GetParam().Taken); };
    Curl.callWrite("0123456789");
    willPerform({receives("more", 0)});
    receive();
    EXPECT_EQ(consumer->Pieces.size(), GetParam().CountsAsAll ? 2U : 1U);
    EXPECT_EQ(Curl.count(CurlFunction::MultiPerform), GetParam().CountsAsAll ? 1U : 0U);
    EXPECT_EQ(consumer->Calls.back(), "close");
}

// Ten bytes are offered, then four.
INSTANTIATE_TEST_SUITE_P(Numbers, Taken,
                         testing::Values(TakenCase{"All", 10.0, true}, TakenCase{"More", 11.0, true},
                                         TakenCase{"AllAndAFraction", 10.9, true},
                                         TakenCase{"JustLess", std::nextafter(10.0, 0.0), false},
                                         TakenCase{"Less", 9.0, false}, TakenCase{"None", 0.0, false},
                                         TakenCase{"MinusHalf", -0.5, false}, TakenCase{"MinusOne", -1.0, true},
                                         TakenCase{"NaN", std::nan(""), true}, TakenCase{"Infinity", kInfinity, true},
                                         TakenCase{"MinusInfinity", -kInfinity, true},
                                         TakenCase{"TwoTo63", 0x1p63, true}, TakenCase{"TwoTo64", 0x1p64, true}),
                         [](const auto& info) { return std::string(info.param.Label); });

TEST_F(Consumer, TakingLessEndsTheCopyQuietlyAndCountsWhatWasTaken) {
    const auto consumer = consume();
    const auto reporter = report();
    std::ostringstream saveTo;
    consumer->OnStart = [] { return vantik::Array(4.0); };
    consumer->OnPut = [](int call, const std::string& piece) {
        return vantik::Array(call == 2 ? 1.0 : static_cast<double>(piece.size()));
    };
    Curl.callWrite("0123456789");
    receive(&saveTo); // no perform is foreseen
    EXPECT_THAT(consumer->Calls, ElementsAre("start", "put 4", "put 4", "close"));
    EXPECT_THAT(reporter->Counts, ElementsAre(5U));
    EXPECT_EQ(saveTo.view(), "01234567") << "the piece that was refused in part has been saved whole";
    EXPECT_EQ(Curl.count(CurlFunction::MultiInfoRead), 0U);
    EXPECT_TRUE(Copier.ReceiveBuffer.empty());
}

TEST_F(Consumer, EmptyAnswerAbortsTheOperation) {
    for (const auto& answer : {vantik::Array(), zeros(0, 1, vxDOUBLE_CLASS), vantik::Array("")}) {
        const auto consumer = consume();
        std::ostringstream saveTo;
        consumer->OnPut = [&](int, const std::string&) { return answer; };
        Copier.ReceiveBuffer.clear();
        Curl.callWrite("abc");
        try {
            receive(&saveTo);
            FAIL() << "nothing was raised";
        } catch (const webservices::HTTPConsumerException& failure) {
            EXPECT_STREQ(failure.what(), "Web service copy operation aborted by consumer");
        }
        EXPECT_THAT(consumer->Calls, ElementsAre("start", "put 3", "close"));
        EXPECT_EQ(saveTo.view(), "abc");
        EXPECT_EQ(Copier.ReceiveBuffer, "abc");
    }
}

// Missing methods.

TEST_F(Consumer, WithoutStartNothingRuns) {
    const auto consumer = consume({"startInternal"});
    EXPECT_EQ(internalErrorOf([&] { receive(); }), "vantik.net.http.io.ContentConsumer.startInternal not found");
    EXPECT_TRUE(consumer->Calls.empty());
    EXPECT_EQ(Curl.count(CurlFunction::MultiWait), 0U);
}

TEST_F(Consumer, WithoutPutItIsClosed) {
    const auto consumer = consume({"putDataInternal"});
    Curl.callWrite("abc");
    EXPECT_EQ(internalErrorOf([&] { receive(); }), "vantik.net.http.io.ContentConsumer.putDataInternal not found");
    EXPECT_THAT(consumer->Calls, ElementsAre("start", "close"));
}

TEST_F(Consumer, WithoutCloseNothingFails) {
    const auto consumer = consume({"closeInternal"});
    Curl.callWrite("abc");
    willEnd();
    EXPECT_NO_THROW(receive());
    EXPECT_THAT(consumer->Calls, ElementsAre("start", "put 3"));
}

TEST_F(Consumer, WithoutCloseAFailureIsTheSame) {
    const auto consumer = consume({"closeInternal"});
    consumer->OnPut = [](int, const std::string&) { return vantik::Array(); };
    Curl.callWrite("abc");
    EXPECT_THROW(receive(), webservices::HTTPConsumerException);
}

TEST_F(Consumer, ObjectThatIsNoConsumerFails) {
    const auto provider = testsupport::makeScriptedProvider(host());
    Connection.Settings.Consumer = sharedOf(provider);
    EXPECT_EQ(internalErrorOf([&] { receive(); }), "vantik.net.http.io.ContentConsumer.startInternal not found");
    EXPECT_EQ(provider->Starts, 0);
}

// Failures, and who is told.

TEST_F(Consumer, WhatItRaisesPassesUnchangedBehindItsClose) {
    const auto consumer = consume();
    consumer->OnPut = [](int, const std::string&) -> vantik::Array {
        throw vantik::Failure({"test:consumer", "Full", {}, "no room"});
    };
    Curl.callWrite("abc");
    EXPECT_THAT(hostFailureOf([&] { receive(); }), StartsWith("test:consumer:Full"));
    EXPECT_THAT(consumer->Calls, ElementsAre("start", "put 3", "close"));
    EXPECT_EQ(Copier.ReceiveBuffer, "abc");
}

TEST_F(Consumer, WhatItsStartRaisesPassesWithoutClose) {
    const auto consumer = consume();
    consumer->OnStart = []() -> vantik::Array { throw vantik::Failure({"test:consumer", "Shut", {}, "not today"}); };
    EXPECT_THAT(hostFailureOf([&] { receive(); }), StartsWith("test:consumer:Shut"));
    EXPECT_THAT(consumer->Calls, ElementsAre("start"));
}

TEST_F(Consumer, WhatItsCloseRaisesPasses) {
    const auto consumer = consume();
    consumer->OnClose = [] { throw vantik::Failure({"test:consumer", "Stuck", {}, "cannot close"}); };
    willEnd();
    EXPECT_THAT(hostFailureOf([&] { receive(); }), StartsWith("test:consumer:Stuck"));
    EXPECT_THAT(consumer->Calls, ElementsAre("start", "close"));
}

TEST_F(Consumer, WhatItsCloseRaisesDoesNotTakeThePlaceOfAFailure) {
    const auto consumer = consume();
    consumer->OnPut = [](int, const std::string&) { return vantik::Array(); };
    consumer->OnClose = [] { throw vantik::Failure({"test:consumer", "Stuck", {}, "cannot close"}); };
    Curl.callWrite("abc");
    EXPECT_THROW(receive(), webservices::HTTPConsumerException);
}

TEST_F(Consumer, IsClosedWhereTheTransferFails) {
    for (const CurlFunction failing : {CurlFunction::MultiWait, CurlFunction::MultiPerform}) {
        const auto consumer = consume();
        Curl.failCall(failing, CURLM_OUT_OF_MEMORY);
        EXPECT_THAT(internalErrorOf([&] { receive(); }), testing::HasSubstr("failed with CURLMcode Out of memory"));
        EXPECT_THAT(consumer->Calls, ElementsAre("start", "close"));
    }
    const auto consumer = consume();
    Curl.giveInfo(CURLINFO_RESPONSE_CODE, 200L);
    Curl.finishWith(CURLE_RECV_ERROR);
    willEnd();
    EXPECT_THROW(receive(), webservices::HTTPConnectionRefusedException);
    EXPECT_THAT(consumer->Calls, ElementsAre("start", "close"));
}

TEST_F(Consumer, IsClosedOnATimeout) {
    const auto consumer = consume();
    letDeadlinePass();
    willWait({0});
    EXPECT_THROW(receive(), webservices::HTTPTimeoutException);
    EXPECT_THAT(consumer->Calls, ElementsAre("start", "close"));
}

// A thread interruption is no std::exception.
TEST_F(Consumer, IsNotClosedBehindWhatIsNoStandardException) {
    const auto consumer = consume();
    Curl.OnPause = [] { throw boost::thread_interrupted(); };
    willWait({0, 0});
    willPerform({[] { return 1; }});
    EXPECT_THROW(receive(), boost::thread_interrupted);
    EXPECT_THAT(consumer->Calls, ElementsAre("start"));
}

TEST_F(Consumer, BadStreamIsToldBehindAllContentAndTheClose) {
    const auto consumer = consume();
    std::ostringstream saveTo;
    saveTo.setstate(std::ios_base::badbit);
    willPerform({receives("abc", 1), receives("de", 0)});
    EXPECT_THROW(receive(&saveTo), webservices::HTTPCopyStreamException);
    EXPECT_THAT(consumer->Calls, ElementsAre("start", "put 3", "put 2", "close"));
}

// Interrupts.

TEST_F(Consumer, IsToldOfAnInterruptOfTheHostAndClosed) {
    const auto consumer = consume();
    host().interrupt();
    Curl.callWrite("abc");
    try {
        receive();
        FAIL() << "the interrupt was not seen";
    } catch (const Zentorak::System::InterruptException& stop) {
        EXPECT_FALSE(vantik::detail::requestedByProgram(stop));
    }
    EXPECT_THAT(consumer->Calls, ElementsAre("start", "interrupt", "close"));
    EXPECT_EQ(Copier.ReceiveBuffer, "abc") << "what was not drained stays";
}

TEST_F(Consumer, InterruptDuringAPutIsSeenInTheNextPass) {
    const auto consumer = consume();
    const auto reporter = report();
    consumer->OnStart = [] { return vantik::Array(2.0); };
    consumer->OnPut = [&](int, const std::string& piece) {
        host().interrupt();
        return vantik::Array(static_cast<double>(piece.size()));
    };
    Curl.callWrite("abcd");
    willPerform({[] { return 1; }});
    EXPECT_THROW(receive(), Zentorak::System::InterruptException);
    EXPECT_THAT(consumer->Calls, ElementsAre("start", "put 2", "put 2", "interrupt", "close"));
    EXPECT_THAT(reporter->Counts, ElementsAre(4U));
}

TEST_F(Consumer, WithoutAnInterruptMethodItIsClosedAllTheSame) {
    const auto consumer = consume({"interruptInternal"});
    host().interrupt();
    Curl.callWrite("abc");
    EXPECT_THROW(receive(), Zentorak::System::InterruptException);
    EXPECT_THAT(consumer->Calls, ElementsAre("start", "close"));
}

TEST_F(Consumer, InterruptPassesWithoutAConsumer) {
    std::ostringstream saveTo;
    host().interrupt();
    Curl.callWrite("abc");
    EXPECT_THROW(receive(&saveTo), Zentorak::System::InterruptException);
    EXPECT_EQ(saveTo.view(), "");
}

TEST_F(Consumer, IsToldOfWhateverThePollRaises) {
    const auto consumer = consume();
    Curl.OnInterruptPoll = [] { throw boost::thread_interrupted(); };
    Curl.callWrite("abc");
    EXPECT_THROW(receive(), boost::thread_interrupted);
    EXPECT_THAT(consumer->Calls, ElementsAre("start", "interrupt")) << "no std::exception, so it is not closed";
}

TEST_F(Consumer, StopOfAReporterIsNoInterruptOfTheHost) {
    const auto consumer = consume();
    const auto reporter = report();
    reporter->OnUpdate = [](int, std::uint64_t) { return vantik::Array(false); };
    Curl.callWrite("abc");
    try {
        receive();
        FAIL() << "it did not stop";
    } catch (const Zentorak::System::InterruptException& stop) {
        EXPECT_TRUE(vantik::detail::requestedByProgram(stop));
    }
    EXPECT_THAT(consumer->Calls, ElementsAre("start", "put 3", "close"));
}

TEST_F(Consumer, IsClosedWhereTheReporterFails) {
    const auto consumer = consume();
    const auto reporter = report({"update"});
    Curl.callWrite("abc");
    EXPECT_EQ(internalErrorOf([&] { receive(); }), "vantik.net.http.internal.ProgressReporter.update not found");
    EXPECT_THAT(consumer->Calls, ElementsAre("start", "put 3", "close"));
}

} // namespace
