// Cookies live as long as one object: they come back on a reopen and are gone for a new object.
#include "tests/support/host/HostFixture.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

namespace {

using namespace testsupport;
using vantik::Object;

class Cookies : public HostFixture {
protected:
    // A connection that sets a cookie in its first response and goes on for two more exchanges.
    ScriptedServer& serveCookie() {
        return serve({step::expectHead(), step::send(response("1", {"Set-Cookie: id=42; Path=/"})), step::expectHead(),
                      step::send(response("2")), step::expectHead(), step::send(response("3"))});
    }
};

TEST_F(Cookies, AreSentOnAReopen) {
    ScriptedServer& server = serveCookie();
    const Object connection = open(server.url("/"));
    EXPECT_EQ(receiveBytes(connection), "1");
    connection.call("openConnection");
    EXPECT_EQ(receiveBytes(connection), "2");
    EXPECT_EQ(fieldValue(server.record().Heads.at(0), "Cookie"), std::nullopt);
    EXPECT_EQ(fieldValue(server.record().Heads.at(1), "Cookie"), "id=42");
    expectScopeUsable(connection);
}

TEST_F(Cookies, AreGoneForANewObject) {
    ScriptedServer& server = serveCookie();
    const Object first = open(server.url("/"));
    EXPECT_EQ(receiveBytes(first), "1");
    first.call("closeConnection");
    const Object second = open(server.url("/"));
    EXPECT_EQ(receiveBytes(second), "2");
    EXPECT_EQ(server.connectionCount(), 1U) << "the connection itself is reused";
    EXPECT_EQ(fieldValue(server.record().Heads.at(1), "Cookie"), std::nullopt);
    expectScopeUsable(second);
}

// The open of a handle that was open before resets it, and with it a request for the cookie engine that no transfer has
// honoured yet.
TEST_F(Cookies, AreKeptByAnObjectThatWasOpenedTwiceBeforeItSent) {
    ScriptedServer& server = serveCookie();
    const Object connection = open(server.url("/"));
    connection.call("closeConnection");
    for (int round = 0; round < 2; ++round) {
        connection.call("openConnection");
        receiveBytes(connection);
    }
    EXPECT_EQ(fieldValue(server.record().Heads.at(1), "Cookie"), "id=42");
    expectScopeUsable(connection);
}

TEST_F(Cookies, AreKeptBehindAnObjectThatNeverSent) {
    ScriptedServer& server = serveCookie();
    open(server.url("/"));
    const Object connection = makeAdapter();
    connection.set("URL", server.url("/"));
    for (int round = 0; round < 2; ++round) {
        connection.call("openConnection");
        receiveBytes(connection);
    }
    EXPECT_EQ(fieldValue(server.record().Heads.at(1), "Cookie"), "id=42");
    expectScopeUsable(connection);
}

TEST_F(Cookies, OfTheCallerGoOutTogether) {
    ScriptedServer& server = serveCookie();
    const Object connection = open(server.url("/"));
    connection.call("setRequestProperty", {"Cookie", "a=1"});
    connection.call("setRequestProperty", {"X-Between", "x"});
    connection.call("setRequestProperty", {"cookie", "b=2"});
    EXPECT_EQ(receiveBytes(connection), "1");
    EXPECT_EQ(fieldValue(server.record().Heads.at(0), "Cookie"), "a=1; b=2; ");
    expectScopeUsable(connection);
}

TEST_F(Cookies, OfTheCallerAndOfTheServerGoOutTogether) {
    ScriptedServer& server = serveCookie();
    const Object connection = open(server.url("/"));
    receiveBytes(connection);
    connection.call("openConnection");
    connection.call("setRequestProperty", {"Cookie", "a=1"});
    EXPECT_EQ(receiveBytes(connection), "2");
    const std::string cookie = fieldValue(server.record().Heads.at(1), "Cookie").value_or("");
    EXPECT_NE(cookie.find("id=42"), std::string::npos) << cookie;
    EXPECT_NE(cookie.find("a=1"), std::string::npos) << cookie;
    expectScopeUsable(connection);
}

TEST_F(Cookies, AreDroppedWithAllConnections) {
    ScriptedServer& server =
        serve(std::vector<Script>(2, {step::expectHead(), step::send(response("x", {"Set-Cookie: id=42"}))}));
    const Object connection = open(server.url("/"));
    receiveBytes(connection);
    connection.call("closeConnection");
    connection.call("closeAllConnections");
    connection.call("openConnection");
    EXPECT_EQ(receiveBytes(connection), "x");
    EXPECT_EQ(fieldValue(server.record(1).Heads.at(0), "Cookie"), std::nullopt);
    expectScopeUsable(connection);
}

} // namespace
