// Calls of a connection, and of others, out of the objects that its transfer calls. What would open, close, send or
// copy is refused and changes nothing; what only reads or sets is as good as at any other time.
#include "tests/exchange/ExchangeFixture.h"

#include <functional>

namespace {

using namespace testsupport;

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

std::string nameOf(Place place) {
    constexpr const char* names[] = {"ProviderStart", "SendReport",    "ProviderRead", "ConsumerStart",
                                     "ConsumerPut",   "ReceiveReport", "ConsumerClose"};
    return names[static_cast<int>(place)];
}

class Nested : public ExchangeFixture {
protected:
    Nested() : Other(makeFor(serve(answers(response("for the other", {}, "202 Accepted"))).url("/other"))) {
        Other.call("openConnection");
        EXPECT_EQ(receiveBytes(Other), "for the other");
        Other.call("closeConnection");
        writeFile(File, "older");
    }
    ~Nested() override { EXPECT_EQ(readFile(File), "older") << "nothing was saved"; }

    Object Other; // has had its exchange and is closed

public: // for the calls below
    using HostFixture::makeAdapter;
    const std::string File = Folder.file("saved");
};

// The upload of a provider's content, whose answer begins early, so that a reporter is called while it is sent, and
// goes to a consumer. At one place, once, an action is run.
class NestedUpload : public Nested {
protected:
    NestedUpload()
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
            return nextPiece(Provider, wanted);
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
            return allOf(piece);
        };
        Consumer->OnClose = [at] { at(Place::ConsumerClose); };
    }
    void openUpload() {
        Connection.call("openConnection");
        prepareUpload(Connection, Provider);
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

    std::string Sent;
    std::string Answer;
    ScriptedServer& Server;
    ScriptedProvider Provider;
    ScriptedConsumer Consumer;
    ScriptedReporter Reporter;
    Object Connection;
    int Runs = 0;
};

std::string refusalOf(const std::string& what) {
    return "VANTIK:webservices:InternalError(" + what +
           " is not possible from within the transfer that runs. Wait until it has ended.)";
}

// What is called of the connection, or of another object of its scope, and what comes of it.
struct Call {
    const char* Name;
    std::string Outcome;
    void (*Run)(Nested& test, const Object& c, Object& other);
    bool Sends = false; // refused as long as nothing has been sent
};

// clang-format off
const Call kRefusedCalls[] = { // at any time
    {"Open", refusalOf("Opening the connection"), [](Nested&, const Object& c, Object&) { c.call("openConnection"); }},
    {"OpenByProxy", refusalOf("Opening the connection"), [](Nested&, const Object& c, Object&) { c.call("openProxyConnection", {Array::structure({{"Host", ""}, {"Port", Array()}})}); }},
    {"Close", refusalOf("Closing the connection"), [](Nested&, const Object& c, Object&) { c.call("closeConnection"); }},
    {"Copy", refusalOf("Copying the content"), [](Nested&, const Object& c, Object&) { c.call("copyContentToByteArray", {true}); }},
    {"CopyToConsumer", refusalOf("Copying the content"), [](Nested&, const Object& c, Object&) { c.call("copyContentToByteArray", {false}); }},
    {"CopyToFile", refusalOf("Copying the content"), [](Nested& test, const Object& c, Object&) { c.call("copyContentToFile", {test.File}); }},
    {"SetMethod", refusalOf("Setting the request method"), [](Nested&, const Object& c, Object&) { c.set("RequestMethod", "DELETE"); }},
};
const Call kCallsOfAnother[] = {
    {"BuildAnother", kOnlyOneTransfer, [](Nested& test, const Object&, Object&) { test.makeAdapter(); }},
    {"DestroyAnother", "nothing", [](Nested&, const Object&, Object& other) { other = Object(); }},
    {"CloseAnother", "nothing", [](Nested&, const Object&, Object& other) { other.call("closeConnection"); }},
    {"OpenAnother", kOnlyOneTransfer, [](Nested&, const Object&, Object& other) { other.call("openConnection"); }},
    {"CopyAnother", "nothing", [](Nested&, const Object&, Object& other) { EXPECT_EQ(receiveBytes(other), ""); }},
    {"ReadStatusOfAnother", "nothing", [](Nested&, const Object&, Object& other) { EXPECT_EQ(other.get("ResponseCode").number(), 202.0); }},
    {"SetMethodOfAnother", "nothing", [](Nested&, const Object&, Object& other) { other.set("RequestMethod", "DELETE"); }},
    {"CloseAll", kStillOpen, [](Nested&, const Object&, Object& other) { other.call("closeAllConnections"); }},
};
const Call kReadingAndSetting[] = {
    {"ResponseCode", "nothing", [](Nested&, const Object& c, Object&) { EXPECT_EQ(c.get("ResponseCode").number(), 200.0); }, true},
    {"ContentType", "nothing", [](Nested&, const Object& c, Object&) { EXPECT_EQ(c.get("ContentType").text(), ""); }, true},
    {"ContentEncoding", "nothing", [](Nested&, const Object& c, Object&) { EXPECT_EQ(c.get("ContentEncoding").text(), ""); }, true},
    {"RedirectURL", "nothing", [](Nested&, const Object& c, Object&) { EXPECT_EQ(c.get("RedirectURL").text(), ""); }, true},
    {"StatusLine", "nothing", [](Nested&, const Object& c, Object&) { EXPECT_EQ(resultTexts(c, "getStatusLine", 3), (Texts{"HTTP/1.1", "200", "OK"})); }, true},
    {"RequestLine", "nothing", [](Nested&, const Object& c, Object&) { EXPECT_EQ(resultTexts(c, "getRequestLine", 3), (Texts{"PUT", "/", "HTTP/1.1"})); }},
    {"RequestMethod", "nothing", [](Nested&, const Object& c, Object&) { EXPECT_EQ(c.call("getRequestMethod").text(), "PUT"); }},
    {"Properties", "nothing", [](Nested&, const Object& c, Object&) { EXPECT_EQ(c.get("RequestMethod").text(), "PUT"); c.get("ResponsePayload"); c.get("Sent"); c.get("Provider"); }},
    {"Fields", "nothing", [](Nested&, const Object& c, Object&) { c.call("getResponseFields"); c.call("getRequestFields"); c.call("getResponseField", {"X-A"}); }},
    {"Settings", "nothing", [](Nested&, const Object& c, Object&) { c.set("Payload", Array::bytes("x")); c.set("Username", "me"); c.set("URL", "http://127.0.0.1:9/"); c.call("setRequestProperty", {"X-Late", "1"}); }},
};
// clang-format on

class NestedCall : public NestedUpload, public ::testing::WithParamInterface<std::tuple<Place, Call>> {};

TEST_P(NestedCall, LeavesTheRunningTransferWhole) {
    const auto& [place, call] = GetParam();
    std::string outcome = "not run";
    runAt(place, [&, &run = call.Run] { outcome = outcomeOf([&] { run(*this, Connection, Other); }); });
    openUpload();
    expectWhole();
    EXPECT_EQ(outcome, call.Sends && place == Place::ProviderStart ? refusalOf("Sending the request") : call.Outcome);
    expectObjectUsable(Connection);
}

INSTANTIATE_TEST_SUITE_P(Refused, NestedCall,
                         ::testing::Combine(::testing::ValuesIn(kPlaces), ::testing::ValuesIn(kRefusedCalls)),
                         kRowName);
INSTANTIATE_TEST_SUITE_P(Reading, NestedCall,
                         ::testing::Combine(::testing::ValuesIn(kPlaces), ::testing::ValuesIn(kReadingAndSetting)),
                         kRowName);
INSTANTIATE_TEST_SUITE_P(OfAnother, NestedCall,
                         ::testing::Combine(::testing::ValuesIn(kPlaces), ::testing::ValuesIn(kCallsOfAnother)),
                         kRowName);

class NestedFailure : public NestedUpload, public ::testing::WithParamInterface<Place> {};

// Where nobody catches the refusal, it ends the transfer, like any other failure of the object that made the call.
TEST_P(NestedFailure, ReachesTheCaller) {
    runAt(GetParam(), [&] { Connection.call("closeConnection"); });
    openUpload();
    EXPECT_EQ(outcomeOf([&] { receiveBytes(Connection); }), refusalOf("Closing the connection"));
    EXPECT_EQ(outcomeOf([&] { makeAdapter(); }), kOnlyOneTransfer) << "it was not closed";
    expectObjectUsable(Connection);
}

INSTANTIATE_TEST_SUITE_P(Rows, NestedFailure,
                         ::testing::Values(Place::ProviderStart, Place::ProviderRead, Place::SendReport,
                                           Place::ConsumerStart, Place::ConsumerPut, Place::ReceiveReport),
                         kRowName);

class NestedLife : public NestedUpload, public ::testing::WithParamInterface<Place> {};

// The call that runs holds its object until it returns.
TEST_P(NestedLife, EndsAfterTheTransfer) {
    runAt(GetParam(), [&] { Connection = Object(); });
    openUpload();
    EXPECT_EQ(difference(receiveBytes(Connection), Answer), "");
    EXPECT_FALSE(Connection);
    EXPECT_EQ(difference(Consumer->content(), Answer), "");
    EXPECT_EQ(difference(Server.record().Bodies.at(0), Sent), "");
}

INSTANTIATE_TEST_SUITE_P(Rows, NestedLife, ::testing::ValuesIn(kPlaces), kRowName);

class NestedRewind : public Nested, public ::testing::WithParamInterface<Call> {};

// A rewind calls the provider inside libcurl's own call, where nothing may touch the handles.
TEST_P(NestedRewind, LeavesTheTransferWhole) {
    ScriptedServer& server = serve({{step::expectHead(), step::expectBody(2000), step::send(kChallenge),
                                     step::signal("challenged"), step::awaitPeerEnd()},
                                    takes(response("taken"))});
    const ScriptedProvider provider = makeScriptedProvider(host(), patternedBytes(10'000));
    const Object connection = openUpload(server.url("/"), provider);
    std::string outcome = "not run";
    provider->OnStart = [&](int call) {
        if (call == 2) {
            outcome = outcomeOf([&] { GetParam().Run(*this, connection, Other); });
        }
    };
    provider->OnRead = [&](int call, std::uint64_t wanted) {
        if (call == 5) {
            server.waitFor("challenged");
        }
        return nextPiece(provider, wanted);
    };
    connection.set("ProviderBufferSize", std::uint64_t{1000});
    setLogin(connection, "Aladdin", "open sesame", {"Basic", "Digest"});
    EXPECT_EQ(receiveBytes(connection), "taken");
    EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
    EXPECT_EQ(provider->Starts, 2);
    EXPECT_EQ(difference(server.record(1).Bodies.at(0), provider->Content), "");
    EXPECT_EQ(outcome, GetParam().Outcome);
}

INSTANTIATE_TEST_SUITE_P(Refused, NestedRewind, ::testing::ValuesIn(kRefusedCalls), kRowName);
INSTANTIATE_TEST_SUITE_P(OfAnother, NestedRewind, ::testing::ValuesIn(kCallsOfAnother), kRowName);

} // namespace
