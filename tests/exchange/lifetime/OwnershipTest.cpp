// Several objects on the one pair of handles of a scope: what is one object's is not changed, shown or sent by another.
// And one object opened again: nothing of its last exchange comes into the next.
#include "tests/exchange/TransferFixture.h"
#include "tests/exchange/request/ChallengedUpload.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <tuple>
#include <vector>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

using Texts = std::vector<std::string>;

const std::string kLogin = "Basic YjpzZWNyZXQ="; // b:secret

// How far the exchange of the open object has come.
enum class Stage { Opened, StatusRead, Copied };
constexpr const char* kStageNames[] = {"Opened", "StatusRead", "Copied"};

// An object b with a login that is open on a server of its own. The second half of its content comes once the test
// lets it.
class Ownership : public TransferFixture {
protected:
    Ownership()
        : Content(patternedBytes(2000)),
          Server(serve(Script{step::expectHead(),
                              step::send("HTTP/1.1 200 OK\r\nContent-Length: 2000\r\n\r\n" + Content.substr(0, 1000)),
                              step::await("the rest"), step::send(Content.substr(1000)), step::expectHead(),
                              step::send(response("next"))})) {}

    void openTo(Stage stage, const Object& b) {
        b.call("openConnection");
        setLogin(b, "b", "secret");
        if (stage == Stage::StatusRead) {
            EXPECT_EQ(b.get("ResponseCode").number(), 200.0);
        }
        if (stage == Stage::Copied) {
            expectContent(b);
        }
    }
    void expectContent(const Object& b) {
        Server.raise("the rest");
        EXPECT_EQ(difference(receiveBytes(b), Content), "");
        EXPECT_EQ(b.get("ResponseCode").number(), 200.0);
    }
    // b gets what its server sent for its own request, and its server has seen exactly that.
    void expectWhole(Stage stage, const Object& b) {
        if (stage != Stage::Copied) {
            expectContent(b);
        }
        EXPECT_EQ(b.get("ResponseCode").number(), 200.0);
        EXPECT_EQ(Server.record().Received,
                  "GET /b HTTP/1.1\r\nHost: " + Server.authority() + "\r\nAuthorization: " + kLogin + "\r\n\r\n");
        EXPECT_EQ(Server.connectionCount(), 1U);
        EXPECT_EQ(outcomeOf([&] { makeAdapter(); }), kOnlyOneTransfer) << "b is still open";
        b.call("closeConnection");
        b.call("openConnection");
        EXPECT_EQ(receiveBytes(b), "next");
        EXPECT_EQ(startLine(Server.record().Heads.at(1)), "GET /b HTTP/1.1");
        expectScopeUsable(b);
    }

    std::string Content;
    ScriptedServer& Server;
};

class OpenOfAnother : public Ownership, public ::testing::WithParamInterface<std::tuple<Stage, bool>> {};

TEST_P(OpenOfAnother, IsRefusedAndTouchesNothing) {
    const auto [stage, byProxy] = GetParam();
    ScriptedServer& other = serve({step::expectHead(), step::send(response("for a"))});
    const Object a = makeFor(other.url("/a"));
    const Object b = makeFor(Server.url("/b"));
    openTo(stage, b);
    const auto openOther = [&] {
        if (byProxy) {
            a.call("openProxyConnection",
                   {Array::structure({{"Host", "127.0.0.1"}, {"Port", static_cast<double>(other.port())}})});
        } else {
            a.call("openConnection");
        }
    };
    EXPECT_EQ(outcomeOf(openOther), kOnlyOneTransfer);
    expectWhole(stage, b);
    EXPECT_EQ(receiveBytes(a), "") << "a is not open";
    EXPECT_EQ(other.connectionCount(), 0U) << other.record().Received;
    a.call("openConnection");
    EXPECT_EQ(receiveBytes(a), "for a");
    EXPECT_EQ(fieldValue(other.record().Heads.at(0), "Authorization"), std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(Rows, OpenOfAnother,
                         ::testing::Combine(::testing::Values(Stage::Opened, Stage::StatusRead, Stage::Copied),
                                            ::testing::Bool()),
                         [](const auto& info) {
                             return std::string(kStageNames[static_cast<int>(std::get<0>(info.param))]) +
                                    (std::get<1>(info.param) ? "ByProxy" : "");
                         });

// What the other object a has gone through before b is opened.
struct Past {
    const char* Name;
    double Status; // that a shows then
};
const Past kPasts[] = {{"Fresh", 0}, {"OpenedAndClosed", 0}, {"ClosedInTheMiddle", 202}, {"Copied", 202}};

void PrintTo(const Past& past, std::ostream* stream) { // for GoogleTest
    *stream << past.Name;
}

// What is done with a while b is open, and what its caller sees.
struct Action {
    const char* Name;
    const char* Outcome;
    void (*Run)(Object& a, double status);
};
// clang-format off
const Action kActions[] = {
    {"Close", "nothing", [](Object& a, double) { a.call("closeConnection"); }},
    {"Destroy", "nothing", [](Object& a, double) { a = Object(); }},
    {"CloseAndDestroy", "nothing", [](Object& a, double) { a.call("closeConnection"); a = Object(); }},
    {"OpenWithoutAUrl", "nothing", [](Object& a, double) { a.set("URL", ""); a.call("openConnection"); }},
    {"SetMethodToDelete", "nothing", [](Object& a, double) { a.set("RequestMethod", "DELETE"); }},
    {"SetMethodToHead", "nothing", [](Object& a, double) { a.set("RequestMethod", "HEAD"); }},
    {"SetContent", "nothing", [](Object& a, double) { a.set("Payload", Array::bytes(std::string_view("of a"))); a.set("PostData", "of a"); }},
    {"SetFields", "nothing", [](Object& a, double) { a.call("setRequestProperty", {"X-Field", "1"}); a.call("setRequestProperty", {"Cookie", "of=a"}); }},
    {"SetLimits", "nothing", [](Object& a, double) { a.set("TimeoutInMilliseconds", Array::doubles({1, 1, 1})); }},
    {"ReadStatus", "nothing", [](Object& a, double status) { EXPECT_EQ(a.get("ResponseCode").number(), status); }},
    {"ReadFields", "nothing", [](Object& a, double status) { EXPECT_EQ(a.call("getResponseField", {"X-Of"}).textOr(""), status == 0 ? "" : "a"); }},
    {"Copy", "nothing", [](Object& a, double) { EXPECT_EQ(receiveBytes(a), ""); }},
    {"CloseAll", "VANTIK:webservices:InternalError(resetHandles() called when connection is open)", [](Object& a, double) { a.call("closeAllConnections"); }},
};
// clang-format on

void PrintTo(const Action& action, std::ostream* stream) {
    *stream << action.Name;
}

class ActionOnAnother : public Ownership, public ::testing::WithParamInterface<std::tuple<Past, Action, Stage>> {
protected:
    void live(const Past& past, const Object& a) {
        const std::string name = past.Name;
        if (name == "Fresh") {
            return;
        }
        a.call("openConnection");
        if (name == "ClosedInTheMiddle") {
            EXPECT_EQ(a.get("ResponseCode").number(), 202.0);
        }
        if (name == "Copied") {
            receiveBytes(a);
        }
        a.call("closeConnection");
    }
};

TEST_P(ActionOnAnother, ChangesNothingForTheOpenOne) {
    const auto& [past, action, stage] = GetParam();
    const std::string size = std::string(past.Name) == "Copied" ? "7" : "1000";
    ScriptedServer& other =
        serve({step::expectHead(),
               step::send("HTTP/1.1 202 Accepted\r\nX-Of: a\r\nContent-Length: " + size + "\r\n\r\ncontent"),
               step::awaitPeerEnd()});
    Object a = makeFor(other.url("/a"));
    const Object b = makeFor(Server.url("/b"));
    live(past, a);
    openTo(stage, b);
    EXPECT_EQ(outcomeOf([&, &doIt = action, status = past.Status] { doIt.Run(a, status); }), action.Outcome);
    expectWhole(stage, b);
}

INSTANTIATE_TEST_SUITE_P(Rows, ActionOnAnother,
                         ::testing::Combine(::testing::ValuesIn(kPasts), ::testing::ValuesIn(kActions),
                                            ::testing::Values(Stage::Opened, Stage::StatusRead)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).Name) + "_" + std::get<1>(info.param).Name +
                                    "_" + kStageNames[static_cast<int>(std::get<2>(info.param))];
                         });

class Turns : public TransferFixture {};

// Each object leaves the handles in another state than the one before it: unsent, in the middle of a response, with all
// of it waiting, or copied.
TEST_F(Turns, OfSeveralObjectsGiveEachItsOwn) {
    const auto answers = [](const std::string& name) {
        return Script{step::expectHead(), step::send(response("of " + name, {"X-Of: " + name}))};
    };
    const std::vector<std::string> names = {"a", "b", "c"};
    std::vector<Object> objects;
    std::vector<ScriptedServer*> servers;
    for (const std::string& name : names) {
        // A response that is not read to its end costs the connection.
        const Script unfinished{step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\npart"),
                                step::awaitPeerEnd()};
        servers.push_back(&serve({answers(name), unfinished, answers(name)}));
        objects.push_back(makeFor(servers.back()->url("/" + name)));
    }
    for (int round = 0; round < 4; ++round) {
        for (std::size_t index = 0; index < objects.size(); ++index) {
            const Object& object = objects[index];
            object.call("openConnection");
            object.set("RequestMethod", "OPTIONS");
            object.call("setRequestProperty", {"X-From", names[index]});
            if (round == 0 || round == 3) {
                EXPECT_EQ(receiveBytes(object), "of " + names[index]);
                EXPECT_EQ(object.call("getResponseField", {"X-Of"}).text(), names[index]);
            }
            if (round == 2) {
                EXPECT_EQ(object.get("ResponseCode").number(), 200.0);
            }
            object.call("closeConnection");
            if (round == 0) {
                object.call("closeAllConnections");
            }
        }
    }
    for (std::size_t index = 0; index < objects.size(); ++index) {
        EXPECT_EQ(servers[index]->connectionCount(), 3U);
        for (std::size_t connection = 0; connection < 3; ++connection) {
            EXPECT_EQ(servers[index]->record(connection).Received,
                      "OPTIONS /" + names[index] + " HTTP/1.1\r\nHost: " + servers[index]->authority() +
                          "\r\nX-From: " + names[index] + "\r\n\r\n");
        }
    }
    expectScopeUsable(objects.front());
}

class FreshObject : public TransferFixture {};

TEST_F(FreshObject, ShowsNothingOfTheExchangeOfAnother) {
    ScriptedServer& server =
        serve({step::expectHead(), step::send(response("a", {"Content-Type: a/b", "Location: /c"}, "202 Accepted")),
               step::expectHead(), step::send(response("b"))});
    const Object first = open(server.url("/"));
    first.set("RequestMethod", "OPTIONS");
    EXPECT_EQ(receiveBytes(first), "a");
    first.call("closeConnection");
    const Object fresh = makeFor(server.url("/"));
    EXPECT_EQ(fresh.get("ResponseCode").number(), 0.0);
    EXPECT_EQ(resultTexts(fresh, "getStatusLine", 3), (Texts{"HTTP/1.1", "0", ""}));
    EXPECT_EQ(resultTexts(fresh, "getRequestLine", 2), (Texts{"", "/"}));
    EXPECT_EQ(fieldTexts(fresh.call("getRequestFields")), Texts{});
    EXPECT_EQ(fieldTexts(fresh.call("getResponseFields")), Texts{});
    for (const char* property : {"ContentType", "ContentEncoding", "RedirectURL", "RequestMethod"}) {
        EXPECT_EQ(fresh.get(property).text(), "") << property;
    }
    EXPECT_FALSE(fresh.get("Sent").truth());
    EXPECT_EQ(first.get("ResponseCode").number(), 202.0) << "the first one keeps its own";
    fresh.call("openConnection");
    EXPECT_EQ(receiveBytes(fresh), "b");
    EXPECT_EQ(startLine(server.record().Heads.at(1)), "GET / HTTP/1.1");
    expectScopeUsable(fresh);
}

// At the first open of a scope no reset would take the method back.
TEST_F(FreshObject, GivesItsMethodToNobody) {
    for (const char* method : {"DELETE", "HEAD"}) {
        for (const bool dropped : {false, true}) {
            vantik::Host own;
            own.load(modulePath());
            ScriptedServer& server = serve({step::expectHead(), step::send(response("whole"))});
            Object other = own.create(kAdapterClass, {true});
            const Object connection = own.create(kAdapterClass, {true});
            connection.set("URL", server.url("/"));
            other.set("RequestMethod", method);
            if (dropped) {
                other = Object();
            }
            connection.call("openConnection");
            EXPECT_EQ(receiveBytes(connection), "whole") << method;
            EXPECT_EQ(startLine(server.record().Heads.at(0)), "GET / HTTP/1.1");
        }
    }
}

struct ChallengedRow {
    const char* Name;
    const char* Method;
    const char* Scheme;
    bool OptionsMode;
    bool SameServer;
    int Requests; // of the one that is challenged: a login may have to be asked for first
};

void PrintTo(const ChallengedRow& row, std::ostream* stream) {
    *stream << row.Name;
}

class AfterTheChallengeOfAnother : public TransferFixture, public ::testing::WithParamInterface<ChallengedRow> {};

// Its own challenge lets an object go on with its options and with libcurl's login; that of another does not.
TEST_P(AfterTheChallengeOfAnother, NothingOfItIsSent) {
    const ChallengedRow& row = GetParam();
    const std::string method = row.Method;
    const std::string denial = method == "HEAD" ? "" : "denied";
    Script refusing;
    for (int request = 0; request < row.Requests; ++request) {
        refusing.push_back(step::expectHead());
        if (method == "PUT") {
            refusing.push_back(step::expectChunkedBody());
        }
        refusing.push_back(step::send(response(
            denial, {"WWW-Authenticate: Digest realm=\"r\", nonce=\"abc\", qop=\"auth\""}, "401 Unauthorized")));
    }
    const Script answering{step::expectHead(), step::send(response("for b"))};
    if (row.SameServer) {
        refusing.insert(refusing.end(), answering.begin(), answering.end());
    }
    ScriptedServer& first = serve(refusing);
    ScriptedServer& second = row.SameServer ? first : serve(answering);
    const Object a = makeFor(first.url("/a"), row.OptionsMode);
    const Object b = makeFor(second.url("/b"), row.OptionsMode);
    a.call("openConnection");
    a.set("RequestMethod", method);
    setLogin(a, "Aladdin", "open sesame", {row.Scheme});
    for (const auto& [name, value] :
         {std::pair{"Cookie", "of=a"}, {"X-Field", "1"}, {"Proxy-Connection", "close"}, {"Expect", ""}}) {
        a.call("setRequestProperty", {name, value});
    }
    if (method == "PUT") {
        a.set("Payload", Array::bytes(std::string_view("content of a")));
    }
    EXPECT_EQ(a.get("ResponseCode").number(), 401.0);
    if (row.OptionsMode) {
        EXPECT_EQ(receiveBytes(a), denial);
    }
    EXPECT_EQ(first.record().Heads.size(), static_cast<std::size_t>(row.Requests));
    const std::size_t before = row.SameServer ? first.record().Received.size() : 0;
    a.call("closeConnection");
    b.call("openConnection");
    EXPECT_EQ(receiveBytes(b), "for b");
    EXPECT_EQ(b.get("ResponseCode").number(), 200.0);
    EXPECT_EQ(second.record().Received.substr(before), "GET /b HTTP/1.1\r\nHost: " + second.authority() + "\r\n\r\n");
    expectScopeUsable(b);
}

INSTANTIATE_TEST_SUITE_P(Rows, AfterTheChallengeOfAnother,
                         ::testing::Values(ChallengedRow{"Method", "PURGE", "Basic", true, false, 1},
                                           ChallengedRow{"Head", "HEAD", "Basic", true, false, 1},
                                           ChallengedRow{"Content", "PUT", "Basic", true, false, 1},
                                           ChallengedRow{"Digest", "GET", "Digest", true, false, 2},
                                           ChallengedRow{"OlderMode", "PURGE", "Basic", false, false, 2},
                                           ChallengedRow{"SameServer", "PURGE", "Basic", true, true, 1},
                                           ChallengedRow{"DigestOnTheSameServer", "GET", "Digest", true, true, 2}),
                         [](const auto& info) { return std::string(info.param.Name); });

struct ReopenRow {
    const char* Name;
    const char* Status;
    const char* Content;
    bool WithUpload;
    const char* Read; // the property whose reading sends the request
};

void PrintTo(const ReopenRow& row, std::ostream* stream) {
    *stream << row.Name;
}

class ReopenWithoutACopy : public TransferFixture, public ::testing::WithParamInterface<ReopenRow> {};

// Nothing has been sent since the open, and what the handle still has is the content of the first response.
TEST_P(ReopenWithoutACopy, LeavesNothingToCopyUntilTheClose) {
    const ReopenRow& row = GetParam();
    const auto exchange = [&](const std::string& answer) {
        return row.WithUpload ? Script{step::expectHead(), step::expectChunkedBody(), step::send(answer)}
                              : Script{step::expectHead(), step::send(answer)};
    };
    Script both = exchange(response(row.Content, {}, row.Status));
    const Script second = exchange(response("let in"));
    both.insert(both.end(), second.begin(), second.end());
    ScriptedServer& server = serve({both, second}); // libcurl may keep the connection or not
    const Object connection = makeFor(server.url("/"));
    if (row.WithUpload) {
        connection.set("Payload", Array::bytes(std::string_view("content")));
    }
    const auto openIt = [&] {
        connection.call("openConnection");
        connection.set("RequestMethod", row.WithUpload ? "PUT" : "GET");
        connection.call("removeField", {"Expect"});
    };
    openIt();
    connection.get(row.Read);
    openIt();
    expectCopyRefused(connection, kOpenedAgain);
    EXPECT_EQ(server.connectionCount(), 1U);
    EXPECT_EQ(server.record().Heads.size(), 1U);
    connection.call("closeConnection");
    openIt();
    EXPECT_EQ(receiveBytes(connection), "let in");
    EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
    EXPECT_EQ(allBodies(server), row.WithUpload ? (Texts{"content", "content"}) : Texts{});
    expectScopeUsable(connection);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ReopenWithoutACopy,
    ::testing::Values(ReopenRow{"Success", "200 OK", "content", false, "ResponseCode"},
                      ReopenRow{"SuccessWithoutContent", "200 OK", "", false, "ContentType"},
                      ReopenRow{"Refusal", "403 Forbidden", "no", false, "RedirectURL"},
                      ReopenRow{"Challenge", "401 Unauthorized", "denied", false, "ResponseCode"},
                      ReopenRow{"ChallengeWithoutContent", "401 Unauthorized", "", false, "ContentEncoding"},
                      ReopenRow{"ChallengeOfAnUpload", "401 Unauthorized", "denied", true, "ResponseCode"}),
    [](const auto& info) { return std::string(info.param.Name); });

class CloseAll : public TransferFixture {};

TEST_F(CloseAll, LetsTheObjectCollectCookiesAgain) {
    const auto exchange = [](const std::string& cookie) {
        return Script{step::expectHead(), step::send(response("x", {"Set-Cookie: " + cookie}))};
    };
    for (const bool byAnother : {false, true}) {
        Script second = exchange("id=2");
        const Script third = exchange("id=3");
        second.insert(second.end(), third.begin(), third.end());
        ScriptedServer& server = serve({exchange("id=1"), second});
        const Object other = makeAdapter();
        const Object connection = makeFor(server.url("/"));
        connection.call("openConnection");
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
        expectScopeUsable(connection);
    }
}

// The response that was there went with the handles.
TEST_F(CloseAll, EndsTheTransferOfAClosedObject) {
    ScriptedServer& server = serve(std::vector<Script>{
        {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\npart"), step::awaitPeerEnd()},
        {step::expectHead(), step::send(response("whole"))}});
    const Object connection = open(server.url("/"));
    EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
    connection.call("closeConnection");
    connection.call("closeAllConnections");
    EXPECT_TRUE(server.waitUntilDone(0).PeerEnded);
    EXPECT_EQ(receiveBytes(connection), "") << "it is closed";
    EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
    connection.call("openConnection");
    EXPECT_EQ(receiveBytes(connection), "whole");
    expectScopeUsable(connection);
}

} // namespace
