// Each state of the response head with each kind of line: what is stored, whether the head counts as complete, and what
// is kept of a failure.
#include "tests/transfer/ConnectionFixture.h"

#include <cstring>
#include <ostream>
#include <tuple>

namespace {

constexpr std::int64_t kMs = 1'000'000;

using Lines = std::vector<std::string>;

// The lines that lead to a state, and what is then stored.
struct State {
    const char* Name;
    Lines Before;
    Lines Stored;
    bool Complete;
};

const Lines kInterim{"HTTP/1.1 100 Continue\r\n", "X-Early: 1\r\n", "\r\n"};
const Lines kHints{"HTTP/1.1 103 Early Hints\r\n", "X-Kept: 1\r\n", "\r\n"};
const Lines kKept{"HTTP/1.1 302 Found", "X-Kept: 1"};

Lines behindInterim(Lines lines) {
    lines.insert(lines.begin(), kInterim.begin(), kInterim.end());
    return lines;
}

const std::vector<State> kStates{
    {"NoHead", {}, {}, false},
    {"NoHeadBehindInterim", kInterim, {}, false},
    {"Hints", kHints, {"HTTP/1.1 103 Early Hints", "X-Kept: 1"}, false},
    {"Collecting", {"HTTP/1.1 302 Found\r\n", "X-Kept: 1\r\n"}, kKept, false},
    {"CollectingBehindInterim", behindInterim({"HTTP/1.1 302 Found\r\n", "X-Kept: 1\r\n"}), kKept, false},
    {"Complete", {"HTTP/1.1 302 Found\r\n", "X-Kept: 1\r\n", "\r\n"}, kKept, true},
    {"CompleteBehindInterim", behindInterim({"HTTP/1.1 302 Found\r\n", "X-Kept: 1\r\n", "\r\n"}), kKept, true},
    {"CompleteWithoutLines", {"\r\n"}, {}, true},
};

// A line, and what makes a blank one interim.
struct Event {
    const char* Name;
    std::string Line;
    std::int32_t StatusBefore = 0; // 0: as the state has left it
    const char* MethodSent = "GET";
};

const std::vector<Event> kEvents{
    {"StatusLine", "HtTP/1.1 404 Not Found\r\n"},
    {"FieldLine", "X-New: 503\r\n"},
    {"BlankLineBehindA100", "\r\n", 100},
    {"BlankLineOfATunnel", "\r\n", 200, "Connect"},
    {"BlankLineFinal", "\r\n", 302},
    {"BlankLineOfHints", "\r\n", 103},
    {"StatusLineWithoutEnd", "HTTP/1.1 404 Not Found"},
    {"FieldLineWithoutEnd", "X-New: 503"},
    {"FieldLineWithLineFeedOnly", "X-New: 503\n"},
    {"FieldLineWithReturnOnly", "X-New: 503\r"},
    {"LineFeedAlone", "\n"},
    {"ReturnAlone", "\r"},
    {"OneLetter", "X"},
    {"Nothing", ""},
};

// What happens, one row a state, one letter an event, both in the order above.
//   +  the line is stored behind the others
//   N  the line begins a head: its status counts, the stored lines go
//   e  the stored lines go, the head's completeness stays as it was
//   F  the head is complete, the stored lines stay
//   I  an interim head has ended, the stored lines stay until the next one
//   T  of a trailer section: traced and not stored
//   !  refused and not stored
//   X  refused and not stored, but taken for the beginning of a head all the same
const char* const kOutcomes[] = {
    "NNeeFIXXXXXXXX", // no head
    "NNeeFIXXXXXXXX", // no head, behind an interim one
    "NNeeFIXXXXXXXX", // an interim one whose lines stay
    "++eeFI!!!!!!!!", // collecting
    "++eeFI!!!!!!!!", // collecting, behind an interim head
    "NTFFFFXTTTTTTT", // complete
    "NTFFFFXTTTTTTT", // complete, behind an interim head
    "NTFFFFXTTTTTTT", // complete without lines
};

class HeadStateTest : public ConnectionFixture, public ::testing::WithParamInterface<std::tuple<int, int>> {
protected:
    HeadStateTest() { curl.giveInfo(CURLINFO_RESPONSE_CODE, 0L); } // so that status lines are parsed
    ~HeadStateTest() override { connection.Settings.Debug = 0; }

    static const State& state() { return kStates[static_cast<std::size_t>(std::get<0>(GetParam()))]; }
    static const Event& event() { return kEvents[static_cast<std::size_t>(std::get<1>(GetParam()))]; }
    static char outcome() { return kOutcomes[std::get<0>(GetParam())][std::get<1>(GetParam())]; }

    void take(std::string line) { EXPECT_EQ(headerCallback(line.data(), 1, line.size(), &connection), line.size()); }
    void enterState() {
        connection.setTimeouts({5000.0, 1000.0, 3000.0});
        connection.applyTimeouts();
        connection.SentHead.EffectiveMethod = "GET";
        curl.setClock(0);
        for (const std::string& line : state().Before) {
            take(line);
        }
        ASSERT_EQ(connection.ReceivedHead.ResponseHeaderLines, state().Stored);
        ASSERT_EQ(connection.ReceivedHead.HeadersComplete, state().Complete);
        ASSERT_EQ(connection.Transfer.CallbackFailure, nullptr);
    }
    void takeEvent() {
        if (event().StatusBefore != 0) {
            connection.ReceivedHead.ResponseCode = event().StatusBefore;
        }
        connection.SentHead.EffectiveMethod = event().MethodSent;
        take(event().Line);
    }
    static std::string withoutEnd(const std::string& line) { return line.substr(0, line.size() - 2); }

    static std::int32_t statusIn(const std::string& line) {
        const std::size_t blank = line.find(' ');
        return blank == std::string::npos ? 0 : std::atoi(line.c_str() + blank);
    }
    static std::string expectedTrace() {
        if (outcome() == 'F' || outcome() == 'I') {
            return "...DONE RECEIVING HEADERS...\n";
        }
        if (outcome() != 'e') { // a line, less its last byte
            return "IN  HDR: " + event().Line.substr(0, event().Line.empty() ? 0 : event().Line.size() - 1);
        }
        if (state().Stored.size() < 2) { // nothing, or a status line alone, is no surprise in an interim head
            return "";
        }
        return "UNEXPECTED HEADERS FOR RESPONSE " + std::to_string(event().StatusBefore) + " TO " + event().MethodSent +
               '\n' + state().Stored[0] + "\nX-Kept: 1\n\n";
    }

    HTTPConnection connection;
};

TEST_P(HeadStateTest, TakesTheLine) {
    enterState();
    const std::int32_t statusBefore =
        event().StatusBefore == 0 ? connection.ReceivedHead.ResponseCode : event().StatusBefore;
    const StandardOutputCapture output;
    connection.Settings.Debug = 1;
    curl.setClock(70 * kMs);
    takeEvent();

    const bool begins = outcome() == 'N' || outcome() == 'X';
    Lines stored = begins || outcome() == 'e' ? Lines{} : state().Stored;
    if (outcome() == '+' || outcome() == 'N') {
        stored.push_back(withoutEnd(event().Line));
    }
    EXPECT_EQ(connection.ReceivedHead.ResponseHeaderLines, stored);
    // In the middle of a head a number behind a blank is no status; a refused line that begins one still gives its own.
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, begins ? statusIn(event().Line) : statusBefore);
    const bool complete = outcome() == 'F' || (!begins && state().Complete);
    EXPECT_EQ(connection.ReceivedHead.HeadersComplete, complete);

    const bool refused = outcome() == '!' || outcome() == 'X';
    EXPECT_EQ(failureText(connection.Transfer.CallbackFailure),
              refused ? internalError("CRLF not found at the end of the received headers") : "nothing");
    EXPECT_EQ(connection.Transfer.EscapedFailure, nullptr);

    // Every line is activity, a refused one too.
    EXPECT_EQ(connection.Limits.Deadline, (complete ? 3070 : 1070) * kMs);
    EXPECT_EQ(connection.Limits.TimeoutReason, complete ? 1 : 0);
    EXPECT_EQ(output.text(), expectedTrace());
}

// Whatever came before, a whole head behind it is the one that counts, and the first failure is not lost.
TEST_P(HeadStateTest, HeadBehindItIsReadAsEver) {
    enterState();
    takeEvent();
    connection.SentHead.EffectiveMethod = "GET";
    if (!connection.ReceivedHead.HeadersComplete) {
        connection.ReceivedHead.ResponseCode = 302;
        take("\r\n"); // ends what is still being collected
    }
    EXPECT_TRUE(connection.ReceivedHead.HeadersComplete);
    for (const char* line : {"HTTP/1.1 204 No Content\r\n", "X-Last: 1\r\n", "\r\n"}) {
        take(line);
    }
    EXPECT_EQ(connection.ReceivedHead.ResponseHeaderLines, (Lines{"HTTP/1.1 204 No Content", "X-Last: 1"}));
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, 204);
    EXPECT_TRUE(connection.ReceivedHead.HeadersComplete);
    EXPECT_EQ(connection.Transfer.CallbackFailure != nullptr, outcome() == '!' || outcome() == 'X');
}

// The table has a letter for each event, and nothing else.
TEST(HeadStateTable, IsComplete) {
    ASSERT_EQ(std::size(kOutcomes), kStates.size());
    for (const char* row : kOutcomes) {
        EXPECT_EQ(std::strlen(row), kEvents.size());
        EXPECT_EQ(std::strspn(row, "+NeFIT!X"), kEvents.size());
    }
}

INSTANTIATE_TEST_SUITE_P(StatesAndLines, HeadStateTest,
                         ::testing::Combine(::testing::Range(0, static_cast<int>(kStates.size())),
                                            ::testing::Range(0, static_cast<int>(kEvents.size()))),
                         [](const auto& info) {
                             return std::string(kStates[static_cast<std::size_t>(std::get<0>(info.param))].Name) + '_' +
                                    kEvents[static_cast<std::size_t>(std::get<1>(info.param))].Name;
                         });

} // namespace
