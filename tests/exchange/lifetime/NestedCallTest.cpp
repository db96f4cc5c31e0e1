// Calls of a connection, and of others, out of the objects that its transfer calls. What would open, close, send or
// copy is refused and changes nothing; what only reads or sets is as good as at any other time.
#include "tests/exchange/TransferFixture.h"
#include "tests/exchange/request/ChallengedUpload.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

using Texts = std::vector<std::string>;

// Where a call comes from, in the order in which the places come in one exchange.
enum class Place {
    ProviderStart, // nothing has been sent
    SendReport,    // content is sent, and the head of the response is there
    ProviderRead,
    ConsumerStart, // half of the content is there
    ConsumerPut,
    ReceiveReport,
    ConsumerClose,
};
constexpr Place kPlaces[] = {Place::ProviderStart, Place::SendReport,    Place::ProviderRead, Place::ConsumerStart,
                            Place::ConsumerPut,   Place::ReceiveReport, Place::ConsumerClose};
constexpr const char* kPlaceNames[] = {"ProviderStart", "SendReport",    "ProviderRead", "ConsumerStart",
                                      "ConsumerPut",   "ReceiveReport", "ConsumerClose"};

class WithAnother : public TransferFixture {
protected:
    // An object that has had its exchange and is closed.
    Object makeOther() {
        ScriptedServer& server = serve({step::expectHead(), step::send(response("for the other", {}, "202 Accepted"))});
        Object other = open(server.url("/other"));
        EXPECT_EQ(receiveBytes(other), "for the other");
        other.call("closeConnection");
        return other;
    }
};

// The upload of a provider's content, whose answer begins early, so that a reporter is called while it is sent, and
// goes to a consumer. At one place, once, an action is run.
class Nested : public WithAnother {
protected:
    Nested()
        : Sent(patternedBytes(100'000)), Answer(patternedBytes(40'000)),
          Server(serve({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nX-A: 1\r\nContent-Length: 40000\r\n\r\n"),
                        step::signal("head"), step::expectChunkedBody(), step::send(Answer.substr(0, 20'000)),
                        step::await("the rest"), step::send(Answer.substr(20'000))})),
          Provider(makeScriptedProvider(host(), Sent)), Consumer(makeScriptedConsumer(host())),
          Reporter(makeScriptedReporter(host())), Connection(makeFor(Server.url("/"))) {}

    void runAt(Place place, std::function<void()> action) {
        const auto at = [this, place, action = std::move(action)](Place here) {
            if (here == place && ++Runs == 1) {
                action();
            }
        };
        Provider->OnStart = [at](int) { at(Place::ProviderStart); };
        Provider->OnRead = [this, at](int call, std::uint64_t wanted) {
            if (call == 2) {
                Server.waitFor("head");
            }
            if (!Reporter->Counts.empty()) { // so the head of the answer is known
                at(Place::ProviderRead);
            }
            const std::string piece = Provider->Content.substr(Provider->Position, wanted);
            Provider->Position += piece.size();
            return Array::bytes(std::string_view(piece));
        };
        Reporter->OnUpdate = [this, at](int, std::uint64_t) {
            at(Consumer->Calls.empty() ? Place::SendReport : Place::ReceiveReport);
            if (!Consumer->Calls.empty()) {
                Server.raise("the rest");
            }
            return Array(true);
        };
        Consumer->OnStart = [at] {
            at(Place::ConsumerStart);
            return Array();
        };
        Consumer->OnPut = [at](int, const std::string& piece) {
            at(Place::ConsumerPut);
            return Array(static_cast<double>(piece.size()));
        };
        Consumer->OnClose = [at] { at(Place::ConsumerClose); };
    }
    void openUpload() {
        Connection.call("openConnection");
        Connection.set("RequestMethod", "PUT");
        Connection.call("removeField", {"Expect"});
        Connection.set("Provider", Provider);
        Connection.set("Consumer", Consumer);
        Connection.set("ProgressReporter", Reporter);
    }
    // Whatever was tried, it is one exchange, and whole.
    void expectWhole() {
        EXPECT_EQ(difference(receiveBytes(Connection), Answer), "");
        EXPECT_EQ(difference(Consumer->content(), Answer), "");
        EXPECT_EQ(Consumer->Calls.front(), "start");
        EXPECT_EQ(Consumer->Calls.back(), "close");
        EXPECT_EQ(Connection.get("ResponseCode").number(), 200.0);
        const Record record = Server.record();
        EXPECT_EQ(Server.connectionCount(), 1U);
        EXPECT_EQ(record.Heads.size(), 1U);
        EXPECT_EQ(startLine(record.Heads.at(0)), "PUT / HTTP/1.1");
        EXPECT_EQ(difference(record.Bodies.at(0), Sent), "");
        EXPECT_EQ(Provider->Starts, 1);
        EXPECT_GE(Runs, 1) << "nothing was tried";
    }
    // The object is still good for another exchange, also in the hands of another server.
    void expectUsable() {
        ScriptedServer& next = serve({step::expectHead(), step::send(response("next"))});
        Connection.call("closeConnection");
        for (const char* property : {"Provider", "Consumer", "ProgressReporter", "Payload"}) {
            Connection.set(property, Array());
        }
        Connection.set("URL", next.url("/next"));
        Connection.call("openConnection");
        EXPECT_EQ(receiveBytes(Connection), "next");
        EXPECT_EQ(startLine(next.record().Heads.at(0)), "GET /next HTTP/1.1");
        expectScopeUsable(Connection);
    }

    std::string Sent;
    std::string Answer;
    ScriptedServer& Server;
    ScriptedProvider Provider;
    ScriptedConsumer Consumer;
    ScriptedReporter Reporter;
    Object Connection;
    int Runs = 0;
};

// What is called, and what it is called in the refusal; null: it is not refused.
struct Member {
    const char* Name;
    const char* Refused;
    void (*Call)(const Object& connection, const std::string& file);
};

void PrintTo(const Member& member, std::ostream* stream) { // for GoogleTest
    *stream << member.Name;
}

constexpr const char* kSending = "Sending the request"; // refused as long as nothing has been sent

// clang-format off
const Member kMembers[] = {
    {"openConnection", "Opening the connection", [](const Object& connection, const std::string&) { connection.call("openConnection"); }},
    {"openProxyConnection", "Opening the connection", [](const Object& connection, const std::string&) { connection.call("openProxyConnection", {Array::structure({{"Host", ""}, {"Port", Array()}})}); }},
    {"closeConnection", "Closing the connection", [](const Object& connection, const std::string&) { connection.call("closeConnection"); }},
    {"copyContentToByteArray", "Copying the content", [](const Object& connection, const std::string&) { connection.call("copyContentToByteArray", {true}); }},
    {"copyContentToConsumer", "Copying the content", [](const Object& connection, const std::string&) { connection.call("copyContentToByteArray", {false}); }},
    {"copyContentToFile", "Copying the content", [](const Object& connection, const std::string& file) { connection.call("copyContentToFile", {file}); }},
    {"RequestMethod", "Setting the request method", [](const Object& connection, const std::string&) { connection.set("RequestMethod", "DELETE"); }},
    {"ResponseCode", kSending, [](const Object& connection, const std::string&) { EXPECT_EQ(connection.get("ResponseCode").number(), 200.0); }},
    {"ContentType", kSending, [](const Object& connection, const std::string&) { EXPECT_EQ(connection.get("ContentType").text(), ""); }},
    {"ContentEncoding", kSending, [](const Object& connection, const std::string&) { EXPECT_EQ(connection.get("ContentEncoding").text(), ""); }},
    {"RedirectURL", kSending, [](const Object& connection, const std::string&) { EXPECT_EQ(connection.get("RedirectURL").text(), ""); }},
    {"getStatusLine", kSending, [](const Object& connection, const std::string&) { EXPECT_EQ(resultTexts(connection, "getStatusLine", 3), (Texts{"HTTP/1.1", "200", "OK"})); }},
    {"getRequestLine", nullptr, [](const Object& connection, const std::string&) { EXPECT_EQ(resultTexts(connection, "getRequestLine", 3), (Texts{"PUT", "/", "HTTP/1.1"})); }},
    {"getRequestMethod", nullptr, [](const Object& connection, const std::string&) { EXPECT_EQ(connection.call("getRequestMethod").text(), "PUT"); }},
    {"properties", nullptr, [](const Object& connection, const std::string&) { EXPECT_EQ(connection.get("RequestMethod").text(), "PUT"); connection.get("ResponsePayload"); connection.get("Sent"); connection.get("Provider"); }},
    {"fields", nullptr, [](const Object& connection, const std::string&) { connection.call("getResponseFields"); connection.call("getRequestFields"); connection.call("getResponseField", {"X-A"}); }},
    {"settings", nullptr, [](const Object& connection, const std::string&) { connection.set("Payload", Array::bytes(std::string_view("x"))); connection.set("Username", "me"); connection.set("URL", "http://127.0.0.1:9/"); connection.call("setRequestProperty", {"X-Late", "1"}); }},
};
// clang-format on
const Member* const kFirstReading = std::begin(kMembers) + 7; // those before it are refused at any time

std::string refusalOf(const Member& member, bool beforeTheSend) {
    const bool refused = member.Refused != nullptr && (member.Refused != kSending || beforeTheSend);
    return refused ? std::string("VANTIK:webservices:InternalError(") + member.Refused +
                         " is not possible from within the transfer that runs. Wait until it has ended.)"
                   : "nothing";
}

class NestedCall : public Nested, public ::testing::WithParamInterface<std::tuple<Place, Member>> {};

TEST_P(NestedCall, LeavesTheRunningTransferWhole) {
    const auto& [place, member] = GetParam();
    const std::string file = Folder.file("saved");
    writeFile(file, "older");
    std::string outcome = "not run";
    runAt(place, [&, &call = member.Call] { outcome = outcomeOf([&] { call(Connection, file); }); });
    openUpload();
    expectWhole();
    EXPECT_EQ(outcome, refusalOf(member, place == Place::ProviderStart));
    EXPECT_EQ(readFile(file), "older");
    expectUsable();
}

INSTANTIATE_TEST_SUITE_P(Rows, NestedCall,
                         ::testing::Combine(::testing::ValuesIn(kPlaces), ::testing::ValuesIn(kMembers)),
                         [](const auto& info) {
                             return std::string(kPlaceNames[static_cast<int>(std::get<0>(info.param))]) + "_" +
                                    std::get<1>(info.param).Name;
                         });

class NestedFailure : public Nested, public ::testing::WithParamInterface<Place> {};

// Where nobody catches the refusal, it ends the transfer, like any other failure of the object that made the call.
TEST_P(NestedFailure, ReachesTheCaller) {
    runAt(GetParam(), [&] { Connection.call("closeConnection"); });
    openUpload();
    EXPECT_EQ(outcomeOf([&] { receiveBytes(Connection); }),
              "VANTIK:webservices:InternalError(Closing the connection is not possible from within the transfer that "
              "runs. Wait until it has ended.)");
    EXPECT_EQ(outcomeOf([&] { makeAdapter(); }), kOnlyOneTransfer) << "it was not closed";
    expectUsable();
}

INSTANTIATE_TEST_SUITE_P(Rows, NestedFailure,
                         ::testing::Values(Place::ProviderStart, Place::ProviderRead, Place::SendReport,
                                           Place::ConsumerStart, Place::ConsumerPut, Place::ReceiveReport),
                         [](const auto& info) { return std::string(kPlaceNames[static_cast<int>(info.param)]); });

// What is done with another object of the scope, and what is seen of it.
struct Act {
    const char* Name;
    const char* Outcome;
    void (*Run)(Object& other);
};

void PrintTo(const Act& act, std::ostream* stream) {
    *stream << act.Name;
}

// clang-format off
const Act kActs[] = {
    {"Destroy", "nothing", [](Object& other) { other = Object(); }},
    {"Close", "nothing", [](Object& other) { other.call("closeConnection"); }},
    {"Open", kOnlyOneTransfer, [](Object& other) { other.call("openConnection"); }},
    {"Copy", "nothing", [](Object& other) { EXPECT_EQ(receiveBytes(other), ""); }},
    {"ReadStatus", "nothing", [](Object& other) { EXPECT_EQ(other.get("ResponseCode").number(), 202.0); }},
    {"SetMethod", "nothing", [](Object& other) { other.set("RequestMethod", "DELETE"); }},
    {"CloseAll", "VANTIK:webservices:InternalError(resetHandles() called when connection is open)", [](Object& other) { other.call("closeAllConnections"); }},
};
// clang-format on

class CallOfAnother : public Nested, public ::testing::WithParamInterface<std::tuple<Place, Act>> {};

TEST_P(CallOfAnother, LeavesTheRunningTransferWhole) {
    const auto& [place, act] = GetParam();
    Object other = makeOther();
    std::string outcome = "not run";
    runAt(place, [&, &doIt = act.Run] { outcome = outcomeOf([&] { doIt(other); }); });
    openUpload();
    expectWhole();
    EXPECT_EQ(outcome, act.Outcome);
    expectUsable();
}

INSTANTIATE_TEST_SUITE_P(Rows, CallOfAnother,
                         ::testing::Combine(::testing::ValuesIn(kPlaces), ::testing::ValuesIn(kActs)),
                         [](const auto& info) {
                             return std::string(kPlaceNames[static_cast<int>(std::get<0>(info.param))]) + "_" +
                                    std::get<1>(info.param).Name;
                         });

class NestedLife : public Nested, public ::testing::WithParamInterface<Place> {};

TEST_P(NestedLife, CannotBeginForAnotherObject) {
    std::string outcome = "not run";
    runAt(GetParam(), [&] { outcome = outcomeOf([&] { makeAdapter(); }); });
    openUpload();
    expectWhole();
    EXPECT_EQ(outcome, kOnlyOneTransfer);
    expectUsable();
}

// The call that runs holds its object until it returns.
TEST_P(NestedLife, EndsAfterTheTransfer) {
    runAt(GetParam(), [&] { Connection = Object(); });
    openUpload();
    EXPECT_EQ(difference(receiveBytes(Connection), Answer), "");
    EXPECT_FALSE(Connection);
    EXPECT_EQ(difference(Consumer->content(), Answer), "");
    EXPECT_EQ(difference(Server.record().Bodies.at(0), Sent), "");
    expectScopeUsable();
}

INSTANTIATE_TEST_SUITE_P(Rows, NestedLife, ::testing::ValuesIn(kPlaces),
                         [](const auto& info) { return std::string(kPlaceNames[static_cast<int>(info.param)]); });

// A rewind calls the provider inside libcurl's own call, where nothing may touch the handles.
class NestedRewind : public WithAnother {
protected:
    void expectTakenAfter(const std::function<void(const Object& connection, Object& other)>& action) {
        Object other = makeOther();
        ScriptedServer& server =
            serve({{step::expectHead(), step::expectBody(2000), step::send(kChallenge), step::signal("challenged"),
                    step::awaitPeerEnd()},
                   {step::expectHead(), step::expectChunkedBody(), step::send(response("taken"))}});
        const ScriptedProvider provider = makeScriptedProvider(host(), patternedBytes(10'000));
        const Object connection = open(server.url("/"));
        provider->OnStart = [&](int call) {
            if (call == 2) {
                action(connection, other);
            }
        };
        provider->OnRead = [&](int call, std::uint64_t wanted) {
            if (call == 5) {
                server.waitFor("challenged");
            }
            const std::string piece = provider->Content.substr(provider->Position, wanted);
            provider->Position += piece.size();
            return Array::bytes(std::string_view(piece));
        };
        connection.set("RequestMethod", "PUT");
        connection.call("removeField", {"Expect"});
        connection.set("Provider", provider);
        connection.set("ProviderBufferSize", std::uint64_t{1000});
        setLogin(connection, "Aladdin", "open sesame", {"Basic", "Digest"});
        EXPECT_EQ(receiveBytes(connection), "taken");
        EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
        EXPECT_EQ(provider->Starts, 2);
        EXPECT_EQ(difference(server.record(1).Bodies.at(0), provider->Content), "");
        expectScopeUsable(connection);
    }
};

class CallOfARewind : public NestedRewind, public ::testing::WithParamInterface<Member> {};

TEST_P(CallOfARewind, LeavesTheTransferWhole) {
    const Member& member = GetParam();
    const std::string file = Folder.file("saved");
    writeFile(file, "older");
    std::string outcome = "not run";
    expectTakenAfter(
        [&](const Object& connection, Object&) { outcome = outcomeOf([&] { member.Call(connection, file); }); });
    EXPECT_EQ(outcome, refusalOf(member, false));
    EXPECT_EQ(readFile(file), "older");
}

INSTANTIATE_TEST_SUITE_P(Rows, CallOfARewind, ::testing::ValuesIn(std::begin(kMembers), kFirstReading),
                         [](const auto& info) { return std::string(info.param.Name); });

class ActOfARewind : public NestedRewind, public ::testing::WithParamInterface<Act> {};

TEST_P(ActOfARewind, LeavesTheTransferWhole) {
    std::string outcome = "not run";
    expectTakenAfter([&](const Object&, Object& other) { outcome = outcomeOf([&] { GetParam().Run(other); }); });
    EXPECT_EQ(outcome, GetParam().Outcome);
}

INSTANTIATE_TEST_SUITE_P(Rows, ActOfARewind, ::testing::ValuesIn(kActs),
                         [](const auto& info) { return std::string(info.param.Name); });

} // namespace
