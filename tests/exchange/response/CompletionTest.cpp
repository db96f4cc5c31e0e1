// What the end of a transfer means to the caller: a head with a status outside success is a good answer however the
// transfer ended, and no other ending is.
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

using Texts = std::vector<std::string>;

class Completion : public HostFixture {
protected:
    // Head and first piece, then the end once the caller has seen that piece.
    ScriptedServer& serveInTwo(const std::string& sent, std::vector<Step> ending) {
        Script script{step::expectHead(), step::send(sent), step::await("piece seen")};
        script.insert(script.end(), ending.begin(), ending.end());
        return serve(script);
    }
    ScriptedConsumer makeSeeing(ScriptedServer& server) {
        ScriptedConsumer consumer = makeScriptedConsumer(host());
        consumer->OnPut = [&server](int, const std::string& piece) {
            server.raise("piece seen");
            return Array(static_cast<double>(piece.size()));
        };
        return consumer;
    }
    // On the same object. It is closed first: an exchange whose content was not copied to its end counts as done, and a
    // reopen alone sends nothing behind it.
    void expectObjectUsable(const Object& connection) {
        ScriptedServer& server = serve({step::expectHead(), step::send(response("good again"))});
        connection.call("closeConnection");
        connection.set("Consumer", Array());
        connection.set("URL", server.url("/again"));
        connection.call("openConnection");
        EXPECT_EQ(receiveBytes(connection), "good again");
        EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
        expectScopeUsable(connection);
    }
};

TEST_F(Completion, StatusExcusesAResetInTheContent) {
    for (const bool optionsMode : {true, false}) {
        ScriptedServer& server = serveInTwo("HTTP/1.1 404 Not Found\r\nContent-Length: 9\r\n\r\npart", {step::reset()});
        const ScriptedConsumer consumer = makeSeeing(server);
        const Object connection = open(server.url("/"), optionsMode);
        connection.set("Consumer", consumer);
        const auto receive = [&] { connection.call("copyContentToByteArray", {false}); };
        if (optionsMode) {
            receive();
            EXPECT_EQ(consumer->content(), "part");
        } else {
            EXPECT_EQ(describe(failureOf(receive)),
                      "VANTIK:webservices:StatusError(404, Not Found, " + server.url("/") + ")");
            server.raise("piece seen");
        }
        EXPECT_EQ(connection.get("ResponseCode").number(), 404.0);
        EXPECT_EQ(connection.call("getResponseField", {"Content-Length"}).text(), "9");
        expectObjectUsable(connection);
    }
}

TEST_F(Completion, SuccessDoesNotExcuseIt) {
    ScriptedServer& server = serveInTwo("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\npart", {step::reset()});
    const ScriptedConsumer consumer = makeSeeing(server);
    const Object connection = open(server.url("/"));
    connection.set("Consumer", consumer);
    const vantik::Message message = failureOf([&] { connection.call("copyContentToByteArray", {false}); });
    EXPECT_EQ(message.identifier(), "VANTIK:webservices:ConnectionRefused") << message.Text;
    EXPECT_EQ(consumer->content(), "part");
    EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
    expectObjectUsable(connection);
}

// The counts are those from the end of the send: what came later is received, but not counted in the warning.
TEST_F(Completion, WarningOfShortContentTellsTheCountsOfTheSend) {
    ScriptedServer& server =
        serveInTwo("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nfour", {step::send("56"), step::close()});
    const ScriptedConsumer consumer = makeSeeing(server);
    const Object connection = open(server.url("/"));
    connection.set("Consumer", consumer);
    connection.call("copyContentToByteArray", {false});
    EXPECT_EQ(consumer->content(), "four56");
    ASSERT_EQ(warnings().size(), 1U);
    // The text behind the counts is libcurl's, in which only its own count is the same in every version.
    EXPECT_THAT(describe(warnings()[0]),
                ::testing::AllOf(::testing::StartsWith("VANTIK:webservices:PartialFileWarning(4, 10, "),
                                 ::testing::HasSubstr("with 4 bytes ")));
    expectObjectUsable(connection);
    EXPECT_EQ(warnings().size(), 1U);
}

struct LineFeedRow {
    const char* Sent;
    const char* Failure;
};

// Lines that end in a line feed alone are not stored, so libcurl knows a status and the connection knows no head.
TEST_F(Completion, StatusWithoutAHeadIsNoAnswer) {
    for (const LineFeedRow& row :
         {LineFeedRow{"HTTP/1.1 404 Not Found\nContent-Length: 0\n\n",
                      "VANTIK:webservices:InternalError(Nonzero response code but no headers received)"},
          // Of success that is accepted, and what the lines lack is told.
          LineFeedRow{"HTTP/1.1 200 OK\nContent-Length: 0\n\n",
                      "VANTIK:webservices:InternalError(CRLF not found at the end of the received headers)"}}) {
        ScriptedServer& server = serve({step::expectHead(), step::send(row.Sent), step::awaitPeerEnd()});
        const Object connection = open(server.url("/"));
        EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })), row.Failure);
        EXPECT_EQ(connection.call("getResponseFields").size(), 0U);
        expectObjectUsable(connection);
    }
}

TEST_F(Completion, StatusWithoutAHeadDoesNotExcuseAReset) {
    for (const char* status : {"404 Not Found", "200 OK"}) {
        ScriptedServer& server =
            serve({step::expectHead(), step::send("HTTP/1.1 " + std::string(status) + "\nContent-Length: 9\n\n"),
                   step::reset()});
        const Object connection = open(server.url("/"));
        EXPECT_EQ(failureOf([&] { receiveBytes(connection); }).identifier(), "VANTIK:webservices:ConnectionRefused");
        expectObjectUsable(connection);
    }
}

TEST_F(Completion, FirstContentEncodingCounts) {
    ScriptedServer& server = serve(
        {step::expectHead(), step::send(response("raw", {"content-ENCODING: first", "Content-Encoding: second"}))});
    const Object connection = open(server.url("/"));
    connection.set("Decode", false);
    EXPECT_EQ(connection.get("ContentEncoding").text(), "first");
    EXPECT_EQ(receiveBytes(connection), "raw");
    expectScopeUsable(connection);
}

// A refused tunnel reads as the proxy's answer, though the server has said nothing. The warning tells that its content
// was not received.
TEST_F(Completion, AnswerOfTheProxyToConnectIsAStatus) {
    for (const char* status : {"407 Proxy Authentication Required", "403 Forbidden", "502 Bad Gateway"}) {
        ScriptedServer& proxy =
            serve({step::expectHead(), step::send(response("", {"X-Proxy: 1"}, status)), step::close()});
        const Object connection = makeAdapter();
        connection.set("URL", "https://origin.test/");
        connection.call("openProxyConnection",
                        {Array::structure({{"Host", "127.0.0.1"}, {"Port", static_cast<double>(proxy.port())}})});
        EXPECT_EQ(receiveBytes(connection), "");
        const Texts line = resultTexts(connection, "getStatusLine", 3);
        ASSERT_EQ(line.size(), 3U);
        EXPECT_EQ(line[1] + ' ' + line[2], status);
        EXPECT_EQ(connection.call("getResponseField", {"X-Proxy"}).text(), "1");
        ASSERT_FALSE(warnings().empty());
        EXPECT_THAT(describe(warnings().back()),
                    ::testing::AllOf(::testing::StartsWith("VANTIK:webservices:PartialFileWarning("),
                                     ::testing::HasSubstr(line[1])));
        expectScopeUsable(connection);
    }
}

// Even where the tunnel was opened, the status is not the server's: what fails behind it is a failure.
TEST_F(Completion, OpenedTunnelExcusesNothing) {
    ScriptedServer& proxy =
        serve({step::expectHead(), step::send("HTTP/1.1 200 Connection established\r\n\r\n"), step::close()});
    const Object connection = makeAdapter();
    connection.set("URL", "https://origin.test/");
    connection.call("openProxyConnection",
                    {Array::structure({{"Host", "127.0.0.1"}, {"Port", static_cast<double>(proxy.port())}})});
    EXPECT_EQ(failureOf([&] { receiveBytes(connection); }).identifier(), "VANTIK:webservices:SSLConnectionNoFile");
    expectScopeUsable(connection);
}

} // namespace
