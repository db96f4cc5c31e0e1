// Request content whose sending is broken off, asked for again, or replaced while it is sent. A server either gets all
// of what was set when the request was sent, or no good end.
#include "tests/exchange/TransferFixture.h"
#include "tests/exchange/request/ChallengedUpload.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <chrono>
#include <ostream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

using Texts = std::vector<std::string>;

enum class Source { Memory, Provider };
enum class After { Kept, Replaced, Cleared };
constexpr const char* kSourceNames[] = {"Memory", "Provider"};
constexpr const char* kAfterNames[] = {"Kept", "Replaced", "Cleared"};

class Upload : public TransferFixture {
protected:
    Upload() : Provider(makeScriptedProvider(host())) {}

    void openUpload(const Object& connection) {
        connection.call("openConnection");
        connection.set("RequestMethod", "PUT");
        connection.call("removeField", {"Expect"});
    }
    void setContent(const Object& connection, Source from, const std::string& content) {
        Provider->Content = content;
        if (from == Source::Memory) {
            connection.set("Payload", Array::bytes(std::string_view(content)));
        } else {
            connection.set("Provider", Provider);
        }
    }
    void change(const Object& connection, Source from, After after) {
        const char* property = from == Source::Memory ? "Payload" : "Provider";
        if (after == After::Cleared) {
            connection.set(property, Array());
        }
        if (after == After::Replaced) {
            connection.set(property, from == Source::Memory ? Array::bytes(std::string_view("something else"))
                                                            : Array(makeScriptedProvider(host(), "something else")));
        }
    }
    // What the provider gives where a test has a hook in front of it.
    Array nextPiece(std::uint64_t wanted) {
        const std::string piece = Provider->Content.substr(Provider->Position, wanted);
        Provider->Position += piece.size();
        return Array::bytes(std::string_view(piece));
    }
    // Whatever content came to a good end is this one.
    void expectBodies(const ScriptedServer& server, const std::string& content, std::size_t count) {
        const Texts bodies = allBodies(server);
        EXPECT_EQ(bodies.size(), count);
        for (const std::string& body : bodies) {
            EXPECT_EQ(difference(body, content), "");
        }
    }
    // No copy gives anything, and of the second request no content came to a good end.
    void expectBrokenOff(const Object& connection, const ScriptedServer& server, const std::string& content) {
        EXPECT_EQ(outcomeOf([&] { receiveBytes(connection); }), kUploadBroken);
        EXPECT_EQ(outcomeOf([&] { connection.get("ResponseCode"); }), "nothing");
        expectCopyRefused(connection, kUploadBroken);
        connection.call("closeConnection");
        connection.call("closeAllConnections");
        server.waitUntilAllEnded();
        expectBodies(server, content, 1);
    }
    void expectWholeUpload(const Object& connection, ScriptedServer& server, std::size_t index) {
        connection.call("closeConnection");
        connection.set("Provider", Array());
        connection.set("TimeoutInMilliseconds", Array::doubles({60000}));
        openUpload(connection);
        connection.set("Payload", Array::bytes(std::string_view("whole again")));
        EXPECT_EQ(receiveBytes(connection), "taken");
        EXPECT_EQ(server.record(index).Bodies, Texts{"whole again"});
        expectScopeUsable(connection);
    }

    const Script Good{step::expectHead(), step::expectChunkedBody(), step::send(response("taken"))};
    ScriptedProvider Provider;
};

enum class Stop { HostInterrupt, ReporterSaysStop, Timeout, ProviderRaises };

struct StopRow {
    const char* Name;
    Source From;
    Stop How;
    const char* Identifier; // of what the caller sees
};

void PrintTo(const StopRow& row, std::ostream* stream) { // for GoogleTest
    *stream << row.Name;
}

constexpr const char* kFailed = "VANTIK:webservices:ConnectionFailed";
constexpr const char* kTimedOut = "VANTIK:webservices:Timeout";

const StopRow kStopRows[] = {
    {"MemoryInterrupted", Source::Memory, Stop::HostInterrupt, kFailed},
    {"MemoryStoppedByTheReporter", Source::Memory, Stop::ReporterSaysStop, kFailed},
    {"MemoryTimedOut", Source::Memory, Stop::Timeout, kTimedOut},
    {"ProviderInterrupted", Source::Provider, Stop::HostInterrupt, kFailed},
    {"ProviderStoppedByTheReporter", Source::Provider, Stop::ReporterSaysStop, kFailed},
    {"ProviderTimedOut", Source::Provider, Stop::Timeout, kTimedOut},
    {"ProviderRaises", Source::Provider, Stop::ProviderRaises, "torn"},
};

class CutUpload : public Upload, public ::testing::WithParamInterface<std::tuple<StopRow, After>> {};

// Content in memory, and content that nobody takes, are larger than what the sockets hold.
TEST_P(CutUpload, GetsNoGoodEndAndNoResponse) {
    const auto& [row, after] = GetParam();
    Script cut{step::expectHead()};
    if (row.How == Stop::ReporterSaysStop) {
        cut.push_back(step::send("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n"));
        cut.push_back(step::signal("head"));
    }
    if (row.How == Stop::HostInterrupt && row.From == Source::Memory) {
        cut.push_back(step::run([this] { host().interrupt(); }));
    }
    for (const Step& step : {step::await("the copy again"), step::expectChunkedBody(), step::send(response("taken"))}) {
        cut.push_back(step);
    }
    ScriptedServer& server = serve({cut, Good});
    Provider->OnRead = [&, how = row.How](int call, std::uint64_t wanted) {
        if (call == 2 && how == Stop::ReporterSaysStop) {
            server.waitFor("head");
        }
        if (call == 3 && how == Stop::HostInterrupt) {
            host().interrupt();
        }
        if (call == 3 && how == Stop::ProviderRaises) {
            throw std::domain_error("torn");
        }
        return nextPiece(wanted);
    };
    const ScriptedReporter reporter = makeScriptedReporter(host());
    reporter->OnUpdate = [](int, std::uint64_t) { return Array(false); };
    const Object connection = makeFor(server.url("/"));
    connection.set("TimeoutInMilliseconds",
                   row.How == Stop::Timeout ? Array::doubles({60000, 60000, 200}) : Array::doubles({60000}));
    openUpload(connection);
    setContent(connection, row.From,
               patternedBytes(row.From == Source::Memory || row.How == Stop::Timeout ? 30'000'000 : 100'000));
    connection.set("ProgressReporter", row.How == Stop::ReporterSaysStop ? Array(reporter) : Array());
    const std::string outcome = outcomeOf([&] { receiveBytes(connection); });
    EXPECT_EQ(outcome.substr(0, outcome.find('(')), row.Identifier) << outcome;
    EXPECT_TRUE(connection.get("Sent").truth());

    connection.set("ProgressReporter", Array());
    change(connection, row.From, after);
    server.raise("the copy again");
    expectCopyRefused(connection, kUploadBroken);
    EXPECT_EQ(outcomeOf([&] { connection.get("ResponseCode"); }), "nothing");
    expectCopyRefused(connection, kUploadBroken);

    expectWholeUpload(connection, server, 1);
    const Record record = server.waitUntilDone(0);
    EXPECT_TRUE(record.PeerEnded);
    EXPECT_EQ(record.Heads.size(), 1U);
    EXPECT_EQ(record.Bodies, Texts{}) << "no end of the content came";
}

INSTANTIATE_TEST_SUITE_P(Rows, CutUpload,
                         ::testing::Combine(::testing::ValuesIn(kStopRows),
                                            ::testing::Values(After::Kept, After::Replaced, After::Cleared)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).Name) + "_" +
                                    kAfterNames[static_cast<int>(std::get<1>(info.param))];
                         });

struct EndRow {
    const char* Name;
    void (*End)(Object& connection, const Object& other);
};

void PrintTo(const EndRow& row, std::ostream* stream) {
    *stream << row.Name;
}

class EndOfACutUpload : public Upload, public ::testing::WithParamInterface<EndRow> {};

TEST_P(EndOfACutUpload, IsNoGoodEnd) {
    ScriptedServer& server = serve(Good);
    Provider->OnRead = [&](int call, std::uint64_t wanted) {
        if (call == 3) {
            throw std::domain_error("torn");
        }
        return nextPiece(wanted);
    };
    const Object other = makeFor(serve(Good).url("/"));
    Object connection = makeFor(server.url("/"));
    openUpload(connection);
    setContent(connection, Source::Provider, patternedBytes(100'000));
    EXPECT_EQ(outcomeOf([&] { receiveBytes(connection); }), "torn");
    GetParam().End(connection, other);
    const Record record = server.waitUntilDone();
    EXPECT_TRUE(record.PeerEnded);
    EXPECT_EQ(record.Bodies, Texts{});
    for (const Object& object : {connection, other}) {
        if (object) {
            object.call("closeConnection");
        }
    }
    expectScopeUsable();
}

INSTANTIATE_TEST_SUITE_P(Rows, EndOfACutUpload,
                         ::testing::Values(EndRow{"Destruction",
                                                  [](Object& connection, const Object&) { connection = Object(); }},
                                           EndRow{"CloseOfAll",
                                                  [](Object& connection, const Object&) {
                                                      connection.call("closeConnection");
                                                      connection.call("closeAllConnections");
                                                  }},
                                           EndRow{"OpenOfAnother",
                                                  [](Object& connection, const Object& other) {
                                                      connection.call("closeConnection");
                                                      other.call("openConnection");
                                                  }},
                                           EndRow{"Reopen",
                                                  [](Object& connection, const Object&) {
                                                      connection.call("openConnection");
                                                      connection.call("closeConnection");
                                                  }}),
                         [](const auto& info) { return std::string(info.param.Name); });

// Nothing of the request has gone out by then, so that it can still be sent as it was meant.
TEST_F(Upload, ThatFailsBeforeItsHeadIsOutIsSentWholeByTheNextCopy) {
    for (const bool atStart : {true, false}) {
        ScriptedServer& server = serve(Good);
        const std::string content = patternedBytes(100'000);
        Provider->Starts = 0;
        Provider->Wanted.clear();
        Provider->OnStart = [&](int call) {
            if (atStart && call == 1) {
                throw std::domain_error("not yet");
            }
        };
        Provider->OnRead = [&](int call, std::uint64_t wanted) {
            if (!atStart && call == 1) {
                throw std::domain_error("not yet");
            }
            return nextPiece(wanted);
        };
        const Object connection = makeFor(server.url("/"));
        openUpload(connection);
        setContent(connection, Source::Provider, content);
        EXPECT_EQ(outcomeOf([&] { receiveBytes(connection); }), "not yet");
        EXPECT_FALSE(connection.get("Sent").truth());
        EXPECT_EQ(receiveBytes(connection), "taken");
        EXPECT_EQ(difference(server.record().Bodies.at(0), content), "");
        EXPECT_EQ(Provider->Starts, 2);
        expectScopeUsable(connection);
    }
}

class SentUpload : public Upload, public ::testing::WithParamInterface<std::tuple<Source, After, bool>> {};

// All content has gone out when the interrupt comes, so the next copy goes on to the answer. Where that asks for a
// login, content in memory is sent again as it was; a provider's is not there any more, and its upload is broken off.
TEST_P(SentUpload, IsTheOneThatWasSetWhateverIsSetMeanwhile) {
    const auto [from, after, challenged] = GetParam();
    const std::string content = patternedBytes(100'000);
    const Script stopped{step::run([this] { host().interruptAfter(std::chrono::milliseconds(100)); }),
                         step::await("the copy again")};
    std::vector<Script> scripts = challengedUpload(step::expectChunkedBody(), stopped);
    if (!challenged) {
        scripts = {
            {step::expectHead(), step::expectChunkedBody(), stopped[0], stopped[1], step::send(response("taken"))}};
    }
    ScriptedServer& server = serve(scripts);
    const Object connection = makeFor(server.url("/"));
    openUpload(connection);
    setContent(connection, from, content);
    if (challenged) {
        setLogin(connection, "Aladdin", "open sesame", {"Basic", "Digest"});
    }
    const std::string outcome = outcomeOf([&] { receiveBytes(connection); });
    EXPECT_EQ(outcome.substr(0, outcome.find('(')), kFailed) << outcome;
    change(connection, from, after);
    server.raise("the copy again");
    if (from == Source::Provider && challenged) {
        expectBrokenOff(connection, server, content);
    } else {
        EXPECT_EQ(receiveBytes(connection), "taken");
        EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
        expectBodies(server, content, challenged ? 2 : 1);
    }
    expectScopeUsable(connection);
}

INSTANTIATE_TEST_SUITE_P(Rows, SentUpload,
                         ::testing::Combine(::testing::Values(Source::Memory, Source::Provider),
                                            ::testing::Values(After::Kept, After::Replaced, After::Cleared),
                                            ::testing::Bool()),
                         [](const auto& info) {
                             return std::string(kSourceNames[static_cast<int>(std::get<0>(info.param))]) + "_" +
                                    kAfterNames[static_cast<int>(std::get<1>(info.param))] +
                                    (std::get<2>(info.param) ? "_Challenged" : "");
                         });

class ReplacedFromWithin : public Upload, public ::testing::WithParamInterface<std::tuple<Source, After>> {};

// The head of the answer comes early, so that a reporter is called while the content is sent.
TEST_P(ReplacedFromWithin, IsSentWhole) {
    const auto [from, after] = GetParam();
    ScriptedServer& server = serve({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n"),
                                    step::signal("head"), step::expectChunkedBody(), step::send("taken")});
    const std::string content = patternedBytes(from == Source::Memory ? 30'000'000 : 100'000);
    const Object connection = makeFor(server.url("/"));
    Provider->OnRead = [&](int call, std::uint64_t wanted) {
        if (call == 2) {
            server.waitFor("head");
        }
        return nextPiece(wanted);
    };
    const ScriptedReporter reporter = makeScriptedReporter(host());
    reporter->OnUpdate = [&, source = from, what = after](int call, std::uint64_t) {
        if (call == 1) {
            change(connection, source, what);
        }
        return Array(true);
    };
    openUpload(connection);
    setContent(connection, from, content);
    connection.set("ProgressReporter", reporter);
    EXPECT_EQ(receiveBytes(connection), "taken");
    EXPECT_GT(reporter->Counts.size(), 1U) << "one report comes at the end";
    EXPECT_LT(reporter->Counts.front(), content.size()) << "it was replaced after it had been sent";
    EXPECT_EQ(difference(server.record().Bodies.at(0), content), "");
    expectScopeUsable(connection);
}

INSTANTIATE_TEST_SUITE_P(Rows, ReplacedFromWithin,
                         ::testing::Combine(::testing::Values(Source::Memory, Source::Provider),
                                            ::testing::Values(After::Replaced, After::Cleared)),
                         [](const auto& info) {
                             return std::string(kSourceNames[static_cast<int>(std::get<0>(info.param))]) + "_" +
                                    kAfterNames[static_cast<int>(std::get<1>(info.param))];
                         });

class Rewind : public Upload {};

// The last array is still on offer then, and is not to come before the content that begins anew.
TEST_F(Rewind, InTheMiddleOfTheContentSendsItFromItsStart) {
    for (const std::uint64_t piece : {1000U, 16384U}) {
        ScriptedServer& server = serve({{step::expectHead(), step::expectBody(2 * piece), step::send(kChallenge),
                                         step::signal("challenged"), step::awaitPeerEnd()},
                                        Good});
        const std::string content = patternedBytes(10 * piece + 1);
        Provider->Starts = 0;
        Provider->Wanted.clear();
        Provider->OnRead = [&](int call, std::uint64_t wanted) {
            if (call == 5) {
                server.waitFor("challenged");
            }
            return nextPiece(wanted);
        };
        const Object connection = makeFor(server.url("/"));
        openUpload(connection);
        setContent(connection, Source::Provider, content);
        connection.set("ProviderBufferSize", piece);
        setLogin(connection, "Aladdin", "open sesame", {"Basic", "Digest"});
        EXPECT_EQ(receiveBytes(connection), "taken");
        EXPECT_EQ(Provider->Starts, 2);
        EXPECT_EQ(difference(server.record(1).Bodies.at(0), content), "");
        expectScopeUsable(connection);
    }
}

TEST_F(Rewind, BeforeTheContentSendsItWhole) {
    const Script answered{step::expectHead(), step::continueIfExpected(), step::expectChunkedBody(),
                          step::send(response("taken"))};
    Script challenged{step::expectHead(), step::send(kChallenge)};
    challenged.insert(challenged.end(), answered.begin(), answered.end());
    ScriptedServer& server = serve({challenged, answered});
    const std::string content = patternedBytes(100'000);
    const Object connection = makeFor(server.url("/"));
    connection.call("openConnection");
    connection.set("RequestMethod", "PUT");
    setContent(connection, Source::Provider, content);
    setLogin(connection, "Aladdin", "open sesame", {"Basic", "Digest"});
    EXPECT_EQ(receiveBytes(connection), "taken");
    expectBodies(server, content, 1);
    expectScopeUsable(connection);
}

// The provider has said its end, and nobody asks it any more.
TEST_F(Rewind, AfterTheContentFailsAndSendsNoGoodEnd) {
    for (const std::size_t size : {7U, 100'000U}) {
        ScriptedServer& server = serve(challengedUpload(step::expectChunkedBody()));
        const std::string content = patternedBytes(size);
        const Object connection = makeFor(server.url("/"));
        openUpload(connection);
        setContent(connection, Source::Provider, content);
        setLogin(connection, "Aladdin", "open sesame", {"Basic", "Digest"});
        expectBrokenOff(connection, server, content);
        expectScopeUsable(connection);
    }
}

} // namespace
