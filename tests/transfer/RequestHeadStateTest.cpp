// The parser of request heads as a table: either state and every kind of block, what is kept, what is refused, and
// what the next head finds.
#include "tests/transfer/ConnectionFixture.h"

#include <ostream>

namespace {

constexpr std::int64_t kMs = 1'000'000;

// What the parser has taken from heads so far.
struct Taken {
    std::string Method = "M";
    std::string Uri = "U";
    std::string Version = "V";
    std::vector<std::string> Lines = {"L"};
};

struct StateRow {
    const char* Name;
    bool InHead; // before
    std::string Block;
    bool InHeadAfter;
    bool Sent;
    Taken After = {};
    std::string Refusal = {}; // text of the InternalError; empty: taken
};

void PrintTo(const StateRow& row, std::ostream* stream) {
    *stream << row.Name;
}

const std::string kNoLine = "CRLF not found in headers:\n";
const std::string kNoRequestLine = "Empty CRLF encountered when request line expected";
const std::string kNoBlank = "No space found in request line";
const std::string kOneBlank = "Second space not found in request line";
const std::string kNulInLine("GET /\0 HTTP/1.1\r\n", 17);

std::vector<StateRow> rows() {
    return {
        // A request line is awaited.
        {"RequestLine", false, "GET /x HTTP/1.1\r\n", true, false, {"GET", "/x", "HTTP/1.1", {}}},
        {"RequestLineInBlanks", false, " \tGET /x HTTP/1.1 \r\n", true, false, {"GET", "/x", "HTTP/1.1", {}}},
        {"RequestLineOfEmptyParts", false, "a  b\r\n", true, false, {"a", "", "b", {}}},
        {"RequestLineOfFourWords", false, "a b c d\r\n", true, false, {"a", "b", "c d", {}}},
        {"FieldOfTwoBlanksAsRequestLine", false, "X: y z\r\n", true, false, {"X:", "y", "z", {}}},
        {"FieldAsRequestLine", false, "Host: h\r\n", true, false, {"Host:", "U", "V", {"L"}}, kOneBlank},
        {"OneBlank", false, "GET /x\r\n", true, false, {"GET", "U", "V", {"L"}}, kOneBlank},
        {"TabIsNoBlank", false, "GET\t/x HTTP/1.1\r\n", true, false, {"GET\t/x", "U", "V", {"L"}}, kOneBlank},
        {"BlankAtTheEndIsCut", false, "GET \r\n", true, false, {}, kNoBlank},
        {"NoBlank", false, "GET\r\n", true, false, {}, kNoBlank},
        {"FieldWithoutBlanksAsRequestLine", false, "X:y\r\n", true, false, {}, kNoBlank},
        {"EmptyLine", false, "\r\n", false, false, {}, kNoRequestLine},
        {"LineOfBlanks", false, " \t \r\n", false, false, {}, kNoRequestLine},
        {"NoLineEnd", false, "GET /x HTTP/1.1", false, false, {}, kNoLine + "GET /x HTTP/1.1"},
        {"LineFeedAlone", false, "GET /x HTTP/1.1\n", false, false, {}, kNoLine + "GET /x HTTP/1.1\n"},
        {"CarriageReturnAlone", false, "GET /x HTTP/1.1\r", false, false, {}, kNoLine + "GET /x HTTP/1.1\r"},
        {"NulInRequestLine", false, kNulInLine, false, false, {}, kNoLine + kNulInLine},
        {"NothingAwaited", false, "", false, false},
        // Field lines are awaited.
        {"Field", true, "Host: h\r\n", true, false, {"M", "U", "V", {"L", "Host: h"}}},
        {"FieldInBlanks", true, " Host: h\t \r\n", true, false, {"M", "U", "V", {"L", "Host: h"}}},
        {"RequestLineAsField", true, "GET /x HTTP/1.1\r\n", true, false, {"M", "U", "V", {"L", "GET /x HTTP/1.1"}}},
        {"OneBlankAsField", true, "GET /x\r\n", true, false, {"M", "U", "V", {"L", "GET /x"}}},
        {"NoBlankAsField", true, "GET\r\n", true, false, {"M", "U", "V", {"L", "GET"}}},
        {"LineFeedInAField", true, "a\nb\r\n", true, false, {"M", "U", "V", {"L", "a\nb"}}},
        {"EndOfTheHead", true, "\r\n", false, true},
        {"LineOfBlanksEndsTheHead", true, " \t \r\n", false, true},
        {"FieldWithoutLineEnd", true, "Host: h", true, false, {}, kNoLine + "Host: h"},
        {"FieldWithLineFeedAlone", true, "Host: h\n", true, false, {}, kNoLine + "Host: h\n"},
        {"NulInField", true, std::string("a\0b\r\n", 5), true, false, {}, kNoLine + std::string("a\0b\r\n", 5)},
        {"NothingInHead", true, "", true, false},
        // Several lines in one block.
        {"WholeHead", false, "PUT / H\r\nA: b\r\n\r\n", false, true, {"PUT", "/", "H", {"A: b"}}},
        {"EndAndNextRequestLine", true, "\r\nPUT / H\r\n", true, true, {"PUT", "/", "H", {}}},
        {"EndAndEmptyLine", true, "A: b\r\n\r\n\r\n", false, true, {"M", "U", "V", {"L", "A: b"}}, kNoRequestLine},
        {"EndAndHalfALine", true, "\r\nPUT", false, true, {}, kNoLine + "PUT"},
        {"RequestLineAndHalfAField", false, "PUT / H\r\nA: b", true, false, {"PUT", "/", "H", {}}, kNoLine + "A: b"},
    };
}

class RequestHeadState : public ConnectionFixture, public ::testing::WithParamInterface<StateRow> {
protected:
    RequestHeadState() {
        connection.setTimeouts({5000.0, 1000.0});
        connection.applyTimeouts();
        connection.Limits.Deadline = 1;
        curl.setClock(5 * kMs);
        connection.SentHead.EffectiveMethod = "M";
        connection.SentHead.RequestURI = "U";
        connection.SentHead.RequestHTTPVersion = "V";
        connection.SentHead.RequestHeaderLines = {"L"};
    }

    std::string pass(std::string block) {
        EXPECT_EQ(debugCallback(nullptr, CURLINFO_HEADER_OUT, block.data(), block.size(), &connection), 0);
        return failureText([&] { connection.rethrowEscapedFailure(); });
    }
    void expectTaken(const Taken& taken) const {
        EXPECT_EQ(connection.SentHead.EffectiveMethod, taken.Method);
        EXPECT_EQ(connection.SentHead.RequestURI, taken.Uri);
        EXPECT_EQ(connection.SentHead.RequestHTTPVersion, taken.Version);
        EXPECT_EQ(connection.SentHead.RequestHeaderLines, taken.Lines);
    }

    HTTPConnection connection;
};

TEST_P(RequestHeadState, TakesOrRefusesABlock) {
    const StateRow& row = GetParam();
    connection.SentHead.InRequestHead = row.InHead;
    const bool taken = row.Refusal.empty();
    EXPECT_EQ(pass(row.Block), taken ? "nothing" : internalError(row.Refusal));
    EXPECT_EQ(connection.SentHead.InRequestHead, row.InHeadAfter);
    EXPECT_EQ(connection.SentHead.Sent, row.Sent);
    expectTaken(row.After);
    EXPECT_EQ(connection.Limits.Deadline, taken ? 1005 * kMs : 1); // what is refused is no activity
    EXPECT_EQ(connection.Transfer.CallbackFailure, nullptr);
    EXPECT_FALSE(connection.Transfer.TransferFailed);
}

TEST_P(RequestHeadState, SentStaysTrueWhateverFollows) {
    connection.SentHead.InRequestHead = GetParam().InHead;
    connection.SentHead.Sent = true;
    pass(GetParam().Block);
    EXPECT_TRUE(connection.SentHead.Sent);
}

// A parser that stopped among field lines takes the next head as such, up to its end; the head behind that is whole.
TEST_P(RequestHeadState, HeadBehindItIsReadFromTheStateThatWasLeft) {
    connection.SentHead.InRequestHead = GetParam().InHead;
    pass(GetParam().Block);
    Taken expected = GetParam().After;
    if (connection.SentHead.InRequestHead) {
        expected.Lines.insert(expected.Lines.end(), {"GET /next HTTP/1.1", "Host: n"});
    } else {
        expected = {"GET", "/next", "HTTP/1.1", {"Host: n"}};
    }
    EXPECT_EQ(pass("GET /next HTTP/1.1\r\nHost: n\r\n\r\n"), "nothing");
    expectTaken(expected);
    EXPECT_TRUE(connection.SentHead.Sent);
    EXPECT_EQ(pass("PUT /last HTTP/1.0\r\nHost: l\r\n\r\n"), "nothing");
    expectTaken({"PUT", "/last", "HTTP/1.0", {"Host: l"}});
    EXPECT_FALSE(connection.SentHead.InRequestHead);
}

INSTANTIATE_TEST_SUITE_P(Blocks, RequestHeadState, ::testing::ValuesIn(rows()),
                         [](const auto& info) { return info.param.Name; });

} // namespace
