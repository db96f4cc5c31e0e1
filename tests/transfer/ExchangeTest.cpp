// What only a real server shows: the callbacks as libcurl runs them, reused connections, the end of a transfer.
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/UnreachablePorts.h"
#include "tests/support/server/WireText.h"
#include "tests/transfer/ConnectionFixture.h"

#include <sstream>

namespace {

using testsupport::fieldValue;
using testsupport::response;
using testsupport::Script;
using testsupport::ScriptedServer;
using testsupport::startLine;
namespace step = testsupport::step;

std::u16string wide(const std::string& ascii) {
    return {ascii.begin(), ascii.end()};
}

class ExchangeTest : public ConnectionFixture {
protected:
    ExchangeTest() { connection.Settings.HTTPOptionsMode = true; }

    void begin(const std::string& url, const std::string& method = "GET") {
        connection.setURL(wide(url));
        connection.openConnection();
        connection.setRequestMethod(method);
    }
    std::string receive() {
        std::ostringstream content;
        connection.copyContentToStream(content, true);
        return content.str();
    }

    HTTPConnection connection;
};

TEST_F(ExchangeTest, HeadIsCompleteBeforeTheContentIsRead) {
    const ScriptedServer server(Script{step::expectHead(), step::send(response("hello", {"X-A: b"}))});
    begin(server.url("/a?b#part"));
    connection.sendRequest();
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, 200);
    EXPECT_EQ(connection.ReceivedHead.getResponseField("x-a"), "b");
    EXPECT_EQ(connection.Metadata.ResponseContentLength, 5);
    EXPECT_EQ(connection.SentHead.RequestURI, "/a?b");
    EXPECT_EQ(connection.ReceivedHead.reasonPhrase(), "OK");
    EXPECT_EQ(receive(), "hello");
    const std::string head = server.waitUntilDone().Heads.at(0);
    EXPECT_EQ(startLine(head), "GET /a?b HTTP/1.1");
    EXPECT_FALSE(fieldValue(head, "Accept"));
}

TEST_F(ExchangeTest, ConnectionIsReusedAndStillTimesOut) {
    const ScriptedServer server(
        Script{step::expectHead(), step::send(response("one")), step::expectHead(), step::awaitPeerEnd()});
    begin(server.url());
    EXPECT_EQ(receive(), "one");
    connection.closeConnection();
    connection.setTimeouts({5000.0, 200.0}); // not before: the first answer may take its time
    begin(server.url());
    // The connect time of the second request stays 0: without the head that has gone out, nothing would end it.
    EXPECT_THAT(failureText([&] { connection.sendRequest(); }),
                ::testing::MatchesRegex("HTTPTimeoutException\\[.*, 200, HTTPOptions.ResponseTimeout\\]"));
    EXPECT_EQ(server.connectionCount(), 1u);
}

// Before the first perform libcurl has no descriptor and no timer to wait for, so the wait with which the pump for
// content begins gives nothing: it must not cost a pause.
TEST_F(ExchangeTest, WaitBeforeTheFirstPerformIsEmptyAndCostsNoPause) {
    const ScriptedServer server(Script{step::expectHead(), step::expectBody(4), step::send(response("taken"))});
    begin(server.url(), "PUT");
    connection.addField("Content-Length", "4");
    connection.addField("Expect", "");
    connection.Settings.setPayload({'b', 'o', 'd', 'y'});
    EXPECT_EQ(connection.wait(1000), 0);
    curl.clear();
    EXPECT_EQ(receive(), "taken");
    const std::vector<std::string> steps =
        curl.texts({CurlFunction::MultiWait, CurlFunction::Pause, CurlFunction::MultiPerform});
    ASSERT_GE(steps.size(), 2u);
    EXPECT_EQ(steps[0], "curl_multi_wait 1000");
    EXPECT_EQ(steps[1], "curl_multi_perform");
}

// libcurl traces that it gives a connection up while the handle is removed: the connection object that the trace
// callback names must still be alive then, and the handles must serve the next one.
TEST_F(ExchangeTest, RunningTransferMayBeDestroyedWithTheTraceOn) {
    const ScriptedServer server(std::vector<Script>{
        {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\npart"), step::awaitPeerEnd()},
        {step::expectHead(), step::send(response("next"))}});
    const StandardOutputCapture output;
    {
        HTTPConnection abandoned;
        abandoned.Settings.HTTPOptionsMode = true;
        abandoned.Settings.Debug = 1;
        abandoned.setURL(wide(server.url()));
        abandoned.openConnection();
        abandoned.sendRequest();
        EXPECT_EQ(abandoned.ReceivedHead.ResponseCode, 200);
    }
    EXPECT_THAT(output.text(), ::testing::EndsWith("DESTROYING HTTPCONNECTION\n"));
    EXPECT_THAT(output.text(), ::testing::ContainsRegex("IN INFO [^\n]*[Cc]losing connection"));
    begin(server.url());
    EXPECT_EQ(receive(), "next");
}

TEST_F(ExchangeTest, RedirectIsReportedAndNotFollowed) {
    const ScriptedServer server(
        Script{step::expectHead(), step::send(response("", {"Location: ../x?y"}, "302 Found"))});
    begin(server.url("/a/b"));
    EXPECT_EQ(connection.getRedirectURL(), server.url("/x?y"));
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, 302);
    EXPECT_EQ(server.connectionCount(), 1u);
}

TEST_F(ExchangeTest, ContinueIsDroppedFromTheHead) {
    const ScriptedServer server(
        Script{step::expectHead(), step::send("HTTP/1.1 100 Continue\r\n\r\n"), step::send(response("x", {"X-A: b"}))});
    begin(server.url());
    connection.sendRequest();
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, 200);
    ASSERT_FALSE(connection.ReceivedHead.ResponseHeaderLines.empty());
    EXPECT_EQ(connection.ReceivedHead.ResponseHeaderLines[0], "HTTP/1.1 200 OK");
}

TEST_F(ExchangeTest, RefusedConnectionIsToldInLibcurlsWords) {
    const testsupport::RefusingPort port;
    begin(port.url());
    EXPECT_THAT(failureText([&] { connection.sendRequest(); }),
                ::testing::MatchesRegex("HTTPConnectionRefusedException\\[.*[Rr]efused.*\\]|"
                                        "HTTPConnectionRefusedException\\[.*connect.*\\]"));
    EXPECT_THAT(connection.SentHead.RequestHeaderLines, IsEmpty()); // only a removed field was configured
}

TEST_F(ExchangeTest, ShortContentIsAWarning) {
    const ScriptedServer server(
        Script{step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhello"), step::close()});
    begin(server.url());
    EXPECT_EQ(receive(), "hello");
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_THAT(warnings[0],
                ::testing::MatchesRegex("VANTIK:webservices:PartialFileWarning\\[N:[0-9]+, N:10, N:.+\\]"));
}

TEST_F(ExchangeTest, ErrorStatusWithABrokenBodyIsAResponseAndAWarning) {
    const ScriptedServer server(Script{
        step::expectHead(), step::send("HTTP/1.1 404 Not Found\r\nContent-Length: 10\r\n\r\nhello"), step::close()});
    begin(server.url());
    EXPECT_EQ(receive(), "hello");
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, 404);
    EXPECT_THAT(warnings, ElementsAre(::testing::MatchesRegex(
                              "VANTIK:webservices:PartialFileWarning\\[N:[0-9]+, N:10, N:.+\\]")));
}

TEST_F(ExchangeTest, CookiesAreSentAgainOnAReopen) {
    const ScriptedServer server(Script{step::expectHead(), step::send(response("", {"Set-Cookie: a=1"})),
                                       step::expectHead(), step::send(response(""))});
    begin(server.url());
    EXPECT_EQ(receive(), "");
    connection.closeConnection();
    begin(server.url());
    connection.addField("Cookie", "b=2");
    EXPECT_EQ(receive(), "");
    const auto cookie = fieldValue(server.waitUntilDone().Heads.at(1), "Cookie");
    ASSERT_TRUE(cookie);
    EXPECT_THAT(*cookie, ::testing::AllOf(::testing::HasSubstr("a=1"), ::testing::HasSubstr("b=2")));
}

// A reset comes before the first transfer of the new handle, as each open but the first of a scope makes one.
TEST_F(ExchangeTest, CookiesAreKeptOnNewHandlesToo) {
    const ScriptedServer server(Script{step::expectHead(), step::send(response("", {"Set-Cookie: a=1"})),
                                       step::expectHead(), step::send(response(""))});
    connection.Handles->EasyHandleAttached = true;
    HTTPConnection::closeAllConnections();
    HTTPConnection fresh;
    fresh.Settings.HTTPOptionsMode = true;
    for (int i = 0; i < 2; ++i) {
        open(fresh, wide(server.url()));
        fresh.setRequestMethod("GET");
        std::ostringstream content;
        fresh.copyContentToStream(content, true);
        fresh.closeConnection();
    }
    const auto heads = server.waitUntilDone().Heads;
    EXPECT_FALSE(fieldValue(heads.at(0), "Cookie"));
    EXPECT_EQ(fieldValue(heads.at(1), "Cookie"), "a=1");
}

TEST_F(ExchangeTest, ProxyFieldIsForOneSendOnly) {
    const ScriptedServer proxy(Script{step::expectHead(),
                                      step::send(response("", {"WWW-Authenticate: Other"}, "401 No")),
                                      step::expectHead(), step::send(response("ok"))});
    connection.Settings.ProxyHost = "127.0.0.1";
    connection.Settings.ProxyPort = proxy.port();
    begin("http://target.example/");
    connection.addField("Proxy-Connection", "X-Once");
    EXPECT_EQ(receive(), "");
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, 401);
    connection.closeConnection();
    begin("http://target.example/");
    EXPECT_EQ(receive(), "ok");
    const auto record = proxy.waitUntilDone();
    EXPECT_EQ(fieldValue(record.Heads.at(0), "Proxy-Connection"), "X-Once");
    EXPECT_NE(fieldValue(record.Heads.at(1), "Proxy-Connection"), "X-Once");
}

TEST_F(ExchangeTest, PostDataGoesOutWithItsLength) {
    const ScriptedServer server(
        Script{step::expectHead(), step::continueIfExpected(), step::expectBody(6), step::send(response("ok"))});
    connection.Settings.HTTPOptionsMode = false;
    begin(server.url(), "POST");
    connection.addField("Content-Type", "text/plain; charset=utf-8");
    connection.Settings.PostData = u"\u00E4=\u20AC";
    EXPECT_EQ(receive(), "ok");
    const auto record = server.waitUntilDone();
    EXPECT_EQ(record.Bodies.at(0), "\xC3\xA4=\xE2\x82\xAC");
    EXPECT_EQ(fieldValue(record.Heads.at(0), "Content-Length"), "6");
    EXPECT_FALSE(fieldValue(record.Heads.at(0), "Transfer-Encoding"));
    EXPECT_EQ(startLine(record.Heads.at(0)), "POST / HTTP/1.1");
}

TEST_F(ExchangeTest, OlderInterfaceFailsOnAStatus) {
    const ScriptedServer server(Script{step::expectHead(), step::send(response("x", {}, "404 Not Found"))});
    connection.Settings.HTTPOptionsMode = false;
    begin(server.url());
    EXPECT_EQ(failureText([&] { receive(); }), "HTTPStatusError[Not Found, " + server.url() + ", 404]");
}

// libcurl may trace while it drops a transfer: the connection must then still be alive.
TEST_F(ExchangeTest, TransferInFlightIsDroppedWithItsConnection) {
    const ScriptedServer server(Script{step::expectHead(),
                                       step::send("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\nhello"),
                                       step::awaitPeerEnd()});
    const StandardOutputCapture output;
    {
        HTTPConnection dropped;
        dropped.Settings.HTTPOptionsMode = true;
        dropped.Settings.Debug = 2;
        open(dropped, wide(server.url()));
        dropped.setRequestMethod("GET");
        dropped.sendRequest();
        EXPECT_EQ(dropped.ReceivedHead.ResponseCode, 200);
    }
    EXPECT_THAT(output.text(), ::testing::EndsWith("DESTROYING HTTPCONNECTION\n"));
    EXPECT_TRUE(server.waitUntilDone().PeerEnded);
}

TEST_F(ExchangeTest, InterruptEndsASilentTransfer) {
    ScriptedServer server(Script{step::expectHead(), step::signal("asked"), step::awaitPeerEnd()});
    begin(server.url());
    curl.OnInterruptPoll = [&] {
        if (connection.SentHead.Sent) {
            server.waitFor("asked");
            host().interrupt();
        }
    };
    EXPECT_THAT(failureText([&] { connection.sendRequest(); }),
                ::testing::StartsWith("HTTPConnectionFailedException["));
}

} // namespace
