#include "http/RequestHead.h"

#include "http/HttpSyntax.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace netrove;

namespace {

using Lines = std::vector<std::string>;

// What has been taken from heads so far: method, target, version, fields.
Lines takenFrom(const RequestHead& head) {
    Lines taken{head.EffectiveMethod, head.RequestURI, head.RequestHTTPVersion};
    taken.insert(taken.end(), head.RequestHeaderLines.begin(), head.RequestHeaderLines.end());
    return taken;
}

// Passed in a memory block of exactly its size, so that a sanitizer sees every read beyond it.
std::string refusalOf(RequestHead& head, const std::string& block) {
    std::vector<char> bytes(block.begin(), block.end());
    bytes.shrink_to_fit();
    try {
        head.take(bytes.data(), bytes.size());
    } catch (const MalformedHead& failure) {
        return failure.Text;
    }
    return "";
}

const Lines kBefore{"M", "U", "V", "L"};

struct Row {
    const char* Name;
    bool InHead; // before
    std::string Block;
    bool InHeadAfter;
    bool Sent;
    Lines After = kBefore;
    std::string Refusal = {}; // empty: taken
};

const std::string kNoLine = "CRLF not found in headers:\n";
const std::string kNoRequestLine = "Empty CRLF encountered when request line expected";
const std::string kNoBlank = "No space found in request line";
const std::string kOneBlank = "Second space not found in request line";
const std::string kNulInLine("GET /\0 HTTP/1.1\r\n", 17);
const std::string kNulInField("a\0b\r\n", 5);

const Row kRows[] = {
    // A request line is awaited.
    {"RequestLine", false, "GET /x HTTP/1.1\r\n", true, false, {"GET", "/x", "HTTP/1.1"}},
    {"RequestLineInBlanks", false, " \tGET /x HTTP/1.1 \r\n", true, false, {"GET", "/x", "HTTP/1.1"}},
    {"RequestLineOfEmptyParts", false, "a  b\r\n", true, false, {"a", "", "b"}},
    {"RequestLineOfFourWords", false, "a b c d\r\n", true, false, {"a", "b", "c d"}},
    {"FieldOfTwoBlanksAsRequestLine", false, "X: y z\r\n", true, false, {"X:", "y", "z"}},
    {"FieldAsRequestLine", false, "Host: h\r\n", true, false, {"Host:", "U", "V", "L"}, kOneBlank},
    {"OneBlank", false, "GET /x\r\n", true, false, {"GET", "U", "V", "L"}, kOneBlank},
    {"TabIsNotABlank", false, "GET\t/x HTTP/1.1\r\n", true, false, {"GET\t/x", "U", "V", "L"}, kOneBlank},
    {"BlankAtTheEndIsCut", false, "GET \r\n", true, false, kBefore, kNoBlank},
    {"NoBlank", false, "GET\r\n\r\n", true, false, kBefore, kNoBlank},
    {"EmptyLine", false, "\r\n", false, false, kBefore, kNoRequestLine},
    {"LineOfBlanks", false, " \t \r\nGET / H\r\n\r\n", false, false, kBefore, kNoRequestLine},
    {"NoLineEnd", false, "GET /x HTTP/1.1", false, false, kBefore, kNoLine + "GET /x HTTP/1.1"},
    {"LineFeedAlone", false, "GET /x HTTP/1.1\n", false, false, kBefore, kNoLine + "GET /x HTTP/1.1\n"},
    {"CarriageReturnAlone", false, "GET /x HTTP/1.1\r", false, false, kBefore, kNoLine + "GET /x HTTP/1.1\r"},
    {"LineEndTheWrongWayRound", false, "X: y\n\r", false, false, kBefore, kNoLine + "X: y\n\r"},
    {"NulInRequestLine", false, kNulInLine, false, false, kBefore, kNoLine + kNulInLine},
    {"NothingAwaited", false, "", false, false},
    // Field lines are awaited.
    {"Field", true, "Host: h\r\n", true, false, {"M", "U", "V", "L", "Host: h"}},
    {"FieldInBlanks", true, " Host:  h\t \r\n", true, false, {"M", "U", "V", "L", "Host:  h"}},
    {"RequestLineAsField", true, "GET /x HTTP/1.1\r\n", true, false, {"M", "U", "V", "L", "GET /x HTTP/1.1"}},
    {"NoBlankAsField", true, "GET\r\n", true, false, {"M", "U", "V", "L", "GET"}},
    {"LineFeedInAField", true, "a\nb\r\n", true, false, {"M", "U", "V", "L", "a\nb"}},
    {"EndOfTheHead", true, "\r\n", false, true},
    {"LineOfBlanksEndsTheHead", true, " \t \r\n", false, true},
    {"FieldWithoutLineEnd", true, "Host: h", true, false, kBefore, kNoLine + "Host: h"},
    {"FieldWithLineFeedAlone", true, "Host: h\n", true, false, kBefore, kNoLine + "Host: h\n"},
    {"NulInField", true, kNulInField, true, false, kBefore, kNoLine + kNulInField},
    {"NothingInHead", true, "", true, false},
    // Several lines in one block.
    {"WholeHead", false, "PUT / H\r\nA: b\r\n\r\n", false, true, {"PUT", "/", "H", "A: b"}},
    {"TwoHeads", false, "PUT / H\r\nA: b\r\n\r\nHEAD /y I\r\n\r\n", false, true, {"HEAD", "/y", "I"}},
    {"EndAndNextRequestLine", true, "\r\nPUT / H\r\n", true, true, {"PUT", "/", "H"}},
    {"EndAndEmptyLine", true, "A: b\r\n\r\n\r\n", false, true, {"M", "U", "V", "L", "A: b"}, kNoRequestLine},
    {"EndAndHalfALine", true, "\r\nPUT", false, true, kBefore, kNoLine + "PUT"},
    {"RequestLineAndHalfAField", false, "PUT / H\r\nA: b", true, false, {"PUT", "/", "H"}, kNoLine + "A: b"},
};

class RequestHeadTest : public ::testing::TestWithParam<Row> {};

TEST_P(RequestHeadTest, TakesOrRefusesABlockAndReadsTheNextHead) {
    const Row& row = GetParam();
    for (const bool sentBefore : {false, true}) {
        RequestHead head{"M", "U", "V", {"L"}, row.InHead, sentBefore};
        EXPECT_EQ(refusalOf(head, row.Block), row.Refusal);
        EXPECT_EQ(head.InRequestHead, row.InHeadAfter);
        EXPECT_EQ(head.Sent, row.Sent || sentBefore);
        EXPECT_EQ(takenFrom(head), row.After);

        // Left among field lines, it takes the next head for such, up to its end; the head after that is whole.
        Lines next{"GET", "/next", "HTTP/1.1", "Host: n"};
        if (row.InHeadAfter) {
            next = row.After;
            next.insert(next.end(), {"GET /next HTTP/1.1", "Host: n"});
        }
        EXPECT_EQ(refusalOf(head, "GET /next HTTP/1.1\r\nHost: n\r\n\r\n"), "");
        EXPECT_EQ(takenFrom(head), next);
        EXPECT_TRUE(head.Sent);
        EXPECT_EQ(refusalOf(head, "PUT /last HTTP/1.0\r\nHost: l\r\n\r\n"), "");
        EXPECT_EQ(takenFrom(head), (Lines{"PUT", "/last", "HTTP/1.0", "Host: l"}));
        EXPECT_FALSE(head.InRequestHead);
    }
}

INSTANTIATE_TEST_SUITE_P(Blocks, RequestHeadTest, ::testing::ValuesIn(kRows),
                         [](const auto& info) { return info.param.Name; });

TEST(RequestHead, Md5LosesItsQuotesInLibcurlsBufferToo) {
    struct Md5Row {
        std::string Line;
        std::string Stored;
    };
    for (const auto& [line, stored] : {
             Md5Row{"Authorization: Digest algorithm=\"MD5\", uri=\"/\"",
                    "Authorization: Digest algorithm=MD5  , uri=\"/\""},
             Md5Row{"AUTHORIZATION: DIGEST ALGORITHM=\"MD5\"", "AUTHORIZATION: DIGEST ALGORITHM=MD5  "},
             Md5Row{"authorization:\"MD5\"\"MD5\"", "authorization:MD5  \"MD5\""}, // the first one only
             Md5Row{"Authorization: Digest algorithm=\"md5\"", "Authorization: Digest algorithm=\"md5\""},
             Md5Row{"Authorization: Digest algorithm=\"MD5-sess\"", "Authorization: Digest algorithm=\"MD5-sess\""},
             Md5Row{"Proxy-Authorization: algorithm=\"MD5\"", "Proxy-Authorization: algorithm=\"MD5\""},
             Md5Row{"Authorization : \"MD5\"", "Authorization : \"MD5\""},
             Md5Row{"X:y", "X:y"}, // shorter than the name
         }) {
        const std::string before = "GET / HTTP/1.1\r\nHost: h\r\n";
        const std::string after = "\r\nX-A: \"MD5\"\r\n\r\n";
        std::string block = before + line + after;
        RequestHead head;
        head.take(block.data(), block.size());
        EXPECT_EQ(block, before + stored + after);
        EXPECT_EQ(head.RequestHeaderLines, (Lines{"Host: h", stored, "X-A: \"MD5\""}));
    }
}

} // namespace
