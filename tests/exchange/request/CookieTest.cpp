// Cookies live as long as one object: they come back on a reopen and are gone for a new object.
#include "tests/exchange/ExchangeFixture.h"

namespace {

using namespace testsupport;

class Cookies : public ExchangeFixture {
protected:
    // A connection that sets a cookie in its first response and goes on for one more exchange.
    ScriptedServer& serveCookie() {
        return serve(answers(response("1", {"Set-Cookie: id=42; Path=/"})) + answers(response("2")));
    }
};

// The open of a handle that was open before resets it, and with it a request for the cookie engine that no transfer has
// honoured yet.
TEST_F(Cookies, AreSentOnAReopenWhateverCameBefore) {
    struct Row {
        const char* Before;
        void (*Prepare)(const Object& connection, const Object& other);
    };
    for (const Row& row :
         {Row{"nothing", [](const Object&, const Object&) {}},
          {"an open without a send",
           [](const Object& connection, const Object&) { connection.call("openConnection"); }},
          {"an object that never sent", [](const Object&, const Object& other) { other.call("openConnection"); }}}) {
        SCOPED_TRACE(row.Before);
        ScriptedServer& server = serveCookie();
        const Object connection = makeFor(server.url("/"));
        const Object other = makeFor(server.url("/"));
        row.Prepare(connection, other);
        connection.call("closeConnection");
        other.call("closeConnection");
        for (const char* content : {"1", "2"}) {
            connection.call("openConnection");
            EXPECT_EQ(receiveBytes(connection), content);
        }
        EXPECT_EQ(fieldValue(server.record().Heads.at(0), "Cookie"), std::nullopt);
        EXPECT_EQ(fieldValue(server.record().Heads.at(1), "Cookie"), "id=42");
        expectScopeUsable(connection);
        connection.call("closeAllConnections"); // libcurl closes any one once it has kept four
    }
}

TEST_F(Cookies, AreGoneForANewObject) {
    ScriptedServer& server = serveCookie();
    const Object first = open(server.url("/"));
    EXPECT_EQ(receiveBytes(first), "1");
    first.call("closeConnection");
    EXPECT_EQ(receiveBytes(open(server.url("/"))), "2");
    EXPECT_EQ(server.connectionCount(), 1U) << "the connection itself is reused";
    EXPECT_EQ(fieldValue(server.record().Heads.at(1), "Cookie"), std::nullopt);
}

TEST_F(Cookies, OfTheCallerGoOutTogetherAndWithThoseOfTheServer) {
    ScriptedServer& server = serveCookie();
    const Object connection = open(server.url("/"));
    connection.call("setRequestProperty", {"Cookie", "a=1"});
    connection.call("setRequestProperty", {"X-Between", "x"});
    connection.call("setRequestProperty", {"cookie", "b=2"});
    EXPECT_EQ(receiveBytes(connection), "1");
    EXPECT_EQ(fieldValue(server.record().Heads.at(0), "Cookie"), "a=1; b=2; ");
    connection.call("openConnection");
    connection.call("setRequestProperty", {"Cookie", "a=1"});
    EXPECT_EQ(receiveBytes(connection), "2");
    const std::string cookie = fieldValue(server.record().Heads.at(1), "Cookie").value_or("");
    EXPECT_NE(cookie.find("id=42"), std::string::npos) << cookie;
    EXPECT_NE(cookie.find("a=1"), std::string::npos) << cookie;
}

TEST_F(Cookies, AreDroppedWithAllConnectionsAndCollectedAgain) {
    const auto exchange = [](const char* cookie) {
        return answers(response("x", {std::string("Set-Cookie: ") + cookie}));
    };
    for (const bool byAnother : {false, true}) {
        ScriptedServer& server = serve({exchange("id=1"), exchange("id=2") + exchange("id=3")});
        const Object other = makeAdapter();
        const Object connection = open(server.url("/"));
        EXPECT_EQ(receiveBytes(connection), "x");
        connection.call("closeConnection");
        (byAnother ? other : connection).call("closeAllConnections");
        for (int round = 0; round < 2; ++round) {
            connection.call("openConnection");
            EXPECT_EQ(receiveBytes(connection), "x");
            connection.call("closeConnection");
        }
        EXPECT_EQ(fieldValue(server.record(1).Heads.at(0), "Cookie"), std::nullopt) << "those before it are gone";
        EXPECT_EQ(fieldValue(server.record(1).Heads.at(1), "Cookie"), "id=2");
    }
}

} // namespace
