// The loop of a send around wait and perform.
#include "streaming/InterruptibleStreamCopier.h"
#include "tests/transfer/ConnectionFixture.h"

#include <boost/numeric/conversion/cast.hpp>

#include <stdexcept>

namespace {

constexpr std::int64_t kMs = 1'000'000;

std::string multiText(CURLMcode code) {
    return curl_multi_strerror(code);
}

class PerformLoopTest : public OpenConnectionFixture {
protected:
    // The transfer runs until the given number of performs has been made.
    void runFor(int performs) {
        curl.giveInfo(CURLINFO_RESPONSE_CODE, 200L);
        curl.OnPerform = [=, this, made = 0](int& running) mutable {
            running = ++made < performs ? 1 : 0;
            if (running == 0) {
                curl.finishWith(CURLE_OK);
            }
            return CURLM_OK;
        };
    }
    // What each wait of the loop finds ready, one entry a wait.
    void findReady(std::vector<int> counts) {
        runFor(static_cast<int>(counts.size()) + 1);
        curl.OnWait = [counts, next = std::size_t{0}](int, int& ready) mutable {
            ready = counts.at(next++);
            return CURLM_OK;
        };
    }
};

struct WaitRow {
    double ResponseTimeout;
    std::int64_t Wait;
};

class WaitTest : public PerformLoopTest, public ::testing::WithParamInterface<WaitRow> {};

TEST_P(WaitTest, FollowsTheResponseTimeoutUpToItsCap) {
    connection.setTimeouts({5000.0, GetParam().ResponseTimeout, 50.0});
    curl.setClock(0);
    connection.openConnection();
    findReady({1, 1});
    EXPECT_EQ(send(), "nothing");
    const std::string wait = "curl_multi_wait " + std::to_string(GetParam().Wait);
    EXPECT_THAT(curl.texts({CurlFunction::MultiWait}), ElementsAre(wait, wait));
}

INSTANTIATE_TEST_SUITE_P(Limits, WaitTest,
                         ::testing::Values(WaitRow{SilenceLimits::kUnlimited, 500}, WaitRow{0.0, 0}, WaitRow{100.0, 100},
                                           WaitRow{499.9, 499}, WaitRow{500.0, 500}, WaitRow{30000.0, 500}));

// As the limit stands at the send, even if the open has not seen it.
TEST_F(PerformLoopTest, WaitFollowsALimitSetBehindTheOpen) {
    connection.setTimeouts({5000.0, 100.0});
    findReady({1});
    EXPECT_EQ(send(), "nothing");
    EXPECT_THAT(curl.texts({CurlFunction::MultiWait}), ElementsAre("curl_multi_wait 100"));
}

// The limit is cut to an integer before it is capped, as the open would cut it.
TEST_F(PerformLoopTest, LimitThatIsNoIntegerEndsTheSendBeforeItBegins) {
    for (const double limit : {1e12, -1e12}) {
        connection.Transfer.TransferFailed = false;
        connection.setTimeouts({5000.0, limit});
        const std::string overflow =
            limit > 0 ? boost::numeric::positive_overflow().what() : boost::numeric::negative_overflow().what();
        EXPECT_EQ(send(), "HTTPConnectionFailedException[" + overflow + "]");
        EXPECT_TRUE(connection.Transfer.TransferFailed);
        EXPECT_EQ(curl.count(CurlFunction::MultiPerform), 0u);
        EXPECT_TRUE(connection.Transfer.Opened);
        EXPECT_FALSE(connection.Transfer.ResponseDone);
    }
    connection.setTimeouts({5000.0});
    findReady({1});
    EXPECT_EQ(send(), "nothing");
}

TEST_F(PerformLoopTest, DeadlineStartsWithTheSend) {
    curl.setClock(7000 * kMs);
    connection.setTimeouts({5000.0, 3000.0, 9000.0});
    connection.openConnection();
    curl.OnPerform = [&](int& running) {
        EXPECT_EQ(connection.Limits.Deadline, 10000 * kMs);
        EXPECT_EQ(connection.Limits.TimeoutReason, 0);
        running = 0;
        return CURLM_OK;
    };
    EXPECT_EQ(send(), "nothing");
}

TEST_F(PerformLoopTest, ThereIsNoDeadlineWithoutLimits) {
    connection.Limits.Deadline = 17;
    curl.OnPerform = [&](int& running) {
        EXPECT_EQ(connection.Limits.Deadline, SilenceLimits::kNoDeadline);
        running = 0;
        return CURLM_OK;
    };
    EXPECT_EQ(send(), "nothing");
}

TEST_F(PerformLoopTest, PassIsWaitPausePerformInterruptTimeout) {
    connection.setTimeouts({5000.0, 1000.0});
    curl.setClock(0);
    curl.giveInfo(CURLINFO_CONNECT_TIME, 0.0);
    connection.openConnection();
    findReady({0, 0, 1});
    EXPECT_EQ(send(), "nothing");
    EXPECT_THAT(curl.texts({CurlFunction::MultiWait, CurlFunction::Pause, CurlFunction::MultiPerform,
                            CurlFunction::InterruptPoll, CurlFunction::EasyGetinfo, CurlFunction::MultiInfoRead}),
                ElementsAre("curl_multi_perform",                                           //
                            "curl_multi_wait 500", "curl_multi_perform", "interrupt poll",  //
                            "CURLINFO_CONNECT_TIME",                                        //
                            "curl_multi_wait 500", "pause 100000000", "curl_multi_perform", //
                            "interrupt poll", "CURLINFO_CONNECT_TIME",                      //
                            "curl_multi_wait 500", "curl_multi_perform", "interrupt poll",  //
                            "CURLINFO_CONNECT_TIME",                                        //
                            "CURLINFO_CONTENT_TYPE", "CURLINFO_CONTENT_LENGTH_DOWNLOAD_T",  // metadata
                            "CURLINFO_SIZE_DOWNLOAD_T",                                     //
                            "curl_multi_info_read", "CURLINFO_RESPONSE_CODE",               // completion
                            "CURLINFO_CONTENT_TYPE", "CURLINFO_CONTENT_LENGTH_DOWNLOAD_T",  // metadata
                            "CURLINFO_SIZE_DOWNLOAD_T"));
}

struct IdleRow {
    std::vector<int> Ready;
    std::size_t Pauses;
};

class IdleTest : public PerformLoopTest, public ::testing::WithParamInterface<IdleRow> {};

TEST_P(IdleTest, PausesFromTheSecondEmptyWaitInARow) {
    findReady(GetParam().Ready);
    EXPECT_EQ(send(), "nothing");
    EXPECT_EQ(curl.pauses(), GetParam().Pauses);
}

INSTANTIATE_TEST_SUITE_P(Waits, IdleTest,
                         ::testing::Values(IdleRow{{}, 0}, IdleRow{{0}, 0}, IdleRow{{0, 0}, 1}, IdleRow{{0, 1, 0}, 0},
                                           IdleRow{{0, 0, 0}, 2}, IdleRow{{0, 0, 1, 0}, 1}, IdleRow{{0, 0, 2, 0, 0}, 2},
                                           IdleRow{{1, 1, 1}, 0}));

TEST_F(PerformLoopTest, FirstByteOfContentEndsTheLoop) {
    curl.giveInfo(CURLINFO_RESPONSE_CODE, 200L);
    curl.OnWait = [](int, int& ready) {
        ready = 1;
        return CURLM_OK;
    };
    curl.OnPerform = [this, made = 0](int& running) mutable {
        running = 1;
        if (++made == 2) {
            curl.callResponseHead("HTTP/1.1 200 OK\r\n\r\n");
            curl.callWrite("x");
        }
        return CURLM_OK;
    };
    EXPECT_EQ(send(), "nothing");
    EXPECT_EQ(curl.count(CurlFunction::MultiPerform), 2u);
    EXPECT_EQ(curl.count(CurlFunction::MultiWait), 1u);
    EXPECT_TRUE(connection.Transfer.ResponseDone);
    EXPECT_EQ(connection.Transfer.Copier->ReceiveBuffer, "x");
}

TEST_F(PerformLoopTest, EndOfTheTransferEndsTheLoop) {
    runFor(1);
    EXPECT_EQ(send(), "nothing");
    EXPECT_TRUE(connection.Transfer.PerformDone);
    EXPECT_EQ(curl.count(CurlFunction::MultiWait), 0u);
}

TEST_F(PerformLoopTest, FailingMultiCallsAreToldApart) {
    runFor(9);
    curl.OnWait = [](int, int& ready) {
        ready = 1;
        return CURLM_OK;
    };
    curl.failCall(CurlFunction::MultiPerform, CURLM_INTERNAL_ERROR);
    EXPECT_EQ(send(), internalError("\"curl_multi_perform\" failed with CURLMcode " + multiText(CURLM_INTERNAL_ERROR) +
                                    "Initial multi-perform call for request"));
    EXPECT_TRUE(connection.Transfer.TransferFailed);
    curl.failCall(CurlFunction::MultiPerform, CURLM_OUT_OF_MEMORY, 2);
    EXPECT_EQ(send(), internalError("\"curl_multi_perform\" failed with CURLMcode " + multiText(CURLM_OUT_OF_MEMORY) +
                                    "start reading response"));
    curl.failCall(CurlFunction::MultiWait, CURLM_BAD_HANDLE);
    EXPECT_EQ(send(), internalError("\"curl_multi_wait\" failed with CURLMcode " + multiText(CURLM_BAD_HANDLE)));
    EXPECT_TRUE(connection.Transfer.Opened);
    EXPECT_FALSE(connection.Transfer.ResponseDone);
}

TEST_F(PerformLoopTest, LateResponseEndsTheLoop) {
    connection.setTimeouts({5000.0, 1000.0});
    curl.setClock(0);
    curl.giveInfo(CURLINFO_CONNECT_TIME, 0.25);
    connection.openConnection();
    curl.OnWait = [&](int milliseconds, int& ready) {
        curl.advanceClock(milliseconds * kMs);
        ready = 0;
        return CURLM_OK;
    };
    curl.OnPerform = [](int& running) {
        running = 1;
        return CURLM_OK;
    };
    EXPECT_THAT(send(), ::testing::MatchesRegex("HTTPTimeoutException\\[.*, 1000, HTTPOptions.ResponseTimeout\\]"));
    EXPECT_TRUE(connection.Transfer.TransferFailed);
    EXPECT_EQ(curl.count(CurlFunction::MultiWait), 2u); // 500 ms, then 500 ms and a pause
}

TEST_F(PerformLoopTest, RunsOnTheUsersBehalfThroughout) {
    std::vector<std::string> events;
    host().onImpersonation([&] { events.push_back("in " + std::to_string(curl.options().size())); },
                           [&] { events.push_back("out"); });
    playExchange("HTTP/1.1 200 OK\r\n\r\n");
    EXPECT_EQ(send(), "nothing");
    EXPECT_THAT(events, ElementsAre("in 1", "out")); // behind the header list, before all other options
    connection.closeConnection();
    connection.openConnection();
    runFor(9);
    curl.failCall(CurlFunction::MultiPerform, CURLM_INTERNAL_ERROR);
    EXPECT_NE(send(), "nothing");
    EXPECT_THAT(events, ElementsAre("in 1", "out", "in 1", "out"));
    EXPECT_EQ(host().impersonationDepth(), 0u);
}

TEST_F(PerformLoopTest, FailureOfAnEarlierSendIsForgotten) {
    connection.Transfer.CallbackFailure = std::make_exception_ptr(std::runtime_error("old"));
    playExchange("HTTP/1.1 200 OK\r\n\r\n");
    EXPECT_EQ(send(), "nothing");
    EXPECT_EQ(connection.Transfer.CallbackFailure, nullptr);
}

// A failure that the completion reports comes before one that a callback has stored.
TEST_F(PerformLoopTest, CompletionComesBeforeAStoredFailure) {
    playExchange("HTTP/1.1 200 OK\r\nbad\n", CURLE_RECV_ERROR);
    EXPECT_EQ(send(), "HTTPConnectionRefusedException[Unknown exception]");
    EXPECT_EQ(failureText(connection.Transfer.CallbackFailure),
              internalError("CRLF not found at the end of the received headers"));
}

} // namespace
