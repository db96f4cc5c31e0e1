// What stands on standard output at each level of `Debug`. That there is nothing at level 0 every other test of whole
// exchanges sees.
#include "tests/exchange/ExchangeFixture.h"
#include "tests/support/process/StandardOutputCapture.h"

#include <gtest/gtest.h>

#include <regex>
#include <utility>

namespace {

using namespace testsupport;
using vantik::Object;

// Without what differs from run to run: libcurl's own remarks, the time of day in seconds with three decimals, how
// often a stage was repeated.
std::string steady(const std::string& text) {
    const std::string written = std::regex_replace(text, std::regex("IN INFO \\(.*\n"), "");
    const std::string timed =
        std::regex_replace(written, std::regex("(OUT HDR|OUT DATA|IN DATA) \\([0-9]{3}\\.[0-9]{3}\\)"), "$1 (T)");
    return std::regex_replace(timed, std::regex("PERFORM IN (READER|WRITER) [0-9]+ times\n"),
                              "PERFORM IN $1 N times\n");
}

// The fragments stand in the text in this order.
void expectInOrder(const std::string& text, const Texts& fragments) {
    std::size_t position = 0;
    for (const std::string& fragment : fragments) {
        const std::size_t found = text.find(fragment, position);
        ASSERT_NE(found, std::string::npos) << "not found, or not after what comes before it: " << fragment << "\nin:\n"
                                            << text;
        position = found + fragment.size();
    }
}

class TraceOutput : public ExchangeFixture {
protected:
    // Not held by the fixture: its last lines come when it goes.
    Object openTraced(const std::string& url, std::int32_t level) {
        Object connection = makeFor(url);
        connection.set("Debug", level);
        connection.call("openConnection");
        return connection;
    }
    // What was written since the last call.
    std::string written() {
        const std::string all = Output.text();
        return steady(all.substr(std::exchange(Seen, all.size())));
    }

private:
    StandardOutputCapture Output;
    std::size_t Seen = 0;
};

TEST_F(TraceOutput, OfAGet) {
    ScriptedServer& server = serve(answers(response("hello", {"X-A: 1"})));
    {
        const Object connection = openTraced(server.url("/p"), 1);
        connection.call("setRequestProperty", {"X-Sent", "1"});
        EXPECT_EQ(receiveBytes(connection), "hello");
        connection.call("closeConnection");
    }
    const std::string text = written();
    // A head's lines are marked at their ends, apart from the empty line that ends it; lines of the answer run on.
    expectInOrder(
        text, {"********************** OPEN CONNECTION **********************\n", "Host username = , Schemes = 0\n",
               "Proxy username = , Schemes = 0\n",
               "*****************SENDING REQUEST HEADERS AND RECEIVING RESPONSE HEADERS *****************\n",
               "Starting perform loop\n",
               "OUT HDR (T): GET /p HTTP/1.1<CRLF>\nHost: " + server.authority() + "<CRLF>\nX-Sent: 1<CRLF>\n\r\n",
               "IN  HDR: HTTP/1.1 200 OK\rIN  HDR: X-A: 1\rIN  HDR: Content-Length: 5\r...DONE RECEIVING HEADERS...\n",
               "RECEIVING 5 BYTES\n", "ALL HEADERS RECEIVED\n", "DONE WITH SEND_REQUEST(). RETURNING BACK TO VANTIK\n",
               "\n********************END OF RECEIVE_RESPONSE******************\n", "COPY CONTENT TO STREAM\n",
               "PERFORM IN READER N times\n", "CLOSING\n", "******************** DONE WITH TRANSFER ***************\n",
               "DESTROYING HTTPCONNECTION\n"});
    EXPECT_EQ(text.find("hello"), std::string::npos) << "content is not shown at this level";
}

TEST_F(TraceOutput, OfAnUpload) {
    for (const std::int32_t level : {1, 2}) {
        ScriptedServer& server = serve({step::expectHead(), step::expectBody(5), step::send(response(""))});
        const Object connection = openTraced(server.url("/up"), level);
        prepareUpload(connection, makeScriptedProvider(host(), "bytes"));
        connection.call("setRequestProperty", {"Content-Length", "5"});
        receiveBytes(connection);
        const std::string text = written();
        expectInOrder(
            text, {"*****************SENDING REQUEST HEADERS+DATA AND RECEIVING RESPONSE HEADERS *****************\n",
                   "PERFORM IN WRITER", level == 1 ? "SENDING 5 BYTES\n" : "SENDING 5 BYTES: bytes\n",
                   "Starting perform loop\n", "ALL HEADERS RECEIVED\n"});
        expectInOrder(text, {level == 1 ? "OUT DATA (T): 5 bytes\n" : "OUT DATA (T): bytes\n"});
        connection.set("Debug", std::int32_t{0});
        expectScopeUsable(connection);
    }
}

// Content is shown at level 2, where it is text. From 1000 characters on only its length is, which is that after the
// marking of line ends.
TEST_F(TraceOutput, OfContent) {
    struct Row {
        std::int32_t Level;
        std::string Body;
        std::string Shown;
    };
    for (const Row& row : {Row{2, "hello", "hello"},
                           {1, "hello", "5 bytes"},
                           {2, std::string(999, 'x'), std::string(999, 'x')},
                           {2, std::string(1000, 'x'), "1000 bytes"},
                           {1, "a\r\nb", "9 bytes"},
                           {2, "a\r\nb", "a<CRLF>\nb"},
                           {2, "a\x01", "2 bytes"},
                           {2, std::string("a\0b", 3), "3 bytes"}}) {
        const Object connection = openTraced(serve(answers(response(row.Body))).url("/"), row.Level);
        EXPECT_EQ(receiveBytes(connection), row.Body);
        const std::string text = written();
        expectInOrder(text, {"\nIN DATA (T): " + row.Shown + "\n"});
        expectInOrder(text, {"RECEIVING " + std::to_string(row.Body.size()) + " BYTES\n" +
                             (row.Level == 2 ? row.Body + "\n" : "")});
        connection.set("Debug", std::int32_t{0});
        expectScopeUsable(connection);
    }
}

TEST_F(TraceOutput, OfAnInterimHeadReportsFieldsThatAreNotExpected) {
    const Object connection =
        openTraced(serve(answers("HTTP/1.1 100 Continue\r\nX-Extra: 1\r\n\r\n" + response("x"))).url("/"), 1);
    receiveBytes(connection);
    expectInOrder(written(), {"UNEXPECTED HEADERS FOR RESPONSE 100 TO GET\nHTTP/1.1 100 Continue\nX-Extra: 1\n\n"});
}

TEST_F(TraceOutput, ShowsCredentialsOnTheWireAndNoPasswordByName) {
    const Object connection = openTraced(serve(answers(response(""))).url("/"), 1);
    setLogin(connection, "someone", "secret word");
    receiveBytes(connection);
    const std::string text = written();
    expectInOrder(text, {"Host username = someone, Schemes = 1\n", "Authorization: Basic "});
    EXPECT_EQ(text.find("secret word"), std::string::npos);
}

// A stage that is repeated is written once, and its count closes the line before anything else is written.
TEST_F(TraceOutput, CountsRepeatedStages) {
    ScriptedServer& server = serve(answers("HTTP/1.1 200 OK\r\nContent-Length: 8\r\n\r\npart") +
                                   Script{step::await("more"), step::send(" end")});
    const ScriptedReporter reporter = makeScriptedReporter(host());
    reporter->OnUpdate = [&](int, std::uint64_t) {
        server.raise("more");
        return vantik::Array(true);
    };
    const Object connection = openTraced(server.url("/"), 1);
    connection.set("ProgressReporter", reporter);
    EXPECT_EQ(receiveBytes(connection), "part end");
    const std::string text = written();
    expectInOrder(text, {"PERFORM IN READER N times\n"});
    EXPECT_EQ(std::regex_replace(text, std::regex("PERFORM IN READER N times\n"), "").find("PERFORM IN READER"),
              std::string::npos)
        << text;
}

} // namespace
