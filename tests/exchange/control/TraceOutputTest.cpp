// What stands on standard output at each level of `Debug`. That there is nothing at level 0 every other test of whole
// exchanges sees.
#include "tests/exchange/ExchangeFixture.h"
#include "tests/support/process/StandardOutputCapture.h"

#include <regex>
#include <utility>

namespace {

using namespace testsupport;

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

// Content is shown at level 2, where it is text. From 1000 characters on only its length is.
TEST_F(TraceOutput, OfContent) {
    struct Row {
        std::int32_t Level;
        std::string Content;
        std::string Shown;
    };
    for (const auto& [level, content, shown] :
         {Row{1, "hello", "5 bytes"}, {2, "hello", "hello"}, {2, std::string(1000, 'x'), "1000 bytes"}}) {
        const std::string size = std::to_string(content.size());
        ScriptedServer& server =
            serve({step::expectHead(), step::expectBody(content.size()), step::send(response(content))});
        const Object connection = openTraced(server.url("/up"), level);
        prepareUpload(connection, makeScriptedProvider(host(), content));
        connection.call("setRequestProperty", {"Content-Length", size});
        EXPECT_EQ(receiveBytes(connection), content);
        const std::string text = written();
        expectInOrder(
            text, {"*****************SENDING REQUEST HEADERS+DATA AND RECEIVING RESPONSE HEADERS *****************\n",
                   "PERFORM IN WRITER", "SENDING " + size + " BYTES" + (level == 1 ? "\n" : ": " + content + '\n'),
                   "Starting perform loop\n", "ALL HEADERS RECEIVED\n"});
        expectInOrder(text, {"OUT DATA (T): " + shown + '\n'});
        expectInOrder(text, {"\nIN DATA (T): " + shown + '\n'});
        expectInOrder(text, {"RECEIVING " + size + " BYTES\n" + (level == 2 ? content + '\n' : "")});
        connection.set("Debug", 0);
        expectScopeUsable(connection);
    }
}

TEST_F(TraceOutput, ShowsCredentialsOnTheWireAndNoPasswordByName) {
    const Object connection = openTraced(serve(answers(response(""))).url("/"), 1);
    setLogin(connection, "someone", "secret word");
    receiveBytes(connection);
    const std::string text = written();
    expectInOrder(text, {"Host username = someone, Schemes = 1\n", "Authorization: Basic "});
    EXPECT_EQ(text.find("secret word"), std::string::npos);
}

} // namespace
