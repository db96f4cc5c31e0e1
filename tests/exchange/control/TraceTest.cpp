// What stands on standard output at each level of `Debug`.
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/process/StandardOutputCapture.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

class Trace : public HostFixture {
protected:
    Object makeTraced(const std::string& url, std::int32_t level) {
        Object connection = makeAdapter();
        connection.set("Debug", level);
        connection.set("URL", url);
        connection.call("openConnection");
        return connection;
    }
};

// Replaces what stands between two marks, both included; the shortest such pieces, from left to right.
std::string replaceBetween(const std::string& text, const std::string& from, const std::string& to,
                           const std::string& replacement) {
    std::string result;
    std::size_t position = 0;
    for (std::size_t begin = text.find(from); begin != std::string::npos; begin = text.find(from, position)) {
        const std::size_t end = text.find(to, begin + from.size());
        if (end == std::string::npos) {
            break;
        }
        result += text.substr(position, begin - position) + replacement;
        position = end + to.size();
    }
    return result + text.substr(position);
}

// Without what differs from run to run: libcurl's own remarks, the time of day, how often a stage was repeated.
std::string steady(const std::string& text) {
    std::string result = replaceBetween(text, "IN INFO (", "\n", "");
    for (const char* label : {"OUT HDR", "OUT DATA", "IN DATA"}) {
        result = replaceBetween(result, std::string(label) + " (", ")", std::string(label) + " (T)");
    }
    for (const char* stage : {"READER", "WRITER"}) {
        result = replaceBetween(result, std::string("PERFORM IN ") + stage + " ", " times\n",
                                std::string("PERFORM IN ") + stage + " N times\n");
    }
    return result;
}

// Whether the label has a time of day in seconds with three decimals behind it.
bool hasTime(const std::string& text, const std::string& label) {
    const std::size_t begin = text.find(label + " (");
    if (begin == std::string::npos) {
        return false;
    }
    const std::string time = text.substr(begin + label.size() + 2, 8);
    const std::string form = "999.999)";
    return std::equal(time.begin(), time.end(), form.begin(), form.end(), [](unsigned char found, char expected) {
        return expected == '9' ? std::isdigit(found) != 0 : found == static_cast<unsigned char>(expected);
    });
}

// The fragments stand in the text in this order.
void expectInOrder(const std::string& text, const std::vector<std::string>& fragments) {
    std::size_t position = 0;
    for (const std::string& fragment : fragments) {
        const std::size_t found = text.find(fragment, position);
        ASSERT_NE(found, std::string::npos)
            << "not found, or not behind what comes before it: " << fragment << "\nin:\n"
            << text;
        position = found + fragment.size();
    }
}

TEST_F(Trace, OfAGetAtLevelOne) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("hello", {"X-A: 1"}))});
    std::string text;
    {
        const StandardOutputCapture output;
        const Object connection = makeTraced(server.url("/p"), 1);
        connection.call("setRequestProperty", {"X-Sent", "1"});
        EXPECT_EQ(receiveBytes(connection), "hello");
        connection.call("closeConnection");
        EXPECT_TRUE(hasTime(output.text(), "OUT HDR"));
        EXPECT_TRUE(hasTime(output.text(), "IN DATA"));
        text = steady(output.text());
    }
    // A head's lines are marked at their ends, apart from the empty line that ends it; lines of the answer run on.
    expectInOrder(
        text,
        {"********************** OPEN CONNECTION **********************\n", "Host username = , Schemes = 0\n",
         "Proxy username = , Schemes = 0\n",
         "*****************SENDING REQUEST HEADERS AND RECEIVING RESPONSE HEADERS *****************\n",
         "Starting perform loop\n",
         "OUT HDR (T): GET /p HTTP/1.1<CRLF>\nHost: " + server.authority() + "<CRLF>\nX-Sent: 1<CRLF>\n\r\n",
         "IN  HDR: HTTP/1.1 200 OK\rIN  HDR: X-A: 1\rIN  HDR: Content-Length: 5\r...DONE RECEIVING HEADERS...\n",
         "RECEIVING 5 BYTES\n", "ALL HEADERS RECEIVED\n", "DONE WITH SEND_REQUEST(). RETURNING BACK TO VANTIK\n",
         "\n********************END OF RECEIVE_RESPONSE******************\n", "COPY CONTENT TO STREAM\n",
         "PERFORM IN READER N times\n", "CLOSING\n", "******************** DONE WITH TRANSFER ***************\n"});
    EXPECT_NE(text.find("IN DATA (T): 5 bytes\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("hello"), std::string::npos) << "content is not shown at this level";
    expectScopeUsable();
}

TEST_F(Trace, OfAGetAtLevelTwoShowsContent) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("hello"))});
    const StandardOutputCapture output;
    {
        const Object connection = makeTraced(server.url("/p"), 2);
        EXPECT_EQ(receiveBytes(connection), "hello");
    }
    const std::string text = steady(output.text());
    expectInOrder(text, {"RECEIVING 5 BYTES\nhello\n"});
    expectInOrder(text, {"IN DATA (T): hello\n"});
    expectInOrder(text, {"DESTROYING HTTPCONNECTION\n"});
    expectScopeUsable();
}

TEST_F(Trace, OfAnUpload) {
    for (const std::int32_t level : {1, 2}) {
        ScriptedServer& server = serve({step::expectHead(), step::expectBody(5), step::send(response(""))});
        std::string text;
        {
            const StandardOutputCapture output;
            const Object connection = makeTraced(server.url("/up"), level);
            connection.set("RequestMethod", "PUT");
            connection.set("Provider", makeScriptedProvider(host(), "bytes"));
            connection.call("setRequestProperty", {"Content-Length", "5"});
            connection.call("removeField", {"Expect"});
            receiveBytes(connection);
            text = steady(output.text());
        }
        expectInOrder(
            text, {"*****************SENDING REQUEST HEADERS+DATA AND RECEIVING RESPONSE HEADERS *****************\n",
                   "PERFORM IN WRITER", level == 1 ? "SENDING 5 BYTES\n" : "SENDING 5 BYTES: bytes\n",
                   "Starting perform loop\n", "ALL HEADERS RECEIVED\n"});
        expectInOrder(text, {level == 1 ? "OUT DATA (T): 5 bytes\n" : "OUT DATA (T): bytes\n"});
        expectScopeUsable();
    }
}

TEST_F(Trace, ContentThatIsNotTextIsCounted) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response(std::string("a\0b", 3)))});
    const StandardOutputCapture output;
    const Object connection = makeTraced(server.url("/"), 2);
    receiveBytes(connection);
    expectInOrder(steady(output.text()), {"IN DATA (T): 3 bytes\n"});
    connection.call("closeConnection");
}

TEST_F(Trace, UnexpectedFieldsOfAnInterimHeadAreReported) {
    ScriptedServer& server =
        serve({step::expectHead(), step::send("HTTP/1.1 100 Continue\r\nX-Extra: 1\r\n\r\n" + response("x"))});
    const StandardOutputCapture output;
    const Object connection = makeTraced(server.url("/"), 1);
    receiveBytes(connection);
    expectInOrder(output.text(), {"UNEXPECTED HEADERS FOR RESPONSE 100 TO GET\nHTTP/1.1 100 Continue\nX-Extra: 1\n\n"});
    connection.call("closeConnection");
}

TEST_F(Trace, ShowsCredentialsOnTheWireAndNoPasswordByName) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response(""))});
    const StandardOutputCapture output;
    const Object connection = makeTraced(server.url("/"), 1);
    connection.set("Username", "someone");
    connection.set("Password", "secret word");
    connection.call(
        "setAuthenticationSchemes",
        {Array::enumeration("vantik.net.http.AuthenticationScheme", std::vector<std::string>{"Basic"}), false});
    receiveBytes(connection);
    const std::string text = output.text();
    expectInOrder(text, {"Host username = someone, Schemes = 1\n", "Authorization: Basic "});
    EXPECT_EQ(text.find("secret word"), std::string::npos);
    connection.call("closeConnection");
}

TEST_F(Trace, IsSilentAtLevelNought) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("hello"))});
    const StandardOutputCapture output;
    {
        const Object connection = makeTraced(server.url("/"), 0);
        receiveBytes(connection);
    }
    expectScopeUsable();
    EXPECT_EQ(output.text(), "");
}

// A stage that is repeated is written once, and its count closes the line before anything else is written.
TEST_F(Trace, RepeatedStagesAreCounted) {
    ScriptedServer& server = serve({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 8\r\n\r\npart"),
                                    step::await("more"), step::send(" end")});
    const ScriptedReporter reporter = makeScriptedReporter(host());
    reporter->OnUpdate = [&](int, std::uint64_t) {
        server.raise("more");
        return Array(true);
    };
    const StandardOutputCapture output;
    const Object connection = makeTraced(server.url("/"), 1);
    connection.set("ProgressReporter", reporter);
    EXPECT_EQ(receiveBytes(connection), "part end");
    const std::string text = output.text();
    std::size_t stages = 0;
    const std::string stage = "PERFORM IN READER";
    for (std::size_t at = text.find(stage); at != std::string::npos; at = text.find(stage, at + 1)) {
        const std::size_t digits = at + stage.size() + 1;
        const std::size_t behind = text.find_first_not_of("0123456789", digits);
        EXPECT_EQ(text[digits - 1], ' ') << text;
        EXPECT_GT(behind, digits) << text;
        EXPECT_EQ(text.substr(behind, 7), " times\n") << text;
        ++stages;
    }
    EXPECT_GE(stages, 1U);
    connection.call("closeConnection");
}

} // namespace
