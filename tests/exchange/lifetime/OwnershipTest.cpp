// Several objects on the one pair of handles of a scope: what is one object's is not changed, shown or sent by another.
#include "tests/exchange/ExchangeFixture.h"

namespace {

using namespace testsupport;

// How far the exchange of the open object has come.
enum class Stage { Opened, StatusRead, Copied };
std::string nameOf(Stage stage) {
    return stage == Stage::Opened ? "Opened" : stage == Stage::StatusRead ? "StatusRead" : "Copied";
}

// An object b with a login that is open on a server of its own. The second half of its content comes once the test
// lets it.
class Ownership : public ExchangeFixture {
protected:
    Ownership()
        : Content(patternedBytes(2000)),
          Server(serve(answers("HTTP/1.1 200 OK\r\nContent-Length: 2000\r\n\r\n" + Content.substr(0, 1000)) +
                       Script{step::await("the rest"), step::send(Content.substr(1000))} + answers(response("next")))) {
    }

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
    }
    // b gets what its server sent for its own request, and its server has seen exactly that.
    void expectWhole(Stage stage, const Object& b) {
        if (stage != Stage::Copied) {
            expectContent(b);
        }
        EXPECT_EQ(b.get("ResponseCode").number(), 200.0);
        EXPECT_EQ(Server.record().Received, "GET /b HTTP/1.1\r\nHost: " + Server.authority() +
                                                "\r\nAuthorization: Basic YjpzZWNyZXQ=\r\n\r\n"); // b:secret
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

class OpenOfAnother : public Ownership, public ::testing::WithParamInterface<Stage> {};

TEST_P(OpenOfAnother, IsRefusedAndTouchesNothing) {
    ScriptedServer& other = serve(answers(response("for a")));
    const Object a = makeFor(other.url("/a"));
    const Object b = makeFor(Server.url("/b"));
    openTo(GetParam(), b);
    EXPECT_EQ(outcomeOf([&] { a.call("openConnection"); }), kOnlyOneTransfer);
    EXPECT_EQ(outcomeOf([&] { openThroughProxy(a, other.port()); }), kOnlyOneTransfer);
    expectWhole(GetParam(), b);
    EXPECT_EQ(receiveBytes(a), "") << "a is not open";
    EXPECT_EQ(other.connectionCount(), 0U) << other.record().Received;
    a.call("openConnection");
    EXPECT_EQ(receiveBytes(a), "for a");
    EXPECT_EQ(fieldValue(other.record().Heads.at(0), "Authorization"), std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(Stages, OpenOfAnother, ::testing::Values(Stage::Opened, Stage::StatusRead, Stage::Copied),
                         kRowName);

// What the other object a has gone through before b is opened.
struct Past {
    const char* Name;
    double Status;                 // that a shows then
    void (*Live)(const Object& a); // null: nothing
};
const Past kPasts[] = {
    {"Fresh", 0, nullptr},
    {"OpenedAndClosed", 0, [](const Object&) {}},
    {"ClosedInTheMiddle", 202, [](const Object& a) { EXPECT_EQ(a.get("ResponseCode").number(), 202.0); }},
    {"Copied", 202, [](const Object& a) { EXPECT_EQ(receiveBytes(a), "content"); }}};

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
    {"SetContent", "nothing", [](Object& a, double) { a.set("Payload", Array::bytes("of a")); a.set("PostData", "of a"); }},
    {"SetFields", "nothing", [](Object& a, double) { a.call("setRequestProperty", {"X-Field", "1"}); a.call("setRequestProperty", {"Cookie", "of=a"}); }},
    {"SetLimits", "nothing", [](Object& a, double) { a.set("TimeoutInMilliseconds", Array::doubles({1, 1, 1})); }},
    {"ReadStatus", "nothing", [](Object& a, double status) { EXPECT_EQ(a.get("ResponseCode").number(), status); }},
    {"ReadFields", "nothing", [](Object& a, double status) { EXPECT_EQ(a.call("getResponseField", {"X-Of"}).textOr(""), status == 0 ? "" : "a"); }},
    {"Copy", "nothing", [](Object& a, double) { EXPECT_EQ(receiveBytes(a), ""); }},
    {"CloseAll", kStillOpen, [](Object& a, double) { a.call("closeAllConnections"); }},
};
// clang-format on

class ActionOnAnother : public Ownership, public ::testing::WithParamInterface<std::tuple<Past, Action, Stage>> {};

TEST_P(ActionOnAnother, ChangesNothingForTheOpenOne) {
    const auto& [past, action, stage] = GetParam();
    const std::string size = std::string(past.Name) == "Copied" ? "7" : "1000";
    ScriptedServer& other =
        serve(breaksOff("HTTP/1.1 202 Accepted\r\nX-Of: a\r\nContent-Length: " + size + "\r\n\r\ncontent"));
    Object a = makeFor(other.url("/a"));
    const Object b = makeFor(Server.url("/b"));
    if (past.Live != nullptr) {
        a.call("openConnection");
        past.Live(a);
        a.call("closeConnection");
    }
    openTo(stage, b);
    EXPECT_EQ(outcomeOf([&, &run = action.Run, status = past.Status] { run(a, status); }), action.Outcome);
    expectWhole(stage, b);
}

INSTANTIATE_TEST_SUITE_P(Rows, ActionOnAnother,
                         ::testing::Combine(::testing::ValuesIn(kPasts), ::testing::ValuesIn(kActions),
                                            ::testing::Values(Stage::Opened, Stage::StatusRead)),
                         kRowName);

class SeveralObjects : public ExchangeFixture {};

// Each object leaves the handles in another state than the one before it: unsent, in the middle of a response, with all
// of it waiting, or copied. A response that is not read to its end costs the connection.
TEST_F(SeveralObjects, InTurnsGetEachTheirOwn) {
    const Texts names = {"a", "b", "c"};
    std::vector<Object> objects;
    std::vector<ScriptedServer*> servers;
    for (const std::string& name : names) {
        const Script whole = answers(response("of " + name, {"X-Of: " + name}));
        servers.push_back(&serve({whole, breaksOff(kPart), whole}));
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
}

TEST_F(SeveralObjects, AFreshOneShowsNothingOfTheExchangeOfAnother) {
    ScriptedServer& server =
        serve(answers(response("a", {"Content-Type: a/b", "Location: /c"}, "202 Accepted")) + answers(response("b")));
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
    fresh.call("closeConnection");
}

// At the first open of a scope no reset would take the method back.
TEST_F(SeveralObjects, AFreshOnePassesItsMethodToNobody) {
    for (const char* method : {"DELETE", "HEAD"}) {
        for (const bool dropped : {false, true}) {
            vantik::Host own;
            own.load(modulePath());
            ScriptedServer& server = serve(answers(response("whole")));
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

// Its own challenge lets an object go on with its options and with libcurl's login; that of another does not.
TEST_F(SeveralObjects, NothingOfAChallengedOneIsSentForAnother) {
    struct Row {
        const char* Method;
        const char* Scheme;
        bool OptionsMode;
        bool SameServer;
        std::size_t Requests; // of the one that is challenged: a login may have to be asked for first
    };
    for (const Row& row : {Row{"PURGE", "Basic", true, false, 1},
                           {"HEAD", "Basic", true, false, 1},
                           {"PUT", "Basic", true, false, 1},
                           {"GET", "Digest", true, false, 2},
                           {"PURGE", "Basic", false, false, 2},
                           {"PURGE", "Basic", true, true, 1},
                           {"GET", "Digest", true, true, 2}}) {
        const std::string method = row.Method;
        SCOPED_TRACE(method + " " + row.Scheme);
        const std::string denial = method == "HEAD" ? "" : "denied";
        const std::string challenge =
            response(denial, {"WWW-Authenticate: Digest realm=\"r\", nonce=\"abc\", qop=\"auth\""}, "401 Unauthorized");
        Script refusing;
        for (std::size_t request = 0; request < row.Requests; ++request) {
            refusing = refusing + (method == "PUT" ? takes(challenge) : answers(challenge));
        }
        const Script answering = answers(response("for b"));
        ScriptedServer& first = serve(row.SameServer ? refusing + answering : refusing);
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
            a.set("Payload", Array::bytes("content of a"));
        }
        EXPECT_EQ(a.get("ResponseCode").number(), 401.0);
        if (row.OptionsMode) {
            EXPECT_EQ(receiveBytes(a), denial);
        }
        EXPECT_EQ(first.record().Heads.size(), row.Requests);
        const std::size_t before = row.SameServer ? first.record().Received.size() : 0;
        a.call("closeConnection");
        b.call("openConnection");
        EXPECT_EQ(receiveBytes(b), "for b");
        EXPECT_EQ(b.get("ResponseCode").number(), 200.0);
        EXPECT_EQ(second.record().Received.substr(before),
                  "GET /b HTTP/1.1\r\nHost: " + second.authority() + "\r\n\r\n");
        expectScopeUsable(b);
        b.call("closeAllConnections"); // libcurl closes any one once it has kept four
    }
}

} // namespace
