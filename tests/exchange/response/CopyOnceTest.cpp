// What may be copied after a copy: the content of a response comes once, and never a part of it for all of it.
#include "tests/exchange/ExchangeFixture.h"

#include <stdexcept>

namespace {

using namespace testsupport;

// The first exchange has 100,000 bytes, of which the last half comes once the test lets it; the second one is whole.
class CopyOnce : public ExchangeFixture {
protected:
    CopyOnce()
        : Content(patternedBytes(100'000)),
          Server(serve({{step::expectHead(),
                         step::send("HTTP/1.1 200 OK\r\nX-Of: first\r\nContent-Length: 100000\r\n\r\n" +
                                    Content.substr(0, 50'000)),
                         step::await("the rest"), step::send(Content.substr(50'000)), step::expectHead(),
                         step::send(response("next"))},
                        answers(response("next"))})),
          Connection(open(Server.url("/"))) {}

    void save() { Connection.call("copyContentToFile", {Folder.file("saved")}); }
    std::string saved() { return readFile(Folder.file("saved")); }

    // Stops the copy that `copy` begins in the middle of the content.
    void stopInTheMiddle(const std::function<void()>& copy, bool byHost = false) {
        const ScriptedReporter reporter = makeScriptedReporter(host());
        reporter->OnUpdate = [this, byHost](int, std::uint64_t) {
            if (byHost) {
                host().interrupt();
            }
            return Array(byHost);
        };
        Connection.set("ProgressReporter", reporter);
        EXPECT_EQ(outcomeOf(copy), byHost ? "interrupt by the host" : "interrupt by the program");
        Connection.set("ProgressReporter", Array());
    }
    void stopByteArray() {
        stopInTheMiddle([this] { receiveBytes(Connection); });
    }
    // The bytes of a stopped byte array, which are the beginning of the whole.
    std::string kept() {
        const std::string bytes(Connection.get("ResponsePayload").byteText());
        EXPECT_GT(bytes.size(), 0U);
        EXPECT_EQ(difference(bytes, Content.substr(0, bytes.size())), "");
        return bytes;
    }
    void reopen() {
        Connection.call("closeConnection");
        Connection.call("openConnection");
    }
    void expectNextIsWhole() {
        EXPECT_EQ(Connection.get("ResponseCode").number(), 200.0);
        EXPECT_EQ(Connection.call("getResponseField", {"X-Of"}).text(), "first") << "what is known stays known";
        Connection.set("Consumer", Array());
        reopen();
        EXPECT_EQ(Connection.get("ResponsePayload").size(), 0U) << "nothing of the first comes in front";
        EXPECT_EQ(receiveBytes(Connection), "next");
    }

    // Nothing of the first exchange is left to copy, and the next one is whole.
    void expectOver() {
        expectCopyRefused(Connection, kCopiedAlready);
        expectNextIsWhole();
    }

    std::string Content;
    ScriptedServer& Server;
    Object Connection;
};

class StoppedSave : public CopyOnce, public ::testing::WithParamInterface<bool> {};

TEST_P(StoppedSave, CannotGoOnInAnotherFile) {
    stopInTheMiddle([this] { save(); }, GetParam());
    const std::string part = saved();
    EXPECT_EQ(difference(part, Content.substr(0, part.size())), "");
    EXPECT_LT(part.size(), Content.size());
    Server.raise("the rest");
    expectCopyRefused(Connection, kCopiedAlready);
    EXPECT_EQ(outcomeOf([this] { save(); }), kCopiedAlready);
    EXPECT_EQ(difference(saved(), part), "") << "the file that was begun keeps what it has";
    expectNextIsWhole();
}

INSTANTIATE_TEST_SUITE_P(ByHost, StoppedSave, ::testing::Bool());

TEST_F(CopyOnce, FileIsWholeAndComesOnce) {
    Server.raise("the rest");
    save();
    EXPECT_EQ(outcomeOf([&] { save(); }), kCopiedAlready);
    EXPECT_EQ(difference(saved(), Content), "");
    expectOver();
}

TEST_F(CopyOnce, ByteArrayIsWholeAndComesOnce) {
    Server.raise("the rest");
    EXPECT_EQ(difference(receiveBytes(Connection), Content), "");
    EXPECT_EQ(Connection.get("ResponsePayload").size(), 0U);
    expectOver();
}

TEST_F(CopyOnce, ConsumerGetsTheContentAndNobodyElse) {
    Server.raise("the rest");
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    Connection.set("Consumer", consumer);
    copyToConsumer(Connection);
    EXPECT_EQ(difference(consumer->content(), Content), "");
    expectOver();
}

// What a consumer does with its second piece, and what the caller of the copy sees.
struct Stop {
    const char* Name;
    std::string Outcome; // its beginning
    Array (*Put)(vantik::Host& host, const std::string& piece);
};
const Stop kStops[] = {
    {"Aborts", "VANTIK:webservices:OperationTerminatedByConsumer(http://127.0.0.1:",
     [](vantik::Host&, const std::string&) { return Array(); }},
    {"Raises", "disk full", [](vantik::Host&, const std::string&) -> Array { throw std::domain_error("disk full"); }},
    {"TakesLess", "nothing", [](vantik::Host&, const std::string&) { return Array(1.0); }},
    {"IsInterrupted", "interrupt by the host",
     [](vantik::Host& host, const std::string& piece) {
         host.interrupt();
         return allOf(piece);
     }},
};

class StoppedByTheConsumer : public CopyOnce, public ::testing::WithParamInterface<Stop> {
protected:
    void expectNothingMore(bool toBuffer) {
        const Stop& stop = GetParam();
        const ScriptedConsumer consumer = makeScriptedConsumer(host());
        consumer->OnStart = [] { return Array(10'000.0); };
        consumer->OnPut = [&](int call, const std::string& piece) {
            return call == 2 ? stop.Put(host(), piece) : allOf(piece);
        };
        Connection.set("Consumer", consumer);
        const std::string outcome = outcomeOf([&] { Connection.call("copyContentToByteArray", {toBuffer}); });
        EXPECT_EQ(outcome.substr(0, stop.Outcome.size()), stop.Outcome);
        EXPECT_EQ(Connection.get("ResponsePayload").size(), 0U) << "the consumer or the caller has it";
        const std::size_t pieces = consumer->Pieces.size();
        Server.raise("the rest");
        expectCopyRefused(Connection, kCopiedAlready);
        Connection.set("Consumer", Array());
        expectCopyRefused(Connection, kCopiedAlready);
        EXPECT_EQ(consumer->Pieces.size(), pieces);
        expectNextIsWhole();
    }
};

TEST_P(StoppedByTheConsumer, CopyCannotGoOn) {
    expectNothingMore(false);
}

TEST_P(StoppedByTheConsumer, CopyIntoTheBufferCannotGoOn) {
    expectNothingMore(true);
}

INSTANTIATE_TEST_SUITE_P(Rows, StoppedByTheConsumer, ::testing::ValuesIn(kStops), kRowName);

TEST_F(CopyOnce, ResponseWithoutContentMayBeCopiedAnyNumberOfTimes) {
    ScriptedServer& server = serve(answers(response("", {}, "204 No Content")));
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    Connection.set("URL", server.url("/"));
    reopen();
    for (int round = 0; round < 2; ++round) {
        Connection.set("Consumer", Array());
        EXPECT_EQ(receiveBytes(Connection), "");
        writeFile(Folder.file("saved"), "older");
        save();
        EXPECT_EQ(saved(), "") << "an empty response is all of it";
        Connection.set("Consumer", consumer);
        copyToConsumer(Connection);
    }
    EXPECT_EQ(consumer->Calls, (Texts{"start", "close", "start", "close"}));
    EXPECT_EQ(server.record().Heads.size(), 1U);
}

// What had come stays with the object, and the rest comes to it. A file or a consumer would get the rest alone.
TEST_F(CopyOnce, ByteArrayThatWasStoppedGoesOnToTheWholeInAByteArrayAlone) {
    stopByteArray();
    kept();
    writeFile(Folder.file("saved"), "older");
    EXPECT_EQ(outcomeOf([&] { save(); }), kCopiedAlready);
    EXPECT_EQ(saved(), "older");
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    Connection.set("Consumer", consumer);
    for (const bool toBuffer : {false, true}) {
        EXPECT_EQ(outcomeOf([&] { Connection.call("copyContentToByteArray", {toBuffer}); }), kCopiedAlready);
    }
    EXPECT_EQ(consumer->Calls, Texts{});
    Connection.set("Consumer", Array());
    Server.raise("the rest");
    stopByteArray();
    kept();
    EXPECT_EQ(difference(receiveBytes(Connection), Content), "");
    expectOver();
}

TEST_F(CopyOnce, BytesThatWereKeptNeverLeadTheNextContent) {
    stopByteArray();
    Connection.call("closeConnection");
    kept(); // until the next open
    expectNextIsWhole();
}

TEST_F(CopyOnce, BytesThatWereKeptNeverLeadTheNextContentOfAnUnclosedObject) {
    stopByteArray();
    Connection.call("openConnection");
    EXPECT_EQ(Connection.get("ResponsePayload").size(), 0U);
    expectCopyRefused(Connection, kOpenedAgain);
    reopen();
    EXPECT_EQ(receiveBytes(Connection), "next");
}

TEST_F(CopyOnce, BytesThatCameBeforeALimitNeverLeadTheNextContent) {
    Connection.set("TimeoutInMilliseconds", Array::doubles({60000, 60000, 300}));
    reopen();
    EXPECT_EQ(keyOf([&] { receiveBytes(Connection); }), "VANTIK:webservices:Timeout");
    kept();
    Connection.set("TimeoutInMilliseconds", Array::doubles({60000}));
    expectNextIsWhole();
}

// The consumer is gone by the time of the failure, so nobody is given what was saved.
TEST_F(CopyOnce, BytesSavedForAConsumerThatIsGoneNeverLeadTheNextContent) {
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    consumer->OnPut = [&](int, const std::string& piece) {
        Connection.set("Consumer", Array());
        return allOf(piece);
    };
    Connection.set("Consumer", consumer);
    stopByteArray();
    expectNextIsWhole();
}

// The host's own bytes lead what comes; only what came goes with the next open.
TEST_F(CopyOnce, BytesOfTheHostStayAndLeadTheContent) {
    Connection.set("ResponsePayload", Array::bytes("lead "));
    stopByteArray();
    const std::string kept(Connection.get("ResponsePayload").byteText());
    EXPECT_EQ(kept, ("lead " + Content).substr(0, kept.size()));
    reopen();
    EXPECT_EQ(Connection.get("ResponsePayload").byteText(), "lead ");
    EXPECT_EQ(receiveBytes(Connection), "lead next");
}

TEST_F(CopyOnce, BytesOfTheHostLeadTheWholeThatGoesOn) {
    Connection.set("ResponsePayload", Array::bytes("lead "));
    stopByteArray();
    Server.raise("the rest");
    EXPECT_EQ(difference(receiveBytes(Connection), "lead " + Content), "");
    expectOver();
}

TEST_F(CopyOnce, BytesOfTheHostAreAllThatAClosedConnectionHas) {
    Connection.set("ResponsePayload", Array::bytes("host "));
    stopByteArray();
    Connection.call("closeConnection");
    EXPECT_EQ(Connection.get("ResponsePayload").size(), 50'005U) << "until they are asked for as content";
    EXPECT_EQ(receiveBytes(Connection), "host ");
}

} // namespace
