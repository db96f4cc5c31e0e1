// What the caller learns about request and response, and redirects.
#include "tests/support/host/HostFixture.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <ostream>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

using Texts = std::vector<std::string>;

class Metadata : public HostFixture {};

TEST_F(Metadata, RequestAsItWentOut) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response(""))});
    const Object connection = open(server.url("/p/q?r=s#t"));
    connection.set("RequestMethod", "OPTIONS");
    connection.call("setRequestProperty", {"X-One", "1"});
    connection.call("setRequestProperty", {"x-one", "2"});
    EXPECT_EQ(fieldTexts(connection.call("getRequestFields")), Texts{}) << "nothing has been sent yet";
    receiveBytes(connection);
    EXPECT_EQ(fieldTexts(connection.call("getRequestFields")),
              (Texts{"Host: " + server.authority(), "X-One: 1", "x-one: 2"}));
    EXPECT_EQ(resultTexts(connection, "getRequestLine", 3), (Texts{"OPTIONS", "/p/q?r=s", "HTTP/1.1"}));
    EXPECT_EQ(resultTexts(connection, "getRequestLine", 1), (Texts{"OPTIONS"}));
    EXPECT_EQ(connection.call("getRequestMethod").text(), "OPTIONS");
    EXPECT_EQ(connection.call("getRequestURI").text(), server.url("/p/q?r=s#t"));
    EXPECT_EQ(connection.get("RequestMethod").text(), "OPTIONS");
    expectScopeUsable(connection);
}

TEST_F(Metadata, RequestLineBeforeAnySend) {
    const Object connection = open("http://127.0.0.1:9/p?q");
    connection.set("RequestMethod", "PUT");
    EXPECT_EQ(resultTexts(connection, "getRequestLine", 3), (Texts{"PUT", "/p?q", "HTTP/1.1"}));
    EXPECT_EQ(connection.call("getRequestFields").fieldNames(), (Texts{"Name", "Value"}));
    EXPECT_EQ(connection.call("getRequestFields").dimensions(), (std::vector<std::size_t>{1, 0}));
    expectScopeUsable(connection);
}

TEST_F(Metadata, OneResultOfTheStatusLineSendsNothing) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("body", {}, "202 Soon"))});
    const Object connection = open(server.url("/"));
    EXPECT_EQ(resultTexts(connection, "getStatusLine", 1), (Texts{"HTTP/1.1"}));
    EXPECT_EQ(server.connectionCount(), 0U);
    EXPECT_EQ(resultTexts(connection, "getStatusLine", 2), (Texts{"HTTP/1.1", "202"}));
    EXPECT_EQ(resultTexts(connection, "getStatusLine", 3), (Texts{"HTTP/1.1", "202", "Soon"}));
    EXPECT_EQ(receiveBytes(connection), "body");
    expectScopeUsable(connection);
}

TEST_F(Metadata, StatusIsAnInt32) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response(""))});
    const Object connection = open(server.url("/"));
    const std::vector<Array> line = connection.call("getStatusLine", std::span<const Array>(), 3);
    ASSERT_EQ(line.size(), 3U);
    EXPECT_EQ(line[1].className(), "int32");
    EXPECT_EQ(connection.get("ResponseCode").className(), "double");
    expectScopeUsable(connection);
}

TEST_F(Metadata, ResponseFieldByName) {
    ScriptedServer& server =
        serve({step::expectHead(), step::send(response("", {"X-Twice: first", "x-twice: second", "X-Empty:"}))});
    const Object connection = open(server.url("/"));
    receiveBytes(connection);
    EXPECT_EQ(connection.call("getResponseField", {"X-TWICE"}).text(), "first");
    for (const char* name : {"X-Absent", "X-Empty"}) {
        const Array value = connection.call("getResponseField", {name});
        EXPECT_TRUE(value.empty()) << name;
        EXPECT_EQ(value.className(), Array().className()) << name;
    }
    EXPECT_EQ(connection.call("getResponseFields").dimensions(), (std::vector<std::size_t>{1, 4}));
    expectScopeUsable(connection);
}

struct RedirectRow {
    const char* Location;
    const char* Target; // behind the server's own address where it starts with a slash
};

TEST_F(Metadata, LocationIsResolvedAndNotFollowed) {
    for (const RedirectRow& row :
         {RedirectRow{"/other?x=1", "/other?x=1"}, RedirectRow{"next", "/a/next"}, RedirectRow{"../up", "/up"},
          RedirectRow{"?q", "/a/b?q"}, RedirectRow{"http://example.test/x#y", "http://example.test/x#y"},
          RedirectRow{"//example.test/z", "http://example.test/z"}, RedirectRow{"http://[bad", ""}}) {
        ScriptedServer& server =
            serve({step::expectHead(),
                   step::send(response("moved", {std::string("Location: ") + row.Location}, "302 Found"))});
        const Object connection = open(server.url("/a/b"));
        const std::string target = row.Target;
        EXPECT_EQ(connection.get("RedirectURL").text(), target.starts_with('/') ? server.url(target) : target)
            << row.Location;
        EXPECT_EQ(receiveBytes(connection), "moved");
        EXPECT_EQ(connection.get("ResponseCode").number(), 302.0);
        EXPECT_EQ(server.record().Heads.size(), 1U);
        expectScopeUsable(connection);
    }
}

TEST_F(Metadata, RedirectStaysUntilTheNextLocation) {
    ScriptedServer& server =
        serve({step::expectHead(), step::send(response("", {"Location: /1"}, "301 Moved")), step::expectHead(),
               step::send(response("")), step::expectHead(), step::send(response("", {"Location:"}))});
    const Object connection = open(server.url("/"));
    for (int round = 0; round < 3; ++round) {
        receiveBytes(connection);
        EXPECT_EQ(connection.get("RedirectURL").text(), server.url("/1")) << round;
        connection.call("openConnection");
    }
    expectScopeUsable(connection);
}

TEST_F(Metadata, UrlReadsBackInItsAsciiForm) {
    const Object connection = makeAdapter();
    connection.set("URL", "HTTP://b\u00fccher.Example/\u00e4?\u00f6#\u00fc");
    EXPECT_EQ(connection.get("URL").text(), "http://xn--bcher-kva.example/%C3%A4?%C3%B6#%C3%BC");
}

TEST_F(Metadata, Md5TokenOfAnAuthorizationFieldIsStoredWithoutItsQuotes) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response(""))});
    const Object connection = open(server.url("/"));
    connection.call("setRequestProperty", {"AUTHORIZATION", "Digest algorithm=\"MD5\", x=\"MD5\""});
    connection.call("setRequestProperty", {"X-Other", "\"MD5\""});
    receiveBytes(connection);
    const Texts fields = fieldTexts(connection.call("getRequestFields"));
    EXPECT_EQ(fields, (Texts{"Host: " + server.authority(), "AUTHORIZATION: Digest algorithm=MD5  , x=\"MD5\"",
                             "X-Other: \"MD5\""}));
    expectScopeUsable(connection);
}

TEST_F(Metadata, RemovedAndEmptyFields) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response(""))});
    const Object connection = open(server.url("/"));
    connection.call("setRequestProperty", {"X-Gone", "1"});
    connection.call("setRequestProperty", {"X-GONE", "2"});
    connection.call("setRequestProperty", {"X-Kept", "3"});
    connection.call("removeField", {"x-gone"});
    connection.call("removeField", {"Host"});
    receiveBytes(connection);
    EXPECT_EQ(server.record().Received, "GET / HTTP/1.1\r\nX-Kept: 3\r\n\r\n");
    expectScopeUsable(connection);
}

TEST_F(Metadata, FieldWithoutANameIsRefusedAndThoseBeforeItStay) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response(""))});
    const Object connection = open(server.url("/"));
    const Array fields =
        Array::structures({"Name", "Value"}, {{"X-Before", "1"}, {"", "the culprit"}, {"X-After", "2"}});
    EXPECT_EQ(describe(failureOf([&] { connection.call("setFields", {fields}); })),
              "VANTIK:webservices:EmptyName(the culprit)");
    receiveBytes(connection);
    EXPECT_EQ(fieldValue(server.record().Heads.at(0), "X-Before"), "1");
    EXPECT_EQ(fieldValue(server.record().Heads.at(0), "X-After"), std::nullopt);
    expectScopeUsable(connection);
}

} // namespace
