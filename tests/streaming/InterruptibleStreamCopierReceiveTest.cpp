// The pump for response content: order and conditions of its steps, what a consumer is given and what its answers mean.
// How a consumer is closed after a failure is among the failures.
#include "errors/HTTPException.h"
#include "hostcalls/HostObjectCall.h"
#include "streaming/ContentBuffer.h"
#include "streaming/InterruptibleStreamCopier.h"
#include "tests/streaming/CopierFixture.h"
#include "tests/support/server/WireText.h"
#include "vantik/HostClass.h"

#include <boost/thread/exceptions.hpp>

#include <cmath>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

using namespace streamingtest;
using matrix::detail::noninlined::vx_array_api::vxGetData;

namespace {

constexpr std::size_t kLargestPiece = 16384; // the largest

class ReceivePump : public CopierFixture {
protected:
    // Runs the pump on the copier with an empty record; what was buffered before is in the copier already.
    void receive() { receive(&SaveTo); }
    void receive(std::ostream* saveTo) {
        Curl.clear();
        Copier.receiveResponse(saveTo);
    }
    // The same with these performs.
    void receiveBy(std::vector<Perform> performs) {
        willPerform(std::move(performs));
        receive();
    }

    InterruptibleStreamCopier Copier{Connection};
    std::ostringstream SaveTo;
};

TEST_F(ReceivePump, StepsUntilTheTransferHasEnded) {
    receiveBy({receives("abc", 1), leaves(1), receives(std::string("a\0\r\n\xff", 5), 0)});
    EXPECT_EQ(pumpJournal(), "wait, perform, poll, wait, perform, poll, wait, perform, message, poll");
    EXPECT_EQ(SaveTo.view(), std::string("abca\0\r\n\xff", 8));
}

// While bytes are buffered the network has to wait, and the transfer counts as running.
TEST_F(ReceivePump, BufferedBytesComeBeforeAnyNetworkStep) {
    Curl.callWrite(std::string(100'000, 'x'));
    const std::size_t capacity = Copier.ReceiveBuffer.capacity();
    receiveBy({[&] {
        EXPECT_EQ(SaveTo.view().size(), 100'000U);
        EXPECT_TRUE(Copier.ReceiveBuffer.empty());
        EXPECT_EQ(Copier.ReceiveBuffer.capacity(), capacity);
        return 0;
    }});
    EXPECT_EQ(pumpJournal(), "poll, wait, perform, message");
}

TEST_F(ReceivePump, EmptyBodyEndsAtTheFirstPerformAndMayBeForNobody) {
    receiveBy({leaves(0)});
    EXPECT_EQ(pumpJournal(), "wait, perform, message");
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

// What a file or a consumer gets is not held, and what came as it is cost its sender as much.
TEST_F(ReceivePump, OnlyMemoryRefusesMoreThan512MiBAndOnlyIfDecodingMadeThem) {
    struct Row {
        bool ToMemory;
        std::uint64_t Before;
        long OnTheWire;
        std::string Report;
    };
    constexpr std::uint64_t kMost = std::uint64_t{512} << 20;
    for (const auto& [toMemory, before, onTheWire, report] :
         {Row{true, kMost - 1, 1, "nothing"}, Row{true, kMost, kMost + 1, "nothing"}, Row{false, kMost, 1, "nothing"},
          Row{true, kMost, kMost, "VANTIK:webservices:DecodedContentTooLarge[N:536870912, N:br]"}}) {
        std::ostringstream file;
        ContentBuffer memory;
        Connection.Transfer.PassedOn = before;
        Connection.Metadata.ContentEncoding = "br";
        Curl.giveInfo(CURLINFO_SIZE_DOWNLOAD_T, onTheWire);
        Copier.ReceiveBuffer.clear();
        willPerform({receives("x", 0)});
        EXPECT_EQ(failureText([&] { receive(toMemory ? static_cast<std::ostream*>(&memory) : &file); }), report);
        EXPECT_EQ(file.view(), toMemory ? "" : "x");
        EXPECT_EQ(memory.size(), toMemory && report == "nothing" ? 1U : 0U);
    }
    const auto consumer = consume();
    Connection.Transfer.PassedOn = kMost;
    Copier.ReceiveBuffer.clear();
    willPerform({receives("x", 0)});
    receive(nullptr);
    EXPECT_EQ(consumer->content(), "x");
}

TEST_F(ReceivePump, ContentForMemoryIsPutThereAtOnce) {
    ContentBuffer memory;
    memory.expect(300'000);
    const std::string content(200'000, 'x');
    Curl.callWrite("came early,");
    willPerform({[&] {
                     Curl.callWrite(content);
                     EXPECT_TRUE(Copier.ReceiveBuffer.empty());
                     EXPECT_EQ(memory.size(), 11U) << "it does not count before it has been passed on";
                     return 1;
                 },
                 [&] {
                     EXPECT_EQ(memory.size(), 200'011U);
                     Curl.callWrite(content); // more than was announced
                     EXPECT_EQ(Copier.ReceiveBuffer.size(), 100'011U);
                     return 0;
                 }});
    receive(&memory);
    EXPECT_EQ(memory.size(), 400'011U);
    EXPECT_EQ(Connection.Transfer.PassedOn, 400'011U);
    const HostArray taken = memory.release();
    EXPECT_EQ(std::string_view(static_cast<const char*>(vxGetData(taken.get())), 400'011),
              "came early," + content + content);
}

TEST_F(ReceivePump, WhatAnInterruptKeepsFromMemoryWaitsForALaterCopy) {
    ContentBuffer memory;
    memory.expect(300'000);
    willPerform({receives("abc", 1), [&] {
                     Curl.callWrite("def");
                     host().interrupt();
                     return 1;
                 }});
    EXPECT_EQ(failureText([&] { receive(&memory); }), kStopText);
    EXPECT_EQ(memory.size(), 3U);
    EXPECT_EQ(Copier.ReceiveBuffer, "def");
    willPerform({receives("ghi", 0)});
    receive();
    EXPECT_EQ(SaveTo.view(), "defghi");
}

TEST_F(ReceivePump, StreamThatOnlyFailedIsNotBad) {
    SaveTo.setstate(std::ios_base::failbit);
    EXPECT_NO_THROW(receiveBy({receives("abc", 0)}));
}

// Bytes do not start the count of empty waits anew; a wait that finds something does.
TEST_F(ReceivePump, SecondEmptyWaitInARowPauses) {
    willWait({0, 0, 0, 1});
    receiveBy({leaves(1), receives("abc", 1), leaves(1), leaves(0)});
    EXPECT_EQ(pumpJournal(), "wait, perform, poll, wait, pause, perform, poll, wait, pause, perform, poll, "
                             "wait, perform, message");
    willWait({0, 1, 0, 3, 0});
    receiveBy({leaves(1), leaves(1), leaves(5), leaves(1), leaves(0)});
    EXPECT_EQ(Curl.pauses(), 0U);
}

// Neither a pass that brought bytes nor the end is late.
TEST_F(ReceivePump, PassThatBroughtNothingChecksTheTimeout) {
    letDeadlinePass();
    EXPECT_THROW(receiveBy({leaves(1)}), webservices::HTTPTimeoutException);
    EXPECT_EQ(pumpJournal(), "wait, perform, poll");
    for (const Perform& last : {receives("late", 0), leaves(0)}) {
        letDeadlinePass();
        EXPECT_NO_THROW(receiveBy({last}));
    }
    EXPECT_EQ(SaveTo.view(), "late");
}

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
    receiveBy({leaves(1), receives("678", 1), leaves(1), receives("90", 0)});
    EXPECT_THAT(reporter->Counts, ElementsAre(5U, 8U, 10U)) << "nothing on passes that bring nothing";
    EXPECT_THAT(pumpJournal(), testing::StartsWith("poll, update 5, "));
}

// Trace. Its line is closed by bytes, by a failure and by the end; a wait that fails does not count as a pass.
TEST_F(ReceivePump, TraceCountsThePassesOnTheNetwork) {
    EXPECT_EQ(traceOf(1, [&] { receiveBy({leaves(1), leaves(1), leaves(0)}); }), "PERFORM IN READER 3 times\n");

    const auto fail = [&] { EXPECT_NE(failureText([&] { receive(); }), "nothing"); };
    Curl.failCall(CurlFunction::MultiPerform, CURLM_OUT_OF_MEMORY, 3);
    willPerform({leaves(1), receives("abc", 1)});
    EXPECT_EQ(traceOf(1, fail), "PERFORM IN READER 2 times\nRECEIVING 3 BYTES\nPERFORM IN READER 1 times\n");
    Curl.failCall(CurlFunction::MultiWait, CURLM_OUT_OF_MEMORY);
    EXPECT_EQ(traceOf(1, fail), "");
}

// With a consumer.

class ConsumingPump : public ReceivePump {
protected:
    void receive(std::ostream* saveTo = nullptr) { ReceivePump::receive(saveTo); }
    // The same with these bytes buffered, and nothing more coming in.
    void receiveAll(const std::string& content, std::ostream* saveTo = nullptr) {
        Curl.callWrite(content);
        willPerform({leaves(0)});
        receive(saveTo);
    }
    // The consumer wants pieces of this size.
    void want(double size) {
        Taker->OnStart = [size] { return vantik::Array(size); };
    }

    testsupport::ScriptedConsumer Taker = consume();
};

TEST_F(ConsumingPump, LifeOfOneResponse) {
    willPerform({receives(std::string("a\0c", 3), 1), receives("de", 0)});
    receive();
    EXPECT_EQ(pumpJournal(), "start, wait, perform, poll, put 3, wait, perform, message, poll, put 2, close");
    EXPECT_EQ(Taker->content(), std::string("a\0cde", 5));
    EXPECT_THAT(Taker->Shapes, ElementsAre(ElementsAre(3U, 1U), ElementsAre(2U, 1U)));
}

TEST_F(ConsumingPump, IsStartedAndClosedWithoutABodyAndMayLackTheClose) {
    receiveAll("");
    EXPECT_THAT(Taker->Calls, ElementsAre("start", "close"));
    Taker = consume({"closeInternal"});
    EXPECT_NO_THROW(receiveAll("abc"));
    EXPECT_THAT(Taker->Calls, ElementsAre("start", "put 3"));
}

// Sizes and counts are wrapped to unsigned numbers, so that most negative ones are huge.
TEST_F(ConsumingPump, WantedSizeBoundsThePieces) {
    const std::pair<vantik::Array, std::size_t> rows[] = {
        {100.9, 100},
        {1.0, 1},
        {16383.0, 16383},
        {16385.0, 16384}, // the largest
        {-1.0, 16384},
        {std::nan(""), 16384},
        {std::uint64_t{300}, 300},
        {std::int32_t{-7}, 16384},
        {byteMatrix(1, 1, "\x20"), 32},
        {vantik::Array(), 16384},
        {zeros(0, 1, vxDOUBLE_CLASS), 16384},
    };
    const std::string content(20'000, 'x');
    for (const auto& [wanted, piece] : rows) {
        Taker->OnStart = [&wanted] { return wanted; };
        Taker->Pieces.clear();
        receiveAll(content);
        EXPECT_EQ(Taker->Pieces.front().size(), piece);
        EXPECT_EQ(Taker->Pieces.size(), (content.size() + piece - 1) / piece);
        EXPECT_EQ(Taker->content(), content);
    }
    for (const double size : {0.0, 0.5, std::nextafter(1.0, 0.0), -0.5, std::nextafter(-1.0, 0.0)}) {
        want(size);
        EXPECT_EQ(failureText([&] { receive(); }),
                  internalError("ContentConsumer.startInternal returned bufSize <= 0"));
    }
}

TEST_F(ConsumingPump, StreamGetsEachPieceOfADrainBeforeTheConsumer) {
    const auto reporter = report();
    std::ostringstream saveTo;
    want(4.0);
    Taker->OnPut = [&](int call, const std::string& piece) {
        EXPECT_EQ(saveTo.view(), std::string("0123456789").substr(0, static_cast<std::size_t>(call) * 4));
        return vantik::Array(static_cast<double>(piece.size()));
    };
    receiveAll("0123456789", &saveTo);
    EXPECT_THAT(Taker->Pieces, ElementsAre("0123", "4567", "89"));
    EXPECT_THAT(reporter->Counts, ElementsAre(10U)) << "once for all pieces";
    EXPECT_EQ(Curl.count(CurlFunction::InterruptPoll), 1U) << "not between the pieces";
}

// A drain that brought whole pieces is followed by arrays to receive the next ones in.
TEST_F(ConsumingPump, WholePiecesAreReceivedInTheirArrays) {
    const std::string content = testsupport::patternedBytes(10 * kLargestPiece);
    const std::string_view all = content;
    std::size_t sent = 0;
    const auto come = [&](std::size_t length) {
        Curl.callWrite(std::string(all.substr(sent, length)));
        sent += length;
    };
    std::ostringstream saveTo;
    willPerform({[&] {
                     come(3 * kLargestPiece + 5);
                     return 1;
                 },
                 [&] {
                     come(100);
                     come(2 * kLargestPiece);
                     EXPECT_TRUE(Copier.ReceiveBuffer.empty());
                     return 1;
                 },
                 [&] {
                     come(3 * kLargestPiece - 1);
                     come(2); // the second byte finds no room in the arrays
                     EXPECT_EQ(Copier.ReceiveBuffer.size(), 1U);
                     come(kLargestPiece);
                     return 0;
                 }});
    receive(&saveTo);
    std::vector<std::size_t> sizes;
    for (const std::string& piece : Taker->Pieces) {
        sizes.push_back(piece.size());
    }
    EXPECT_THAT(sizes, ElementsAre(kLargestPiece, kLargestPiece, kLargestPiece, 5, kLargestPiece, kLargestPiece, 100,
                                   kLargestPiece, kLargestPiece, kLargestPiece, kLargestPiece, 1));
    EXPECT_EQ(Taker->content(), all.substr(0, sent));
    EXPECT_EQ(saveTo.view(), all.substr(0, sent));
    EXPECT_EQ(Connection.Transfer.PassedOn, sent);
}

TEST_F(ConsumingPump, WhatHasComeIntoArraysIsNotLostInAnInterrupt) {
    const std::string content = testsupport::patternedBytes(5 * kLargestPiece + 9);
    willPerform({receives(content.substr(0, 2 * kLargestPiece), 1), [&] {
                     Curl.callWrite(content.substr(2 * kLargestPiece));
                     host().interrupt();
                     return 1;
                 }});
    EXPECT_EQ(failureText([&] { receive(); }), kStopText);
    EXPECT_EQ(Taker->content() + Copier.ReceiveBuffer, content);
}

TEST_F(ConsumingPump, TakingLessThanOfferedEndsTheCopy) {
    const std::pair<double, bool> rows[] = {
        {10.0, true}, {10.9, true}, {11.0, true},  {std::nextafter(10.0, 0.0), false},
        {9.0, false}, {0.0, false}, {-0.5, false}, {-1.0, true}};
    for (const auto& [takenOfTen, goesOn] : rows) {
        Taker->OnPut = [taken = takenOfTen](int, const std::string&) { return vantik::Array(taken); };
        Taker->Pieces.clear();
        Curl.callWrite("0123456789");
        willPerform({receives("more", 0)});
        receive();
        EXPECT_EQ(Taker->Pieces.size(), goesOn ? 2U : 1U) << takenOfTen;
        EXPECT_EQ(Curl.count(CurlFunction::MultiPerform), goesOn ? 1U : 0U) << takenOfTen;
        EXPECT_EQ(Taker->Calls.back(), "close");
    }
}

// Pieces of the same length are one array, which a consumer may keep all the same.
TEST_F(ReceivePump, PiecesShareAnArrayUntilTheConsumerKeepsOne) {
    std::vector<vantik::Array> kept;
    bool keeps = false;
    std::vector<const void*> places;
    const auto answer = [](std::span<const vantik::Array>) -> std::vector<vantik::Array> { return {vantik::Array()}; };
    vantik::HostClass("keeping.Consumer")
        .derivesFrom(kConsumerClassName)
        .method("startInternal", answer)
        .method("putDataInternal",
                [&](std::span<const vantik::Array> inputs) -> std::vector<vantik::Array> {
                    places.push_back(inputs[1].bytes().data());
                    if (keeps) {
                        kept.push_back(inputs[1]);
                    }
                    return {static_cast<double>(inputs[1].size())};
                })
        .method("closeInternal", answer)
        .defineIn(host());
    const vantik::Object consumer = host().create("keeping.Consumer");
    Connection.Settings.Consumer = sharedOf(consumer.array());
    std::string content;
    for (const char letter : {'a', 'b', 'c'}) {
        content += std::string(16384, letter);
    }
    content += "end";
    for (const bool doesKeep : {false, true}) {
        keeps = doesKeep;
        places.clear();
        Curl.callWrite(content);
        willPerform({receives(content, 1), receives(content, 0)}); // in arrays that the drain before made
        receive(nullptr);
        ASSERT_EQ(places.size(), 12U);
        EXPECT_EQ(places[0] == places[1] && places[1] == places[2], !doesKeep);
        EXPECT_EQ(places[4] == places[8] && places[5] == places[9] && places[6] == places[10], !doesKeep);
    }
    std::string all;
    for (const vantik::Array& piece : kept) {
        all += piece.byteText();
    }
    EXPECT_EQ(all, content + content + content);
}

// The interruption of a thread is not a std::exception.
TEST_F(ConsumingPump, IsInformedOfAThreadInterruptionButNotClosed) {
    Curl.OnPause = [] { throw boost::thread_interrupted(); };
    willWait({0, 0});
    willPerform({leaves(1)});
    EXPECT_THROW(receive(), boost::thread_interrupted);
    EXPECT_THAT(Taker->Calls, ElementsAre("start"));

    Taker->Calls.clear();
    Curl.OnInterruptPoll = [] { throw boost::thread_interrupted(); };
    Curl.callWrite("abc");
    EXPECT_THROW(receive(), boost::thread_interrupted);
    EXPECT_THAT(Taker->Calls, ElementsAre("start", "interrupt")) << "by the poll, whatever it raises";
}

} // namespace
