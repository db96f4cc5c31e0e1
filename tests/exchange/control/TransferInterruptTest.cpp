// Transfers that stop midway, by an interrupt or otherwise: what provider, consumer and reporter see of it, and the
// caller. An interrupt while content is copied stays an interrupt; one while the request is sent reaches the caller as
// a failed connection.
#include "tests/exchange/control/HostCallFixture.h"

#include <gmock/gmock.h>

#include <chrono>

namespace {

using namespace testsupport;
using testing::ElementsAre;
using testing::ElementsAreArray;

class Interrupt : public HostCallFixture {};

TEST_F(Interrupt, BeforeTheAnswerIsAFailedConnection) {
    const auto interrupt = [this] { host().interrupt(); };
    struct Moment {
        const char* Name;
        Script BeforeTheAnswer;
        std::function<void()> BeforeTheCopy;
    };
    for (const Moment& moment :
         {Moment{"while the answer is awaited", {step::run(interrupt)}, [] {}},
          {"before the transfer", {}, interrupt},
          {"after a total time", {}, [this] { host().interruptAfter(std::chrono::milliseconds(50)); }}}) {
        SCOPED_TRACE(moment.Name);
        const Object connection =
            open(serve(Script{step::expectHead()} + moment.BeforeTheAnswer + Script{step::awaitPeerEnd()}).url("/"));
        moment.BeforeTheCopy();
        EXPECT_EQ(outcomeOf([&] { receiveBytes(connection); }), kStopped);
        EXPECT_FALSE(host().interruptPending()) << "what was seen does not stay pending";
        EXPECT_TRUE(host().wasInterrupted()) << "unlike after a failure of the network";
        host().clearInterrupt();
        EXPECT_FALSE(host().wasInterrupted());
    }
}

// The request is out, and its answer comes to the next copy with all that belongs to it.
TEST_F(Interrupt, BeforeTheAnswerIsNotItsEnd) {
    for (const bool toFile : {false, true}) {
        ScriptedServer& server =
            serve({step::expectHead(), step::run([this] { host().interrupt(); }), step::await("the copy again"),
                   step::send(response("late", {"Content-Type: a/b", "Location: /moved"}, "203 Other"))});
        const Object connection = open(server.url("/"));
        EXPECT_EQ(outcomeOf([&] { receiveBytes(connection); }), kStopped);
        EXPECT_TRUE(connection.get("Sent").truth());
        server.raise("the copy again");
        if (toFile) {
            connection.call("copyContentToFile", {Folder.file("saved")});
            EXPECT_EQ(readFile(Folder.file("saved")), "late");
        } else {
            EXPECT_EQ(receiveBytes(connection), "late");
        }
        EXPECT_EQ(connection.get("ResponseCode").number(), 203.0);
        EXPECT_EQ(connection.get("ContentType").text(), "a/b");
        EXPECT_EQ(connection.get("RedirectURL").text(), server.url("/moved"));
        EXPECT_EQ(server.record().Heads.size(), 1U);
        expectCopyRefused(connection, kCopiedAlready);
    }
}

TEST_F(Interrupt, WhileTheContentIsAwaitedKeepsWhatHadCome) {
    ScriptedServer& server =
        serve(answers(kPart) + Script{step::await("the copy has begun"), step::run([this] { host().interrupt(); }),
                                      step::send(" mor"), step::awaitPeerEnd()});
    Reporter->OnUpdate = [&server](int, std::uint64_t) {
        server.raise("the copy has begun");
        return Array(true);
    };
    const Object connection = open(server.url("/"));
    connection.set("ProgressReporter", Reporter);
    EXPECT_EQ(outcomeOf([&] { receiveBytes(connection); }), "interrupt by the host");
    EXPECT_FALSE(host().interruptPending());
    EXPECT_EQ(connection.get("ResponsePayload").byteText().substr(0, 4), "part");
}

TEST_F(Interrupt, ClosesAConsumerThatHandlesNeitherInterruptNorSave) {
    const ScriptedConsumer bare = makeScriptedConsumer(host(), {"interruptInternal", "savePayloadInternal"});
    bare->OnPut = [&](int, const std::string& piece) {
        host().interrupt();
        return allOf(piece);
    };
    const Object connection = open(serve(breaksOff(kPart)).url("/"));
    connection.set("Consumer", bare);
    EXPECT_EQ(outcomeOf([&] { receiveBytes(connection); }), "interrupt by the host");
    EXPECT_THAT(bare->Calls, ElementsAre("start", "put 4", "close"));
}

// An upload whose answer goes to a consumer with a reporter, and what stops it.
struct Parts {
    vantik::Host& Host;
    ScriptedServer& Server;
    ScriptedProvider& Provider;
    ScriptedConsumer& Consumer;
    ScriptedReporter& Reporter;
};

struct Stop {
    const char* Name;
    Script Server; // without the request's head
    void (*Arrange)(Parts parts);
    Texts Calls;        // without the counts, each run of equal ones once
    std::string Caller; // its beginning; "<url>" stands for the URL
    const char* Saved;  // how much is saved where content goes to the buffer; null: the transfer has not failed
};

// While sending, the provider never ends, and where the reporter has to be asked, the head of the answer comes early.
const Script kHeadComesEarly{step::send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n"), step::signal("head"),
                             step::awaitPeerEnd()};
// While receiving, the content was sent whole, and the answer breaks off in the middle.
Script takesAndAnswers(const Script& end) {
    return Script{step::expectChunkedBody(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 15\r\n\r\n0123456789")} +
           end;
}
const Texts kSent{"provider start", "provider get"};
const Texts kReceived{"provider start", "provider get", "consumer start", "consumer put 6", "consumer put 4"};

Texts with(Texts first, const Texts& others) {
    first.insert(first.end(), others.begin(), others.end());
    return first;
}

std::vector<Stop> stops() {
    return {
        // The provider is told nothing, and the consumer has not been started.
        {"HostInterruptWhileSending",
         {step::awaitPeerEnd()},
         [](Parts parts) {
             parts.Provider->OnRead = [parts](int call, std::uint64_t) {
                 if (call == 3) {
                     parts.Host.interrupt();
                 }
                 EXPECT_LE(call, 3) << "it is seen in the same pass";
                 return Array::bytes("piece");
             };
         },
         kSent,
         kStopped,
         "0"},
        {"ReporterSaysStopWhileSending", kHeadComesEarly,
         [](Parts parts) {
             parts.Provider->OnRead = [parts](int call, std::uint64_t) {
                 if (call == 2) {
                     parts.Server.waitFor("head");
                 }
                 return Array::bytes("piece");
             };
             parts.Reporter->OnUpdate = [](int call, std::uint64_t) {
                 EXPECT_EQ(call, 1) << "it is not asked again";
                 return Array(false);
             };
         },
         with(kSent, {"report"}), kStopped, "0"},
        // The rest of what has come is passed on and reported, and the next pass sees the interrupt.
        {"HostInterruptWhileReceiving", takesAndAnswers({step::awaitPeerEnd()}),
         [](Parts parts) {
             parts.Consumer->OnPut = [parts](int call, const std::string& piece) {
                 if (call == 1) {
                     parts.Host.interrupt();
                 }
                 return allOf(piece);
             };
         },
         with(kReceived, {"report", "consumer interrupt", "consumer close"}), "interrupt by the host", "10"},
        // Only an interrupt of the host's own is told to the consumer.
        {"ReporterSaysStopWhileReceiving", takesAndAnswers({step::awaitPeerEnd()}),
         [](Parts parts) { parts.Reporter->OnUpdate = [](int, std::uint64_t) { return Array(false); }; },
         with(kReceived, {"report", "consumer close"}), "interrupt by the program", "10"},
        // The piece that is refused has gone to the buffer before, so what is saved holds it.
        {"ConsumerAborts", takesAndAnswers({step::awaitPeerEnd()}),
         [](Parts parts) {
             parts.Consumer->OnPut = [](int call, const std::string& piece) {
                 return call == 2 ? Array() : allOf(piece);
             };
         },
         with(kReceived, {"consumer close"}), "VANTIK:webservices:OperationTerminatedByConsumer(<url>)", "10"},
        {"ConsumerTakesLess",
         takesAndAnswers({step::awaitPeerEnd()}),
         [](Parts parts) {
             parts.Consumer->OnPut = [](int, const std::string&) { return Array(3.0); };
             parts.Reporter->OnUpdate = [](int, std::uint64_t count) {
                 EXPECT_EQ(count, 3U) << "only what was taken counts";
                 return Array(true);
             };
         },
         {"provider start", "provider get", "consumer start", "consumer put 6", "report", "consumer close"},
         "nothing",
         nullptr},
        {"Reset", takesAndAnswers({step::await("reported"), step::reset()}),
         [](Parts parts) {
             parts.Reporter->OnUpdate = [parts](int, std::uint64_t) {
                 parts.Server.raise("reported");
                 return Array(true);
             };
         },
         with(kReceived, {"report", "consumer close"}), "VANTIK:webservices:ConnectionRefused(<url>", "10"},
    };
}

class StoppedTransfer : public HostCallFixture, public ::testing::WithParamInterface<Stop> {
protected:
    void expectReported(bool toBuffer) {
        const Stop& stop = GetParam();
        ScriptedServer& server = serve(Script{step::expectHead()} + stop.Server);
        Consumer->OnStart = [] { return Array(6.0); };
        stop.Arrange({host(), server, Provider, Consumer, Reporter});
        const Object connection = openDownload(server.url("/"));
        prepareUpload(connection, Provider);
        const std::string outcome = outcomeOf([&] { connection.call("copyContentToByteArray", {toBuffer}); });
        std::string expected = stop.Caller;
        if (const std::size_t place = expected.find("<url>"); place != std::string::npos) {
            expected.replace(place, 5, server.url("/"));
        }
        EXPECT_EQ(outcome.substr(0, expected.size()), expected);
        EXPECT_FALSE(host().interruptPending());
        const bool saves = toBuffer && stop.Saved != nullptr;
        EXPECT_THAT(
            callsWithoutCounts(),
            ElementsAreArray(saves ? with(stop.Calls, {std::string("consumer save ") + stop.Saved}) : stop.Calls));
        EXPECT_EQ(Consumer->Saved, saves ? std::string("0123456789").substr(0, std::stoul(stop.Saved)) : "");
        if (!Consumer->Pieces.empty()) {
            EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
        }

        // After a close the next open clears the transfer, and nothing of it comes up in the next one.
        Calls.clear();
        expectObjectUsable(connection);
        EXPECT_THAT(Calls, testing::IsEmpty());
    }
};

TEST_P(StoppedTransfer, IsReportedToThoseConcerned) {
    expectReported(false);
}

TEST_P(StoppedTransfer, IsReportedToThoseConcernedWithABuffer) {
    expectReported(true);
}

INSTANTIATE_TEST_SUITE_P(Rows, StoppedTransfer, ::testing::ValuesIn(stops()), kRowName);

} // namespace
