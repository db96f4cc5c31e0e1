// URLs and options that are refused on an object that was good before: what is reported, and what is left of the old
// state.
#include "tests/support/host/HostFixture.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

// Where the next open leads behind a refused URL.
enum class NextOpen { ToTheOldUrl, NoHost };

struct Row {
    const char* Name;
    Array Url;
    const char* Failure; // its beginning
    NextOpen Next;
};

class RefusedUrl : public HostFixture {
protected:
    // Two exchanges on the server's one connection, which libcurl keeps: it may close any of those that were idle
    // within the same millisecond, once it has four.
    ScriptedServer& serveTwice() {
        makeAdapter().call("closeAllConnections");
        return serve(
            {step::expectHead(), step::send(response("first")), step::expectHead(), step::send(response("second"))});
    }
    // Every kind of refusal. A text without scheme, or with one that is not served, has replaced the parsed URL by
    // then; the text that goes to the wire is the old one in every case.
    std::vector<Row> rows() {
        return {
            {"no scheme", "www.example.test/p", "VANTIK:webservices:MalformedURL(\"www.example.test/p\" (no protocol))",
             NextOpen::NoHost},
            {"other scheme", "ftp://127.0.0.1/p",
             "VANTIK:webservices:ExpectedProtocol(ftp, ftp://127.0.0.1/p, http, https)", NextOpen::ToTheOldUrl},
            {"other scheme without host", "file:///p",
             "VANTIK:webservices:ExpectedProtocol(file, file:///p, http, https)", NextOpen::NoHost},
            {"no URL", "http://a b/", "VANTIK:webservices:MalformedURL(http://a b/)", NextOpen::ToTheOldUrl},
            {"no text", Array(std::u16string(u"http://h/\xD800")), "VANTIK:webservices:EncodingFailure(",
             NextOpen::ToTheOldUrl},
        };
    }
};

TEST_F(RefusedUrl, LeavesTheOldOne) {
    for (const Row& row : rows()) {
        SCOPED_TRACE(row.Name);
        ScriptedServer& server = serveTwice();
        const Object connection = open(server.url("/p"));
        EXPECT_EQ(receiveBytes(connection), "first");
        connection.call("closeConnection");
        EXPECT_EQ(describe(failureOf([&] { connection.set("URL", row.Url); })).substr(0, std::strlen(row.Failure)),
                  row.Failure);
        EXPECT_EQ(connection.get("URL").text(), server.url("/p"));
        if (row.Next == NextOpen::NoHost) {
            EXPECT_EQ(failureOf([&] { connection.call("openConnection"); }).identifier(),
                      "VANTIK:webservices:FileNotFound");
            EXPECT_EQ(receiveBytes(connection), "") << "it is closed";
            EXPECT_EQ(server.record().Heads.size(), 1U);
            makeAdapter(); // nothing counts as open
        } else {
            connection.call("openConnection");
            EXPECT_EQ(receiveBytes(connection), "second");
        }
        expectScopeUsable(connection);
    }
}

TEST_F(RefusedUrl, IsMendedByAGoodOne) {
    for (const Row& row : rows()) {
        SCOPED_TRACE(row.Name);
        ScriptedServer& server = serveTwice();
        const Object connection = open(server.url("/p"));
        EXPECT_EQ(receiveBytes(connection), "first");
        failureOf([&] { connection.set("URL", row.Url); });
        connection.set("URL", server.url("/q#part"));
        connection.call("openConnection");
        EXPECT_EQ(receiveBytes(connection), "second");
        EXPECT_EQ(startLine(server.record().Heads.at(1)), "GET /q HTTP/1.1");
        EXPECT_EQ(connection.get("URL").text(), server.url("/q#part"));
        expectScopeUsable(connection);
    }
}

// A refusal while the object is open takes nothing from the exchange that is under way.
TEST_F(RefusedUrl, TakesNothingFromTheOpenConnection) {
    for (const Row& row : rows()) {
        SCOPED_TRACE(row.Name);
        ScriptedServer& server = serveTwice();
        const Object connection = open(server.url("/p"));
        failureOf([&] { connection.set("URL", row.Url); });
        EXPECT_EQ(receiveBytes(connection), "first");
        expectScopeUsable(connection);
    }
}

// An open without host fails behind the attachment of the handle: a failed reopen leaves the scope open, as it was.
TEST_F(RefusedUrl, WithoutHostFailsAReopenAndKeepsTheScopeOpen) {
    ScriptedServer& server = serveTwice();
    const Object connection = open(server.url("/p"));
    EXPECT_EQ(receiveBytes(connection), "first");
    connection.set("URL", "http:///p");
    EXPECT_EQ(failureOf([&] { connection.call("openConnection"); }).identifier(), "VANTIK:webservices:FileNotFound");
    EXPECT_FALSE(connection.get("Sent").truth());
    EXPECT_EQ(receiveBytes(connection), "");
    EXPECT_EQ(describe(failureOf([&] { makeAdapter(); })), "VANTIK:http:OnlyOneTransferAtATime()");
    connection.set("URL", server.url("/q"));
    connection.call("openConnection");
    EXPECT_EQ(receiveBytes(connection), "second");
    expectScopeUsable(connection);
}

class RefusedOption : public HostFixture {
protected:
    // libcurl takes no text beyond 8,000,000 bytes.
    const std::string TooLong = std::string(8'000'001, 'x');
    // The failure names the option, then come libcurl's own text and the detail, with nothing between and behind them.
    static void expectRefusal(const std::function<void()>& action, const std::string& option,
                              const std::string& detail = {}) {
        const vantik::Message message = failureOf(action);
        EXPECT_EQ(message.identifier(), "VANTIK:webservices:InternalError");
        ASSERT_EQ(message.Arguments.size(), 1U);
        std::string text = std::get<std::string>(message.Arguments[0]);
        const std::string begin = '"' + option + "\" failed with CURLcode ";
        ASSERT_EQ(text.substr(0, begin.size()), begin);
        ASSERT_TRUE(text.ends_with(detail));
        text = text.substr(begin.size(), text.size() - begin.size() - detail.size());
        ASSERT_FALSE(text.empty());
        EXPECT_EQ(text.find_last_not_of(' '), text.size() - 1) << text;
    }
};

TEST_F(RefusedOption, OfTheOpenIsNamedAndEndsInLibcurlsText) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("good"))});
    const Object connection = makeAdapter();
    connection.set("URL", server.url("/") + TooLong);
    expectRefusal([&] { connection.call("openConnection"); }, "CURLOPT_URL");
    EXPECT_EQ(receiveBytes(connection), "") << "it is closed";
    makeAdapter(); // nothing counts as open
    connection.set("URL", server.url("/"));
    connection.call("openConnection");
    EXPECT_EQ(receiveBytes(connection), "good");
    expectScopeUsable(connection);
}

TEST_F(RefusedOption, OfTheProxyIsNamedWithTheHost) {
    const Object connection = makeAdapter();
    connection.set("URL", "http://127.0.0.1:9/");
    const Array proxy = Array::structure({{"Host", TooLong}, {"Port", 80.0}});
    expectRefusal([&] { connection.call("openProxyConnection", {proxy}); }, "CURLOPT_PROXY", TooLong);
    expectScopeUsable();
}

TEST_F(RefusedOption, OfTheSendIsNamedAndTheSameObjectSendsBehindIt) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("good"))});
    const Object connection = open(server.url("/"));
    connection.call(
        "setAuthenticationSchemes",
        {Array::enumeration("vantik.net.http.AuthenticationScheme", std::vector<std::string>{"Basic"}), false});
    for (const char* property : {"Username", "Password"}) {
        connection.set(property, TooLong);
        expectRefusal([&] { receiveBytes(connection); },
                      property == std::string("Username") ? "CURLOPT_USERNAME" : "CURLOPT_PASSWORD");
        EXPECT_FALSE(connection.get("Sent").truth());
        connection.set(property, "short");
    }
    EXPECT_EQ(receiveBytes(connection), "good") << "without another open";
    EXPECT_EQ(fieldValue(server.record().Heads.at(0), "Authorization"), "Basic c2hvcnQ6c2hvcnQ=");
    expectScopeUsable(connection);
}

} // namespace
