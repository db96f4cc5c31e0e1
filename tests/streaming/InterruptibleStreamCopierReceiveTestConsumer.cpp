// The pump for response content with a consumer: what it is given and what its answers mean. How it is closed after a
// failure is among the failures.
#include "host/Interrupt.h"
#include "streaming/InterruptibleStreamCopier.h"
#include "tests/streaming/CopierFixture.h"

#include <boost/thread/exceptions.hpp>

#include <cmath>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

using namespace streamingtest;

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

class Consumer : public CopierFixture {
protected:
    void receive(std::ostream* saveTo = nullptr) {
        Curl.clear();
        Copier.receiveResponse(saveTo);
    }
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

    InterruptibleStreamCopier Copier{Connection};
    testsupport::ScriptedConsumer Taker = consume();
};

TEST_F(Consumer, LifeOfOneResponse) {
    willPerform({receives(std::string("a\0c", 3), 1), receives("de", 0)});
    receive();
    EXPECT_THAT(pumpJournal(),
                ElementsAre("start", "curl_multi_wait 1000", "curl_multi_perform", "interrupt poll", "put 3", //
                            "curl_multi_wait 1000", "curl_multi_perform", "curl_multi_info_read", "interrupt poll",
                            "put 2", "close"));
    EXPECT_EQ(Taker->content(), std::string("a\0cde", 5));
    EXPECT_THAT(Taker->Shapes, ElementsAre(ElementsAre(3U, 1U), ElementsAre(2U, 1U)));
}

TEST_F(Consumer, IsStartedAndClosedWithoutABody) {
    receiveAll("");
    EXPECT_THAT(Taker->Calls, ElementsAre("start", "close"));
}

TEST_F(Consumer, WithoutACloseMethodNothingFails) {
    Taker = consume({"closeInternal"});
    EXPECT_NO_THROW(receiveAll("abc"));
    EXPECT_THAT(Taker->Calls, ElementsAre("start", "put 3"));
}

// The size that the consumer wants.

TEST_F(Consumer, WantedSizeBoundsThePieces) {
    const std::pair<vantik::Array, std::size_t> rows[] = {
        {100.0, 100},
        {100.9, 100},
        {1.0, 1},
        {16383.0, 16383},
        {16384.0, 16384}, // the largest
        {100000.0, 16384},
        {-1.0, 16384}, // from here on they wrap to huge sizes
        {-1.0e300, 16384},
        {std::nan(""), 16384},
        {kInfinity, 16384},
        {-kInfinity, 16384},
        {0x1p63, 16384},
        {0x1.8p63, 16384},
        {0x1p64, 16384},
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
}

TEST_F(Consumer, WantedSizeThatTruncatesToZeroFails) {
    for (const double size : {0.0, 0.5, std::nextafter(1.0, 0.0), -0.5, std::nextafter(-1.0, 0.0)}) {
        want(size);
        Taker->Calls.clear();
        EXPECT_EQ(failureText([&] { receive(); }),
                  internalError("ContentConsumer.startInternal returned bufSize <= 0"));
        EXPECT_THAT(Taker->Calls, ElementsAre("start")) << "it is not even closed";
    }
}

// Pieces of one drain.

TEST_F(Consumer, OneDrainMayTakeSeveralPiecesAndIsOneUpdate) {
    const auto reporter = report();
    want(4.0);
    receiveAll("0123456789");
    EXPECT_THAT(Taker->Pieces, ElementsAre("0123", "4567", "89"));
    EXPECT_THAT(reporter->Counts, ElementsAre(10U));
    EXPECT_EQ(Curl.count(CurlFunction::InterruptPoll), 1U) << "not between the pieces";
}

TEST_F(Consumer, StreamGetsEachPieceBeforeTheConsumer) {
    std::ostringstream saveTo;
    want(4.0);
    Taker->OnPut = [&](int call, const std::string& piece) {
        EXPECT_EQ(saveTo.view(), std::string("01234567").substr(0, static_cast<std::size_t>(call) * 4));
        return vantik::Array(static_cast<double>(piece.size()));
    };
    receiveAll("01234567", &saveTo);
    EXPECT_EQ(saveTo.view(), "01234567");
}

TEST_F(Consumer, PiecesLeaveNoArrayBehind) {
    want(10.0);
    std::vector<std::size_t> living;
    Taker->OnPut = [&](int, const std::string& piece) {
        living.push_back(vantik::Host::liveArrays());
        return vantik::Array(static_cast<double>(piece.size()));
    };
    const std::size_t before = vantik::Host::liveArrays();
    receiveAll(std::string(100, 'x'));
    ASSERT_EQ(living.size(), 10U);
    EXPECT_THAT(living, testing::Each(living.front()));
    EXPECT_EQ(vantik::Host::liveArrays(), before);
}

// What the consumer takes.

TEST_F(Consumer, TakingLessThanOfferedEndsTheCopy) {
    const std::pair<double, bool> rows[] = {
        // of ten bytes; whether the copy goes on
        {10.0, true},         {11.0, true},
        {10.9, true},         {std::nextafter(10.0, 0.0), false},
        {9.0, false},         {0.0, false},
        {-0.5, false},        {-1.0, true}, // wraps to a huge number, as those behind it
        {std::nan(""), true}, {kInfinity, true},
        {-kInfinity, true},   {0x1p63, true},
        {0x1p64, true},
    };
    for (const auto& [taken, goesOn] : rows) {
        Taker->OnPut = [taken = taken](int, const std::string&) { return vantik::Array(taken); };
        Taker->Pieces.clear();
        Curl.callWrite("0123456789");
        willPerform({receives("more", 0)});
        receive();
        EXPECT_EQ(Taker->Pieces.size(), goesOn ? 2U : 1U) << taken;
        EXPECT_EQ(Curl.count(CurlFunction::MultiPerform), goesOn ? 1U : 0U) << taken;
        EXPECT_EQ(Taker->Calls.back(), "close");
    }
}

TEST_F(Consumer, TakingLessIsNoFailureAndCountsWhatWasTaken) {
    const auto reporter = report();
    std::ostringstream saveTo;
    want(4.0);
    Taker->OnPut = [](int call, const std::string& piece) {
        return vantik::Array(call == 2 ? 1.0 : static_cast<double>(piece.size()));
    };
    Curl.callWrite("0123456789");
    receive(&saveTo); // no perform is foreseen
    EXPECT_THAT(Taker->Calls, ElementsAre("start", "put 4", "put 4", "close"));
    EXPECT_THAT(reporter->Counts, ElementsAre(5U));
    EXPECT_EQ(saveTo.view(), "01234567") << "the piece that was refused in part has been saved whole";
    EXPECT_EQ(Curl.count(CurlFunction::MultiInfoRead), 0U);
    EXPECT_TRUE(Copier.ReceiveBuffer.empty());
}

TEST_F(Consumer, EmptyAnswerAbortsTheOperation) {
    for (const auto& answer : {vantik::Array(), zeros(0, 1, vxDOUBLE_CLASS), vantik::Array("")}) {
        Taker->OnPut = [&](int, const std::string&) { return answer; };
        Copier.ReceiveBuffer.clear();
        Curl.callWrite("abc");
        EXPECT_EQ(failureText([&] { receive(); }),
                  "HTTPConsumerException[Web service copy operation aborted by consumer]");
    }
}

// Interrupts.

TEST_F(Consumer, InterruptDuringAPutIsSeenInTheNextPass) {
    const auto reporter = report();
    want(2.0);
    Taker->OnPut = [&](int, const std::string& piece) {
        host().interrupt();
        return vantik::Array(static_cast<double>(piece.size()));
    };
    Curl.callWrite("abcd");
    willPerform({leaves(1)});
    EXPECT_EQ(failureText([&] { receive(); }), kStopText);
    EXPECT_THAT(Taker->Calls, ElementsAre("start", "put 2", "put 2", "interrupt", "close"));
    EXPECT_THAT(reporter->Counts, ElementsAre(4U));
}

// The interruption of a thread is not a std::exception.
TEST_F(Consumer, IsNotClosedAfterAThreadInterruptionButIsTold) {
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
