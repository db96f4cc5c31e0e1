// The states of a response's head on the wire: what comes before the head, and how its lines end. Each row whole and in
// single bytes; behind each the same object has to be good for another exchange.
#include "tests/support/host/HostFixture.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <tuple>
#include <vector>

namespace {

using namespace testsupport;
using vantik::Object;

using Texts = std::vector<std::string>;

// What the server says before the head that counts.
struct Before {
    const char* Name;
    const char* Sent;
};

void PrintTo(const Before& before, std::ostream* stream) { // for GoogleTest
    *stream << before.Name;
}

const Before kBefores[] = {
    {"NoHead", ""},
    {"Interim", "HTTP/1.1 100 Continue\r\n\r\n"},
    {"InterimWithField", "HTTP/1.1 100 Continue\r\nX-Early: 1\r\n\r\n"},
    {"TwoInterim", "HTTP/1.1 100 Continue\r\nX-Early: 1\r\n\r\nHTTP/1.1 100 Continue\r\n\r\n"},
    {"FinalHints", "HTTP/1.1 103 Early Hints\r\nLink: x\r\n\r\n"},
};

struct Head {
    const char* Name;
    const char* Sent;
    const char* Body;
    Texts StatusLine; // code and reason
    Texts Fields;
    bool Refused = false; // a line of it has no proper end
};

void PrintTo(const Head& head, std::ostream* stream) {
    *stream << head.Name;
}

// What follows a line that is refused is read all the same: where that line began the head, the one behind it does.
const Head kHeads[] = {
    {"Good",
     "HTTP/1.1 200 OK\r\nX-A: 1\r\nContent-Length: 4\r\n\r\nbody",
     "body",
     {"200", "OK"},
     {"X-A: 1", "Content-Length: 4"}},
    {"NoFields", "HTTP/1.1 204 No Content\r\n\r\n", "", {"204", "No Content"}, {}},
    {"SwitchingProtocols",
     "HTTP/1.1 101 Switching Protocols\r\nX-A: 1\r\n\r\n",
     "",
     {"101", "Switching Protocols"},
     {"X-A: 1"}},
    {"FieldWithLineFeedOnly",
     "HTTP/1.1 200 OK\r\nX-Bad: 1\nX-A: 1\r\nContent-Length: 4\r\n\r\nbody",
     "",
     {"200", "OK"},
     {"X-A: 1", "Content-Length: 4"},
     true},
    {"EmptyFieldWithLineFeedOnly",
     "HTTP/1.1 200 OK\r\nX-A:\nX-B: 1\r\nContent-Length: 0\r\n\r\n",
     "",
     {"200", "OK"},
     {"X-B: 1", "Content-Length: 0"},
     true},
    {"StatusLineWithLineFeedOnly",
     "HTTP/1.1 200 OK\nX-A: 1 two\r\nContent-Length: 4\r\n\r\nbody",
     "",
     {"200", "two"},
     {"Content-Length: 4"},
     true},
    {"BlankLineOfOneByte",
     "HTTP/1.1 200 OK\r\nX-A: 1\r\nContent-Length: 4\r\n\nbody",
     "",
     {"200", "OK"},
     {"X-A: 1", "Content-Length: 4"},
     true},
    {"LineFeedsOnly", "HTTP/1.1 200 OK\nX-A: 1\nContent-Length: 4\n\nbody", "", {"200", ""}, {}, true},
    {"TrailerOfOneLine",
     "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nbody\r\n0\r\nX-T: 1 two\r\n\r\n",
     "body",
     {"200", "OK"},
     {"Transfer-Encoding: chunked"}},
    {"TrailerOfTwoLines",
     "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nbody\r\n0\r\nX-T: 1\r\nX-U: 2\r\n\r\n",
     "body",
     {"200", "OK"},
     {"Transfer-Encoding: chunked"}},
};

class HeadState : public HostFixture, public ::testing::WithParamInterface<std::tuple<Before, Head, Pace>> {};

TEST_P(HeadState, GivesTheHeadThatCounts) {
    const auto& [before, head, pace] = GetParam();
    ScriptedServer& server =
        serve(std::vector<Script>{{step::expectHead(), step::send(before.Sent + std::string(head.Sent)), step::close()},
                                  {step::expectHead(), step::send(response("behind", {"X-Behind: 1"}))}},
              pace);
    const Object connection = open(server.url("/"));
    if (head.Refused) {
        EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })),
                  "VANTIK:webservices:InternalError(CRLF not found at the end of the received headers)");
    } else {
        EXPECT_EQ(receiveBytes(connection), head.Body);
    }
    const Texts statusLine = resultTexts(connection, "getStatusLine", 3);
    EXPECT_EQ(Texts(statusLine.begin() + 1, statusLine.end()), head.StatusLine);
    EXPECT_EQ(fieldTexts(connection.call("getResponseFields")), head.Fields);

    connection.call("openConnection");
    EXPECT_EQ(receiveBytes(connection), "behind");
    EXPECT_EQ(connection.call("getResponseField", {"X-Behind"}).text(), "1");
    expectScopeUsable(connection);
}

INSTANTIATE_TEST_SUITE_P(Wire, HeadState,
                         ::testing::Combine(::testing::ValuesIn(kBefores), ::testing::ValuesIn(kHeads),
                                            ::testing::Values(Pace::Whole, Pace::SingleBytes)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).Name) + '_' + std::get<1>(info.param).Name +
                                    (std::get<2>(info.param) == Pace::Whole ? "_Whole" : "_SingleBytes");
                         });

} // namespace
