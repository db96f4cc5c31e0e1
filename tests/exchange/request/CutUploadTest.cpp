// Request content whose sending is broken off, asked for again, or replaced while it is sent. A server either gets all
// of what was set when the request was sent, or no good end.
#include "tests/exchange/ExchangeFixture.h"

#include <chrono>
#include <stdexcept>

namespace {

using namespace testsupport;

enum class From { Memory, Provider };
enum class After { Kept, Replaced, Cleared };
std::string nameOf(From from) {
    return from == From::Memory ? "Memory" : "Provider";
}
std::string nameOf(After after) {
    return after == After::Kept ? "Kept" : after == After::Replaced ? "Replaced" : "Cleared";
}

class UploadContent : public ExchangeFixture {
protected:
    UploadContent() : Provider(makeScriptedProvider(host())) {}

    // The content as it is set on a connection, see openUpload.
    Array contentFrom(From from, const std::string& content) {
        Provider->Content = content;
        return from == From::Memory ? Array::bytes(content) : Array(Provider);
    }
    void change(const Object& connection, From from, After after) {
        const char* property = from == From::Memory ? "Payload" : "Provider";
        if (after == After::Cleared) {
            connection.set(property, Array());
        }
        if (after == After::Replaced) {
            connection.set(property, from == From::Memory ? Array::bytes("something else")
                                                          : Array(makeScriptedProvider(host(), "something else")));
        }
    }
    // The provider's second read waits for the server's head, and this one fails.
    void readAfter(ScriptedServer* server, int failing = 0) {
        Provider->OnRead = [this, server, failing](int call, std::uint64_t wanted) {
            if (call == 2 && server != nullptr) {
                server->waitFor("head");
            }
            return call == failing ? throw std::domain_error("torn") : nextPiece(Provider, wanted);
        };
    }
    // Whatever content came to a good end is this one.
    void expectBodies(const ScriptedServer& server, const std::string& content, std::size_t count) {
        const Texts bodies = allBodies(server);
        EXPECT_EQ(bodies.size(), count);
        for (const std::string& body : bodies) {
            EXPECT_EQ(difference(body, content), "");
        }
    }
    void expectBrokenOff(const Object& connection) {
        expectCopyRefused(connection, kUploadBroken);
        EXPECT_EQ(outcomeOf([&] { connection.get("ResponseCode"); }), "nothing");
        expectCopyRefused(connection, kUploadBroken);
    }
    // The server has taken the whole content once, and of the second request no content came to a good end.
    void expectBrokenOffAfterOne(const Object& connection, const ScriptedServer& server, const std::string& content) {
        expectBrokenOff(connection);
        connection.call("closeConnection");
        connection.call("closeAllConnections");
        server.waitUntilAllEnded();
        expectBodies(server, content, 1);
    }

    ScriptedProvider Provider;
};

constexpr std::size_t kSome = 100'000;
constexpr std::size_t kLarge = 30'000'000; // more than the sockets hold
const Script kEarlyHead{step::send("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n"), step::signal("head")};

// What stops an upload: an interrupt once the head is out, a reporter, which is asked where the head of the answer
// comes early, a limit of silence, or the provider.
struct Stop {
    const char* Name;
    From Source;
    const char* Key = "VANTIK:webservices:ConnectionFailed"; // of what the caller sees
    std::size_t Size = kLarge;
    bool Interrupts = false;
    bool HeadFirst = false;
    int RaisesAt = 0; // this read of the provider
    double DataTimeout = 60000;
};

const Stop kStops[] = {
    {.Name = "MemoryInterrupted", .Source = From::Memory, .Interrupts = true},
    {.Name = "MemoryStoppedByTheReporter", .Source = From::Memory, .HeadFirst = true},
    {.Name = "MemoryTimedOut", .Source = From::Memory, .Key = "VANTIK:webservices:Timeout", .DataTimeout = 200},
    {.Name = "ProviderInterrupted", .Source = From::Provider, .Interrupts = true},
    {.Name = "ProviderStoppedByTheReporter", .Source = From::Provider, .Size = kSome, .HeadFirst = true},
    {.Name = "ProviderTimedOut", .Source = From::Provider, .Key = "VANTIK:webservices:Timeout", .DataTimeout = 200},
    {.Name = "ProviderRaises", .Source = From::Provider, .Key = "torn", .Size = kSome, .RaisesAt = 3},
};

class CutUpload : public UploadContent, public ::testing::WithParamInterface<std::tuple<Stop, After>> {};

TEST_P(CutUpload, GetsNoGoodEndAndNoResponse) {
    const auto& [stop, after] = GetParam();
    const Script interrupt{step::run([this] { host().interrupt(); })};
    ScriptedServer& server =
        serve({Script{step::expectHead()} + (stop.Interrupts ? interrupt : Script{}) +
                   (stop.HeadFirst ? kEarlyHead : Script{}) +
                   Script{step::await("the copy again"), step::expectChunkedBody(), step::send(response("taken"))},
               takes(response("taken"))});
    readAfter(stop.HeadFirst ? &server : nullptr, stop.RaisesAt);
    const ScriptedReporter stopping = makeScriptedReporter(host());
    stopping->OnUpdate = [](int, std::uint64_t) { return Array(false); };
    const Object connection = makeFor(server.url("/"));
    connection.set("TimeoutInMilliseconds", Array::doubles({60000, 60000, stop.DataTimeout}));
    connection.set("ProgressReporter", stopping);
    connection.call("openConnection");
    prepareUpload(connection, contentFrom(stop.Source, patternedBytes(stop.Size)));
    EXPECT_EQ(keyOf([&] { receiveBytes(connection); }), stop.Key);
    EXPECT_TRUE(connection.get("Sent").truth());

    connection.set("ProgressReporter", Array());
    change(connection, stop.Source, after);
    server.raise("the copy again");
    expectBrokenOff(connection);

    connection.call("closeConnection");
    connection.set("Provider", Array());
    connection.set("TimeoutInMilliseconds", Array::doubles({60000}));
    connection.call("openConnection");
    prepareUpload(connection, Array::bytes("whole again"));
    EXPECT_EQ(receiveBytes(connection), "taken");
    EXPECT_EQ(server.record(1).Bodies, Texts{"whole again"});
    const Record record = server.waitUntilDone(0);
    EXPECT_TRUE(record.PeerEnded);
    EXPECT_EQ(record.Heads.size(), 1U);
    EXPECT_EQ(record.Bodies, Texts{}) << "no end of the content came";
}

INSTANTIATE_TEST_SUITE_P(Rows, CutUpload,
                         ::testing::Combine(::testing::ValuesIn(kStops),
                                            ::testing::Values(After::Kept, After::Replaced, After::Cleared)),
                         kRowName);

TEST_F(UploadContent, ThatIsCutGetsNoGoodEndHoweverItsTransferEnds) {
    struct End {
        const char* Name;
        void (*Run)(Object& connection, const Object& other);
    };
    for (const End& end : {
             End{"destruction", [](Object& connection, const Object&) { connection = Object(); }},
             {"reopen", [](Object& connection, const Object&) { connection.call("openConnection"); }},
             {"close of all",
              [](Object& connection, const Object& other) {
                  connection.call("closeConnection");
                  other.call("closeAllConnections");
              }},
             {"open of another",
              [](Object& connection, const Object& other) {
                  connection.call("closeConnection");
                  other.call("openConnection");
              }},
         }) {
        SCOPED_TRACE(end.Name);
        ScriptedServer& server = serve(takes(response("taken")));
        Provider = makeScriptedProvider(host());
        readAfter(nullptr, 3);
        const Object other = makeFor(serve(takes(response("taken"))).url("/"));
        Object connection = makeFor(server.url("/"));
        connection.call("openConnection");
        prepareUpload(connection, contentFrom(From::Provider, patternedBytes(kSome)));
        EXPECT_EQ(outcomeOf([&] { receiveBytes(connection); }), "torn");
        EXPECT_EQ(Provider->Wanted.size(), 3U);
        end.Run(connection, other);
        const Record record = server.waitUntilDone();
        EXPECT_TRUE(record.PeerEnded);
        EXPECT_EQ(record.Bodies, Texts{});
    }
}

class SentUpload : public UploadContent, public ::testing::WithParamInterface<std::tuple<From, After>> {
protected:
    // All content has gone out when the interrupt comes, and then it is replaced, say.
    Object stopAfterTheContent(ScriptedServer& server, bool logsIn) {
        const auto [from, after] = GetParam();
        Object connection = openUpload(server.url("/"), contentFrom(from, patternedBytes(kSome)));
        if (logsIn) {
            setLogin(connection, "Aladdin", "open sesame", {"Basic", "Digest"});
        }
        EXPECT_EQ(keyOf([&] { receiveBytes(connection); }), "VANTIK:webservices:ConnectionFailed");
        change(connection, from, after);
        server.raise("the copy again");
        return connection;
    }
    void expectTaken(const Object& connection) {
        EXPECT_EQ(receiveBytes(connection), "taken");
        EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
    }
    const Script Stopped{step::run([this] { host().interruptAfter(std::chrono::milliseconds(100)); }),
                         step::await("the copy again")};
};

TEST_P(SentUpload, IsTheOneThatWasSetWhateverIsSetMeanwhile) {
    ScriptedServer& server =
        serve(Script{step::expectHead(), step::expectChunkedBody()} + Stopped + Script{step::send(response("taken"))});
    const Object connection = stopAfterTheContent(server, false);
    expectTaken(connection);
    expectBodies(server, patternedBytes(kSome), 1);
}

// Content in memory is sent again as it was; a provider's is not there any more, and its upload is broken off.
TEST_P(SentUpload, IsTheOneThatWasSetWhereALoginIsAskedForToo) {
    ScriptedServer& server = serve(challengedUpload(step::expectChunkedBody(), Stopped));
    const Object connection = stopAfterTheContent(server, true);
    if (std::get<0>(GetParam()) == From::Provider) {
        expectBrokenOffAfterOne(connection, server, patternedBytes(kSome));
    } else {
        expectTaken(connection);
        expectBodies(server, patternedBytes(kSome), 2);
    }
}

INSTANTIATE_TEST_SUITE_P(Rows, SentUpload,
                         ::testing::Combine(::testing::Values(From::Memory, From::Provider),
                                            ::testing::Values(After::Kept, After::Replaced, After::Cleared)),
                         kRowName);

// The head of the answer comes early, so that a reporter is called while the content is sent.
TEST_F(UploadContent, ThatIsReplacedFromWithinIsSentWhole) {
    for (const From from : {From::Memory, From::Provider}) {
        for (const After after : {After::Replaced, After::Cleared}) {
            SCOPED_TRACE(nameOf(from) + nameOf(after));
            ScriptedServer& server =
                serve(Script{step::expectHead()} + kEarlyHead + Script{step::expectChunkedBody(), step::send("taken")});
            const std::string content = patternedBytes(from == From::Memory ? kLarge : kSome);
            Provider = makeScriptedProvider(host());
            readAfter(&server);
            const Object connection = openUpload(server.url("/"), contentFrom(from, content));
            const ScriptedReporter reporter = makeScriptedReporter(host());
            reporter->OnUpdate = [&](int call, std::uint64_t) {
                if (call == 1) {
                    change(connection, from, after);
                }
                return Array(true);
            };
            connection.set("ProgressReporter", reporter);
            EXPECT_EQ(receiveBytes(connection), "taken");
            EXPECT_GT(reporter->Counts.size(), 1U) << "one report comes at the end";
            EXPECT_LT(reporter->Counts.front(), content.size()) << "it was replaced after it had been sent";
            EXPECT_EQ(difference(server.record().Bodies.at(0), content), "");
        }
    }
}

// A send that failed before its head was out is due again, and the next question about the response sends it. libcurl
// still has the first attempt then, with what belonged to it.
class SendAgain : public UploadContent {
protected:
    // The server plays a SOCKS proxy as well: as long as that does not answer, no byte of the request goes out. It
    // stops the first attempt itself, so that this one has come in before the second: a connection given up earlier
    // never would.
    Object openStopped(const Script& exchange, const Array& content) {
        const Script letThrough{step::expectBody(9), step::send(std::string("\0\x5a\0\0\0\0\0\0", 8))};
        Server = &serve({{step::run([this] { host().interrupt(); }), step::awaitPeerEnd()}, letThrough + exchange});
        Object connection = makeFor("http://127.0.0.1/path");
        connection.call("openProxyConnection", {Array::structure({{"Host", "socks4://127.0.0.1"},
                                                                  {"Port", static_cast<double>(Server->port())}})});
        if (!content.empty()) {
            prepareUpload(connection, content);
        }
        EXPECT_EQ(outcomeOf([&] { receiveBytes(connection); }), kStopped);
        EXPECT_FALSE(connection.get("Sent").truth());
        return connection;
    }

    ScriptedServer* Server = nullptr;
};

TEST_F(SendAgain, ContentArrivesWhole) {
    for (const std::size_t size : {7U, 16384U, 100000U}) {
        for (const From from : {From::Memory, From::Provider}) {
            const std::string body = patternedBytes(size);
            Provider->Starts = 0;
            const Object connection = openStopped(takes(response("taken")), contentFrom(from, body));
            EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
            EXPECT_EQ(receiveBytes(connection), "taken");
            EXPECT_EQ(Provider->Starts, from == From::Provider ? 2 : 0);
            EXPECT_EQ(difference(Server->record(1).Bodies.at(1), body), "");
            expectScopeUsable(connection);
        }
    }
}

TEST_F(SendAgain, RequestWithoutContentIsSentOnce) {
    const Object connection = openStopped(answers(response("welcome")), Array());
    EXPECT_EQ(receiveBytes(connection), "welcome");
    EXPECT_EQ(startLine(Server->record(1).Heads.at(0)), "GET /path HTTP/1.1");
    EXPECT_EQ(Server->connectionCount(), 2U);
}

TEST_F(SendAgain, ContentWhoseProviderFailedFirstArrivesWhole) {
    for (const bool atStart : {true, false}) {
        ScriptedServer& server = serve(takes(response("taken")));
        Provider = makeScriptedProvider(host(), patternedBytes(kSome));
        readAfter(nullptr, atStart ? 0 : 1);
        Provider->OnStart = [atStart](int call) {
            if (atStart && call == 1) {
                throw std::domain_error("torn");
            }
        };
        const Object connection = openUpload(server.url("/"), Provider);
        EXPECT_EQ(outcomeOf([&] { receiveBytes(connection); }), "torn");
        EXPECT_FALSE(connection.get("Sent").truth());
        EXPECT_EQ(receiveBytes(connection), "taken");
        EXPECT_EQ(difference(server.record().Bodies.at(0), Provider->Content), "");
        EXPECT_EQ(Provider->Starts, 2);
    }
}

// The server asks for a login, so libcurl rewinds, which starts the provider again.
class Rewind : public UploadContent {
protected:
    Object openChallenged(const ScriptedServer& server) {
        Object connection = openUpload(server.url("/"), Provider);
        setLogin(connection, "Aladdin", "open sesame", {"Basic", "Digest"});
        return connection;
    }
};

// The last array is still on offer then, and is not to come before the content that begins anew.
TEST_F(Rewind, InTheMiddleOfTheContentSendsItFromItsStart) {
    for (const std::uint64_t piece : {1000U, 16384U}) {
        ScriptedServer& server = serve({{step::expectHead(), step::expectBody(2 * piece), step::send(kChallenge),
                                         step::signal("challenged"), step::awaitPeerEnd()},
                                        takes(response("taken"))});
        Provider = makeScriptedProvider(host(), patternedBytes(10 * piece + 1));
        Provider->OnRead = [&](int call, std::uint64_t wanted) {
            if (call == 5) {
                server.waitFor("challenged");
            }
            return nextPiece(Provider, wanted);
        };
        const Object connection = openChallenged(server);
        connection.set("ProviderBufferSize", piece);
        EXPECT_EQ(receiveBytes(connection), "taken");
        EXPECT_EQ(Provider->Starts, 2);
        EXPECT_EQ(difference(server.record(1).Bodies.at(0), Provider->Content), "");
    }
}

TEST_F(Rewind, BeforeTheContentSendsItWhole) {
    ScriptedServer& server = serve({answers(kChallenge) + takes(response("taken")), takes(response("taken"))});
    const Object connection = open(server.url("/"));
    connection.set("RequestMethod", "PUT");
    connection.set("Provider", contentFrom(From::Provider, patternedBytes(kSome)));
    setLogin(connection, "Aladdin", "open sesame", {"Basic", "Digest"});
    EXPECT_EQ(receiveBytes(connection), "taken");
    expectBodies(server, patternedBytes(kSome), 1);
}

// The provider has said its end, and nobody asks it any more.
TEST_F(Rewind, AfterTheContentFailsAndSendsNoGoodEnd) {
    for (const std::size_t size : {7U, 100'000U}) {
        ScriptedServer& server = serve(challengedUpload(step::expectChunkedBody()));
        Provider->Content = patternedBytes(size);
        expectBrokenOffAfterOne(openChallenged(server), server, Provider->Content);
    }
}

// What the provider raises there must not unwind through libcurl, which would ruin the handles of the scope for good.
TEST_F(Rewind, ThatFailsReachesTheCallerAndTheObjectIsStillGood) {
    for (const bool interrupted : {false, true}) {
        ScriptedServer& server = serve(challengedUpload(step::expectChunkedBody()));
        Provider = makeScriptedProvider(host(), patternedBytes(kSome));
        Provider->OnStart = [&](int call) {
            if (call == 2 && interrupted) {
                host().interrupt();
            } else if (call == 2) {
                throw std::domain_error("cannot start again");
            }
        };
        const Object connection = openChallenged(server);
        EXPECT_EQ(outcomeOf([&] { receiveBytes(connection); }), interrupted ? kStopped : "cannot start again");
        EXPECT_EQ(Provider->Starts, 2);
        connection.set("Provider", Array());
        connection.set("URL", serve(answers(response("good again"))).url("/again"));
        connection.call("openConnection"); // after a 401 it keeps its method
        EXPECT_EQ(receiveBytes(connection), "good again");
    }
}

} // namespace
