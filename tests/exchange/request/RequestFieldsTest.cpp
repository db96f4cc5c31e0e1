// Methods and fields as they go out, and requests that are refused before anything does.
#include "tests/support/host/HostFixture.h"
#include "tests/support/process/StandardOutputCapture.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

using Texts = std::vector<std::string>;

class RequestFields : public HostFixture {};

struct MethodRow {
    const char* Set;
    const char* Line; // of the request
    const char* Told; // by the object, before and behind the send
};

TEST_F(RequestFields, MethodGoesOutAsLibcurlMakesIt) {
    for (const MethodRow& row :
         {MethodRow{"", "GET / HTTP/1.1", "GET"}, MethodRow{"get", "GET / HTTP/1.1", "get"},
          MethodRow{"head", "HEAD / HTTP/1.1", "head"}, MethodRow{"put", "put / HTTP/1.1", "put"},
          MethodRow{"PURGE", "PURGE / HTTP/1.1", "PURGE"}}) {
        ScriptedServer& server =
            serve({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n")});
        const Object connection = open(server.url("/"));
        connection.set("RequestMethod", row.Set);
        EXPECT_EQ(resultTexts(connection, "getRequestLine", 1), Texts{row.Told});
        EXPECT_EQ(receiveBytes(connection), "");
        EXPECT_EQ(startLine(server.record().Heads.at(0)), row.Line);
        EXPECT_EQ(connection.get("RequestMethod").text(), row.Set);
        EXPECT_EQ(resultTexts(connection, "getRequestLine", 1), Texts{row.Told});
        EXPECT_EQ(connection.call("getRequestMethod").text(), row.Told);
        expectScopeUsable(connection);
    }
}

TEST_F(RequestFields, CookieIsStoredAsItStands) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response(""))});
    const Object connection = open(server.url("/"));
    connection.call("setRequestProperty", {"Cookie", "algorithm=\"MD5\""});
    receiveBytes(connection);
    EXPECT_EQ(fieldTexts(connection.call("getRequestFields")),
              (Texts{"Host: " + server.authority(), "Cookie: algorithm=\"MD5\";"})); // its last blank is trimmed
    EXPECT_EQ(fieldValue(server.record().Heads.at(0), "Cookie"), "algorithm=\"MD5\"; ");
    expectScopeUsable(connection);
}

// libcurl traces a head once it has written it, so the bytes on the wire are still those of the caller.
TEST_F(RequestFields, AuthorizationGoesOutAsItWasSet) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response(""))});
    const Object connection = open(server.url("/"));
    connection.call("setRequestProperty", {"Authorization", "Digest algorithm=\"MD5\""});
    receiveBytes(connection);
    EXPECT_EQ(fieldValue(server.record().Heads.at(0), "Authorization"), "Digest algorithm=\"MD5\"");
    expectScopeUsable(connection);
}

TEST_F(RequestFields, BadLengthIsForgottenByAReopen) {
    for (const std::string value : {"12abc", "none", "9223372036854775808", " "}) {
        ScriptedServer& server = serve({step::expectHead(), step::send(response("sent"))});
        const Object connection = open(server.url("/"));
        connection.call("setRequestProperty", {"X-A", "1"});
        connection.call("setRequestProperty", {"Content-Length", value});
        for (int attempt = 0; attempt < 2; ++attempt) {
            EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })),
                      "VANTIK:webservices:InternalError(Bad Content-Length value " + value + ")");
            EXPECT_FALSE(connection.get("Sent").truth());
        }
        EXPECT_EQ(server.connectionCount(), 0U);
        connection.call("openConnection");
        EXPECT_EQ(receiveBytes(connection), "sent");
        EXPECT_EQ(server.record().Received, "GET / HTTP/1.1\r\nHost: " + server.authority() + "\r\n\r\n");
        expectScopeUsable(connection);
    }
}

TEST_F(RequestFields, TextThatWasRefusedCanBeReplaced) {
    ScriptedServer& server =
        serve({step::expectHead(), step::continueIfExpected(), step::expectBody(4), step::send(response("taken"))});
    const Object connection = open(server.url("/"), false);
    connection.set("RequestMethod", "POST");
    connection.call("setRequestProperty", {"Content-Type", "text/plain; charset=us-ascii"});
    connection.set("PostData", "\u20ac");
    EXPECT_EQ(failureOf([&] { receiveBytes(connection); }).identifier(), "VANTIK:webservices:EncodingFailure");
    EXPECT_FALSE(connection.get("Sent").truth());
    EXPECT_EQ(connection.get("Payload").size(), 0U);
    connection.set("PostData", "text");
    EXPECT_EQ(receiveBytes(connection), "taken");
    EXPECT_EQ(server.record().Bodies, Texts{"text"});
    expectScopeUsable(connection);
}

// Content at a level that shows it: from 1000 characters on only its length, which is that behind the marking of line
// ends.
TEST_F(RequestFields, TraceCountsLongAndMarkedContent) {
    struct Row {
        std::int32_t Level;
        std::string Body;
        std::string Shown;
    };
    for (const Row& row :
         {Row{2, std::string(999, 'x'), std::string(999, 'x')}, Row{2, std::string(1000, 'x'), "1000 bytes"},
          Row{1, "a\r\nb", "9 bytes"}, Row{2, "a\r\nb", "a<CRLF>\nb"}, Row{2, "a\x01", "2 bytes"}}) {
        ScriptedServer& server = serve({step::expectHead(), step::send(response(row.Body))});
        std::string text;
        {
            const StandardOutputCapture output;
            const Object connection = makeAdapter();
            connection.set("Debug", row.Level);
            connection.set("URL", server.url("/"));
            connection.call("openConnection");
            EXPECT_EQ(receiveBytes(connection), row.Body);
            text = output.text();
            connection.set("Debug", std::int32_t{0});
            connection.call("closeConnection");
        }
        const std::string label = "IN DATA (";
        const std::size_t found = text.find(label);
        ASSERT_NE(found, std::string::npos) << text;
        EXPECT_EQ(text.substr(found + label.size() + 7, row.Shown.size() + 4), "): " + row.Shown + "\n");
        expectScopeUsable();
    }
}

} // namespace
