#include "tests/transfer/ConnectionFixture.h"

#include <cstdlib>
#include <tuple>

namespace {

using Lines = std::vector<std::string>;

const std::string kNoLineEnd = internalError("CRLF not found at the end of the received headers");

class HTTPConnectionHeadTest : public ConnectionFixture {
protected:
    HTTPConnectionHeadTest() {
        curl.giveInfo(CURLINFO_RESPONSE_CODE, 0L); // so that status lines are read
        connection.Limits.Deadline = SilenceLimits::kNoDeadline;
    }
    ~HTTPConnectionHeadTest() override { connection.Settings.Debug = 0; }

    // One line as libcurl passes it. The callback asks libcurl to stop only after a failure that it cannot keep.
    void take(std::string line) { EXPECT_EQ(headerCallback(line.data(), 1, line.size(), &connection), line.size()); }
    void refuse(std::string line) { EXPECT_EQ(headerCallback(line.data(), 1, line.size(), &connection), 0U); }
    void takeAll(const Lines& lines) {
        for (const std::string& line : lines) {
            take(line);
        }
    }
    std::string storedFailure() const { return failureText(connection.Transfer.CallbackFailure); }

    HTTPConnection connection;
};

// Each state of the response's head with each kind of line.

const Lines kInterim{"HTTP/1.1 100 Continue\r\n", "X-Early: 1\r\n", "\r\n"};
const Lines kFoundLines{"HTTP/1.1 302 Found\r\n", "X-Kept: 1\r\n"};
const Lines kBlank{"\r\n"};
const Lines kFound{"HTTP/1.1 302 Found", "X-Kept: 1"};

Lines operator+(Lines left, const Lines& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// What a line does to the head.
struct Effect {
    bool Replaces = false;     // the lines that were stored
    bool IsStored = false;     // after those that stay
    bool Begins = false;       // a head: the status counts and the head is not complete any more
    bool Completes = false;    // the head
    bool IsRefused = false;    // with a failure that is kept
    const char* End = nullptr; // what the trace says of a blank line; null: the line itself is traced
};

constexpr const char* kDone = "...DONE RECEIVING HEADERS...\n";
constexpr const char* kUnexpected = "UNEXPECTED HEADERS FOR RESPONSE ";

constexpr Effect kBegins{.Replaces = true, .IsStored = true, .Begins = true};
constexpr Effect kIsStored{.IsStored = true};
constexpr Effect kIsTrailer{};
constexpr Effect kCompletes{.Completes = true, .End = kDone};
constexpr Effect kEndsInterim{.End = kDone};                       // its lines stay until the next head
constexpr Effect kDropsHead{.Replaces = true, .End = kUnexpected}; // reported where there are fields
constexpr Effect kIsRefused{.IsRefused = true};
constexpr Effect kBeginsRefused{.Replaces = true, .Begins = true, .IsRefused = true}; // still taken for a beginning

struct Event {
    const char* Name;
    std::string Line;
    Effect WithoutHead;
    Effect WithinHead;
    Effect AfterHead;              // which is complete
    std::int32_t StatusBefore = 0; // 0: as the state has left it
    const char* MethodSent = "GET";
};

const Event kEvents[] = {
    {"StatusLine", "HtTP/1.1 404 Not Found\r\n", kBegins, kIsStored, kBegins},
    {"FieldLine", "X-New: 503\r\n", kBegins, kIsStored, kIsTrailer},
    {"FieldLineOfAnyBytes", std::string("\0\r\n\t\xe4 503\r\n", 11), kBegins, kIsStored, kIsTrailer},
    {"BlankLineOfA100", "\r\n", kDropsHead, kDropsHead, kCompletes, 100},
    {"BlankLineOfATunnel", "\r\n", kDropsHead, kDropsHead, kCompletes, 200, "Connect"},
    {"BlankLineOfAFinalHead", "\r\n", kCompletes, kCompletes, kCompletes, 302},
    {"BlankLineOfHints", "\r\n", kEndsInterim, kEndsInterim, kCompletes, 103},
    {"StatusLineWithoutEnd", "HTTP/1.1 404 Not Found", kBeginsRefused, kIsRefused, kBeginsRefused},
    {"FieldLineWithoutEnd", "X-New: 503", kBeginsRefused, kIsRefused, kIsTrailer},
    {"FieldLineWithLineFeedOnly", "X-New: 503\n", kBeginsRefused, kIsRefused, kIsTrailer},
    {"FieldLineWithReturnOnly", "X-New: 503\r", kBeginsRefused, kIsRefused, kIsTrailer},
    {"LineFeedAlone", "\n", kBeginsRefused, kIsRefused, kIsTrailer},
    {"ReturnAlone", "\r", kBeginsRefused, kIsRefused, kIsTrailer},
    {"OneLetter", "X", kBeginsRefused, kIsRefused, kIsTrailer},
    {"Nothing", "", kBeginsRefused, kIsRefused, kIsTrailer},
};

// The lines that lead to a state, what is then stored, and where the effect of an event is.
struct State {
    const char* Name;
    Lines Before;
    Lines Stored;
    Effect Event::*Column;
};

const State kStates[] = {
    {"NoHead", {}, {}, &Event::WithoutHead},
    {"NoHeadAfterInterim", kInterim, {}, &Event::WithoutHead},
    {"Hints",
     {"HTTP/1.1 103 Early Hints\r\n", "X-Kept: 1\r\n", "\r\n"},
     {"HTTP/1.1 103 Early Hints", "X-Kept: 1"},
     &Event::WithoutHead},
    {"StatusLineAlone", {"HTTP/1.1 302 Found\r\n"}, {"HTTP/1.1 302 Found"}, &Event::WithinHead},
    {"Collecting", kFoundLines, kFound, &Event::WithinHead},
    {"CollectingAfterInterim", kInterim + kFoundLines, kFound, &Event::WithinHead},
    {"Complete", kFoundLines + kBlank, kFound, &Event::AfterHead},
    {"CompleteAfterInterim", kInterim + kFoundLines + kBlank, kFound, &Event::AfterHead},
    {"CompleteWithoutLines", kBlank, {}, &Event::AfterHead},
};

class HeadState : public HTTPConnectionHeadTest, public ::testing::WithParamInterface<std::tuple<State, Event>> {
protected:
    HeadState() : state(std::get<0>(GetParam())), event(std::get<1>(GetParam())), effect(event.*state.Column) {
        connection.setTimeouts({5000.0, 1000.0, 3000.0});
        connection.applyTimeouts();
        connection.Limits.Deadline = 0;
        connection.SentHead.EffectiveMethod = "GET";
        curl.setClock(0);
        takeAll(state.Before);
    }
    void takeEvent() {
        if (event.StatusBefore != 0) {
            connection.ReceivedHead.ResponseCode = event.StatusBefore;
        }
        connection.SentHead.EffectiveMethod = event.MethodSent;
        take(event.Line);
    }
    bool wasComplete() const { return state.Column == &Event::AfterHead; }
    std::string expectedTrace() const {
        if (effect.End == nullptr) { // the line, less its last byte
            return "IN  HDR: " + event.Line.substr(0, event.Line.empty() ? 0 : event.Line.size() - 1);
        }
        if (effect.End == kDone) {
            return kDone;
        }
        return state.Stored.size() < 2 ? "" // a status line alone is no surprise
                                       : kUnexpected + std::to_string(event.StatusBefore) + " TO " + event.MethodSent +
                                             '\n' + state.Stored[0] + '\n' + state.Stored[1] + "\n\n";
    }

    const State& state;
    const Event& event;
    const Effect effect;
};

TEST_P(HeadState, TakesTheLine) {
    ASSERT_EQ(connection.ReceivedHead.ResponseHeaderLines, state.Stored);
    ASSERT_EQ(connection.ReceivedHead.HeadersComplete, wasComplete());
    const std::int32_t statusBefore =
        event.StatusBefore == 0 ? connection.ReceivedHead.ResponseCode : event.StatusBefore;
    const StandardOutputCapture output;
    connection.Settings.Debug = 1;
    curl.setClock(70 * kMs);
    takeEvent();

    Lines stored = effect.Replaces ? Lines{} : state.Stored;
    if (effect.IsStored) {
        stored.push_back(event.Line.substr(0, event.Line.size() - 2));
    }
    EXPECT_EQ(connection.ReceivedHead.ResponseHeaderLines, stored);
    // In the middle of a head a number after a blank is not a status.
    const std::size_t blank = event.Line.find(' ');
    const int statusInLine = blank == std::string::npos ? 0 : std::atoi(event.Line.c_str() + blank);
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, effect.Begins ? statusInLine : statusBefore);
    const bool complete = effect.Completes || (wasComplete() && !effect.Begins);
    EXPECT_EQ(connection.ReceivedHead.HeadersComplete, complete);
    EXPECT_EQ(storedFailure(), effect.IsRefused ? kNoLineEnd : "nothing");
    EXPECT_EQ(connection.Transfer.EscapedFailure, nullptr);
    // Every line is activity, a refused one too.
    EXPECT_EQ(connection.Limits.Deadline, (complete ? 3070 : 1070) * kMs);
    EXPECT_EQ(connection.Limits.TimeoutReason, complete ? 1 : 0);
    EXPECT_EQ(output.text(), expectedTrace());
}

// Whatever came before, a whole head after it is the one that counts, and a failure is not lost.
TEST_P(HeadState, NextHeadIsReadAsEver) {
    takeEvent();
    connection.SentHead.EffectiveMethod = "GET";
    if (!connection.ReceivedHead.HeadersComplete) {
        connection.ReceivedHead.ResponseCode = 302;
        take("\r\n"); // ends what is still being collected
    }
    EXPECT_TRUE(connection.ReceivedHead.HeadersComplete);
    takeAll({"HTTP/1.1 204 No Content\r\n", "X-Last: 1\r\n", "\r\n"});
    EXPECT_EQ(connection.ReceivedHead.ResponseHeaderLines, (Lines{"HTTP/1.1 204 No Content", "X-Last: 1"}));
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, 204);
    EXPECT_TRUE(connection.ReceivedHead.HeadersComplete);
    EXPECT_EQ(connection.Transfer.CallbackFailure != nullptr, effect.IsRefused);
}

INSTANTIATE_TEST_SUITE_P(StatesAndLines, HeadState,
                         ::testing::Combine(::testing::ValuesIn(kStates), ::testing::ValuesIn(kEvents)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).Name) + '_' + std::get<1>(info.param).Name;
                         });

// What libcurl keeps of heads and trailers grows with them, so the callback ends the transfer.
TEST_F(HTTPConnectionHeadTest, LinesOfAllHeadsAndTrailersAreCounted) {
    const std::string line = "X-Line: " + std::string(1014, 'x') + "\r\n"; // 1 KiB
    takeAll({"HTTP/1.1 103 Early Hints\r\n", "\r\n", "HTTP/1.1 200 OK\r\n", "\r\n"});
    for (int i = 0; i < 1023; ++i) {
        take(line);
    }
    EXPECT_EQ(connection.Transfer.EscapedFailure, nullptr);
    refuse(line);
    EXPECT_EQ(failureText(connection.Transfer.EscapedFailure),
              "HTTPConnectionRefusedException[Heads and trailers of the response are larger than 1048576 bytes.]");
    EXPECT_EQ(connection.Transfer.Fault, TransferFault::Failed);
}

TEST_F(HTTPConnectionHeadTest, StatusIsReadOncePerHead) {
    curl.clear();
    takeAll({"HTTP/1.1 200 OK\r\n", "X-A: b 301\r\n", "\r\n"});
    EXPECT_EQ(curl.count(CurlFunction::EasyGetinfo), 1u);
}

TEST_F(HTTPConnectionHeadTest, LastStoredFailureCounts) {
    take("X\n");
    take("HTTP/1.1 99999999999 OK\r\n");
    EXPECT_EQ(storedFailure(), internalError("Could not convert response code 99999999999"));
    // The line still counts as a line.
    EXPECT_THAT(connection.ReceivedHead.ResponseHeaderLines, ElementsAre("HTTP/1.1 99999999999 OK"));
    take("X\n");
    EXPECT_EQ(storedFailure(), kNoLineEnd);
}

// Nothing may unwind through libcurl, so this one waits for the return of the call that ran the callback.
TEST_F(HTTPConnectionHeadTest, UnreadableStatusIsRaisedAfterThePerform) {
    connection.Transfer.begin(connection.Handles->Generation);
    connection.ReceivedHead.ResponseCode = 7;
    connection.setTimeouts({5000.0, 1000.0});
    connection.applyTimeouts();
    connection.Limits.Deadline = 1;
    const std::string failure =
        easyFailure("CURLINFO_RESPONSE_CODE", CURLE_UNKNOWN_OPTION, "getting response code after first header");
    curl.failInfo(CURLINFO_RESPONSE_CODE, CURLE_UNKNOWN_OPTION);
    curl.OnPerform = [&](int& running) {
        refuse("HTTP/1.1 200 OK\r\n");
        EXPECT_EQ(failureText(connection.Transfer.EscapedFailure), failure);
        refuse("X-A: b\r\n"); // nothing runs after it
        EXPECT_THAT(connection.ReceivedHead.ResponseHeaderLines, IsEmpty());
        EXPECT_EQ(connection.ReceivedHead.ResponseCode, 7);
        EXPECT_EQ(connection.Limits.Deadline, 1); // not moved
        running = 1;
        return CURLM_INTERNAL_ERROR; // not looked at
    };
    EXPECT_EQ(failureText([&] { connection.perform(""); }), failure);
    EXPECT_EQ(connection.Transfer.EscapedFailure, nullptr);
    EXPECT_EQ(connection.Transfer.CallbackFailure, nullptr);
}

// The handle that is asked is the current scope's, whatever the connection has borrowed.
TEST_F(HTTPConnectionHeadTest, StatusIsThatOfTheScopesHandle) {
    curl.keepInfo(CURLINFO_RESPONSE_CODE);
    CurlSingleton withoutHandles;
    CurlSingleton* const borrowed = std::exchange(connection.Handles, &withoutHandles);
    take("HTTP/1.1 200 OK\r\n");
    connection.Handles = borrowed;
    EXPECT_EQ(failureText(connection.Transfer.EscapedFailure), "nothing");
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, 200);
}

TEST_F(HTTPConnectionHeadTest, SizeAndCountAreMultiplied) {
    std::string line = "HTTP/1.1 200 OK\r\n_";
    EXPECT_EQ(headerCallback(line.data(), 1, 17, &connection), 17u);
    line = "X-A: b\r\n_";
    EXPECT_EQ(headerCallback(line.data(), 4, 2, &connection), 8u);
    EXPECT_THAT(connection.ReceivedHead.ResponseHeaderLines, ElementsAre("HTTP/1.1 200 OK", "X-A: b"));
}

} // namespace
