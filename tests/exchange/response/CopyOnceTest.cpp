// What may be copied after a copy: the content of a response comes once, and never a part of it for all of it.
#include "tests/exchange/TransferFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/server/UnreachablePorts.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>

#include <functional>
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

// The first exchange gives 100,000 bytes, of which the last half comes once the test lets it; the second one is whole.
class CopyOnce : public TransferFixture {
protected:
    CopyOnce()
        : Content(patternedBytes(100'000)),
          Server(
              serve(std::vector<Script>{{step::expectHead(),
                                         step::send("HTTP/1.1 200 OK\r\nX-Of: first\r\nContent-Length: 100000\r\n\r\n" +
                                                    Content.substr(0, 50'000)),
                                         step::await("the rest"), step::send(Content.substr(50'000)),
                                         step::expectHead(), step::send(response("next"))},
                                        {step::expectHead(), step::send(response("next"))}})),
          Connection(open(Server.url("/"))) {}

    // Stops the copy that `copy` begins in the middle of the content.
    void stopInTheMiddle(const std::function<void()>& copy) {
        const ScriptedReporter reporter = makeScriptedReporter(host());
        reporter->OnUpdate = [](int, std::uint64_t) { return Array(false); };
        Connection.set("ProgressReporter", reporter);
        EXPECT_EQ(outcomeOf(copy), "interrupt by the program");
        Connection.set("ProgressReporter", Array());
    }
    void expectNextIsWhole() {
        EXPECT_EQ(Connection.get("ResponseCode").number(), 200.0);
        EXPECT_EQ(Connection.call("getResponseField", {"X-Of"}).text(), "first") << "what is known stays known";
        Connection.set("Consumer", Array());
        Connection.call("closeConnection");
        Connection.call("openConnection");
        EXPECT_EQ(receiveBytes(Connection), "next");
        expectScopeUsable(Connection);
    }

    std::string Content;
    ScriptedServer& Server;
    Object Connection;
};

TEST_F(CopyOnce, SaveThatWasStoppedCannotGoOnInAnotherFile) {
    const std::string file = Folder.file("saved");
    stopInTheMiddle([&] { Connection.call("copyContentToFile", {file}); });
    const std::string saved = readFile(file);
    EXPECT_EQ(difference(saved, Content.substr(0, saved.size())), "");
    EXPECT_LT(saved.size(), Content.size());
    Server.raise("the rest");
    expectCopyRefused(Connection, kCopiedAlready);
    EXPECT_EQ(outcomeOf([&] { Connection.call("copyContentToFile", {file}); }), kCopiedAlready);
    EXPECT_EQ(difference(readFile(file), saved), "") << "the file that was begun keeps what it has";
    expectNextIsWhole();
}

TEST_F(CopyOnce, SaveThatWasInterruptedCannotGoOnInAnotherFile) {
    const ScriptedReporter reporter = makeScriptedReporter(host());
    reporter->OnUpdate = [this](int, std::uint64_t) {
        host().interrupt();
        return Array(true);
    };
    Connection.set("ProgressReporter", reporter);
    EXPECT_EQ(outcomeOf([&] { Connection.call("copyContentToFile", {Folder.file("saved")}); }),
              "interrupt by the host");
    Connection.set("ProgressReporter", Array());
    Server.raise("the rest");
    expectCopyRefused(Connection, kCopiedAlready);
    expectNextIsWhole();
}

TEST_F(CopyOnce, SavingTwiceLeavesTheFirstFileWhole) {
    Server.raise("the rest");
    const std::string file = Folder.file("saved");
    Connection.call("copyContentToFile", {file});
    EXPECT_EQ(outcomeOf([&] { Connection.call("copyContentToFile", {file}); }), kCopiedAlready);
    EXPECT_EQ(difference(readFile(file), Content), "");
    expectCopyRefused(Connection, kCopiedAlready);
    expectNextIsWhole();
}

TEST_F(CopyOnce, ByteArrayComesOnce) {
    Server.raise("the rest");
    EXPECT_EQ(difference(receiveBytes(Connection), Content), "");
    expectCopyRefused(Connection, kCopiedAlready);
    EXPECT_EQ(Connection.get("ResponsePayload").size(), 0U);
    expectNextIsWhole();
}

TEST_F(CopyOnce, ConsumerGetsTheContentAndNobodyElse) {
    Server.raise("the rest");
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    Connection.set("Consumer", consumer);
    Connection.call("copyContentToByteArray", {false});
    EXPECT_EQ(difference(consumer->content(), Content), "");
    expectCopyRefused(Connection, kCopiedAlready);
    expectNextIsWhole();
}

class StoppedByTheConsumer : public CopyOnce, public ::testing::WithParamInterface<std::tuple<const char*, bool>> {};

TEST_P(StoppedByTheConsumer, CopyCannotGoOn) {
    const auto [how, toBuffer] = GetParam();
    const std::string stop = how;
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    consumer->OnStart = [] { return Array(10'000.0); };
    consumer->OnPut = [&](int call, const std::string& piece) {
        if (call == 2 && stop == "Aborts") {
            return Array();
        }
        if (call == 2 && stop == "Raises") {
            throw std::domain_error("disk full");
        }
        if (call == 2 && stop == "IsInterrupted") {
            host().interrupt();
        }
        return Array(call == 2 && stop == "TakesLess" ? 1.0 : static_cast<double>(piece.size()));
    };
    Connection.set("Consumer", consumer);
    const std::string outcome = outcomeOf([&] { Connection.call("copyContentToByteArray", {toBuffer}); });
    EXPECT_EQ(outcome, stop == "Aborts"   ? "VANTIK:webservices:OperationTerminatedByConsumer(" + Server.url("/") + ")"
                       : stop == "Raises" ? "disk full"
                       : stop == "IsInterrupted" ? "interrupt by the host"
                                                 : "nothing");
    EXPECT_EQ(Connection.get("ResponsePayload").size(), 0U) << "the consumer or the caller has it";
    const std::size_t pieces = consumer->Pieces.size();
    Server.raise("the rest");
    expectCopyRefused(Connection, kCopiedAlready);
    Connection.set("Consumer", Array());
    expectCopyRefused(Connection, kCopiedAlready);
    EXPECT_EQ(consumer->Pieces.size(), pieces);
    expectNextIsWhole();
}

INSTANTIATE_TEST_SUITE_P(Rows, StoppedByTheConsumer,
                         ::testing::Combine(::testing::Values("Aborts", "Raises", "TakesLess", "IsInterrupted"),
                                            ::testing::Bool()),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param)) +
                                    (std::get<1>(info.param) ? "_WithBuffer" : "_WithoutBuffer");
                         });

TEST_F(CopyOnce, ResponseWithoutContentMayBeCopiedAnyNumberOfTimes) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("", {}, "204 No Content"))});
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    Connection.call("closeConnection");
    Connection.set("URL", server.url("/"));
    Connection.call("openConnection");
    for (int round = 0; round < 2; ++round) {
        Connection.set("Consumer", Array());
        EXPECT_EQ(receiveBytes(Connection), "");
        const std::string file = Folder.file("saved");
        writeFile(file, "older");
        Connection.call("copyContentToFile", {file});
        EXPECT_EQ(readFile(file), "") << "an empty response is all of it";
        Connection.set("Consumer", consumer);
        Connection.call("copyContentToByteArray", {false});
    }
    EXPECT_EQ(consumer->Calls, (Texts{"start", "close", "start", "close"}));
    EXPECT_EQ(server.record().Heads.size(), 1U);
    expectScopeUsable(Connection);
}

// What had come stays with the object, and the rest comes to it. A file or a consumer would get the rest alone.
TEST_F(CopyOnce, ByteArrayThatWasStoppedGoesOnToTheWhole) {
    for (int stops = 0; stops < 2; ++stops) {
        stopInTheMiddle([&] {
            if (stops == 1) {
                Server.raise("the rest");
            }
            receiveBytes(Connection);
        });
        const std::string kept(Connection.get("ResponsePayload").byteText());
        EXPECT_GT(kept.size(), 0U);
        EXPECT_EQ(difference(kept, Content.substr(0, kept.size())), "");
    }
    EXPECT_EQ(difference(receiveBytes(Connection), Content), "");
    expectCopyRefused(Connection, kCopiedAlready);
    expectNextIsWhole();
}

TEST_F(CopyOnce, ByteArrayThatWasStoppedGoesOnInTheByteArrayAlone) {
    stopInTheMiddle([&] { receiveBytes(Connection); });
    const std::string file = Folder.file("saved");
    writeFile(file, "older");
    EXPECT_EQ(outcomeOf([&] { Connection.call("copyContentToFile", {file}); }), kCopiedAlready);
    EXPECT_EQ(readFile(file), "older");
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    Connection.set("Consumer", consumer);
    for (const bool toBuffer : {false, true}) {
        EXPECT_EQ(outcomeOf([&] { Connection.call("copyContentToByteArray", {toBuffer}); }), kCopiedAlready);
    }
    EXPECT_EQ(consumer->Calls, Texts{});
    EXPECT_GT(Connection.get("ResponsePayload").size(), 0U) << "it is still there";
    Connection.set("Consumer", Array());
    Server.raise("the rest");
    EXPECT_EQ(difference(receiveBytes(Connection), Content), "");
    expectNextIsWhole();
}

TEST_F(CopyOnce, BytesThatWereKeptAreNoContentOfAClosedConnection) {
    Connection.set("ResponsePayload", Array::bytes(std::string_view("host ")));
    stopInTheMiddle([&] { receiveBytes(Connection); });
    Connection.call("closeConnection");
    EXPECT_EQ(Connection.get("ResponsePayload").size(), 50'005U) << "until they are asked for as content";
    EXPECT_EQ(receiveBytes(Connection), "host ");
}

// The consumer is gone by the time of the failure, so nobody is given what was saved.
TEST_F(CopyOnce, BytesSavedForAConsumerThatIsGoneNeverLeadTheNextContent) {
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    consumer->OnPut = [&](int, const std::string& piece) {
        Connection.set("Consumer", Array());
        return Array(static_cast<double>(piece.size()));
    };
    Connection.set("Consumer", consumer);
    stopInTheMiddle([&] { receiveBytes(Connection); });
    expectNextIsWhole();
}

TEST_F(CopyOnce, BytesThatWereKeptNeverLeadTheNextContent) {
    stopInTheMiddle([&] { receiveBytes(Connection); });
    Connection.call("closeConnection");
    EXPECT_GT(Connection.get("ResponsePayload").size(), 0U) << "until the next open";
    Connection.call("openConnection");
    EXPECT_EQ(Connection.get("ResponsePayload").size(), 0U);
    EXPECT_EQ(receiveBytes(Connection), "next");
    expectScopeUsable(Connection);
}

TEST_F(CopyOnce, BytesThatWereKeptNeverLeadTheNextContentOfAnUnclosedObject) {
    stopInTheMiddle([&] { receiveBytes(Connection); });
    Connection.call("openConnection");
    EXPECT_EQ(Connection.get("ResponsePayload").size(), 0U);
    expectCopyRefused(Connection, kOpenedAgain);
    Connection.call("closeConnection");
    Connection.call("openConnection");
    EXPECT_EQ(receiveBytes(Connection), "next");
    expectScopeUsable(Connection);
}

// The host's own bytes lead what comes; only what came goes with the next open.
TEST_F(CopyOnce, BytesOfTheHostStayAndLeadTheContent) {
    Connection.set("ResponsePayload", Array::bytes(std::string_view("lead ")));
    stopInTheMiddle([&] { receiveBytes(Connection); });
    const std::string kept(Connection.get("ResponsePayload").byteText());
    EXPECT_EQ(kept.substr(0, 5), "lead ");
    EXPECT_EQ(difference(kept.substr(5), Content.substr(0, kept.size() - 5)), "");
    Connection.call("closeConnection");
    Connection.call("openConnection");
    EXPECT_EQ(Connection.get("ResponsePayload").byteText(), "lead ");
    EXPECT_EQ(receiveBytes(Connection), "lead next");
    expectScopeUsable(Connection);
}

TEST_F(CopyOnce, BytesOfTheHostLeadTheWholeThatGoesOn) {
    Connection.set("ResponsePayload", Array::bytes(std::string_view("lead ")));
    stopInTheMiddle([&] { receiveBytes(Connection); });
    Server.raise("the rest");
    EXPECT_EQ(difference(receiveBytes(Connection), "lead " + Content), "");
    expectCopyRefused(Connection, kCopiedAlready);
    expectNextIsWhole();
}

struct FailureRow {
    const char* Name;
    std::string Sent;
    bool Resets = false; // then the connection is reset; otherwise closed
    const char* Key;
    const char* Field = ""; // value of a field of the request
};

void PrintTo(const FailureRow& row, std::ostream* stream) { // for GoogleTest
    *stream << row.Name;
}

const FailureRow kFailureRows[] = {
    {"NoAnswer", "", false, "CopyContentToDataStreamError"},
    {"ResetInPlaceOfAnAnswer", "", true, "ConnectionRefused"},
    {"ResetInTheHead", "HTTP/1.1 200 OK\r\nX-A: 1\r\n", true, "ConnectionRefused"},
    {"ResetAfterTheHead", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n", true, "ConnectionRefused"},
    {"ResetInTheContent", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\npart", true, "ConnectionRefused"},
    {"NoHttp", "220 mail.example ESMTP\r\n\r\n", false, "CopyContentToDataStreamError"},
    {"BadHeadLine", "HTTP/1.1 200 OK\r\nX-A: 1\nContent-Length: 4\r\n\r\nbody", false, "InternalError"},
    {"BadHeadLineWithoutContent", "HTTP/1.1 200 OK\r\nX-A: 1\nContent-Length: 0\r\n\r\n", false, "InternalError"},
    {"BadRequestHead", "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nbody", false, "InternalError", "1\r\n\r\nNoBlanks"},
    {"BrokenCompression", response("this is not gzip", {"Content-Encoding: gzip"}), false, "DecodingError"},
    {"BrokenChunks", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nbody\r\nzz\r\n", false,
     "ConnectionRefused"},
};

class CopyAfterAFailure : public TransferFixture, public ::testing::WithParamInterface<FailureRow> {
protected:
    Object openFor(const FailureRow& row) {
        ScriptedServer& server =
            serve({{step::expectHead(), step::send(row.Sent), row.Resets ? step::reset() : step::close()},
                   {step::expectHead(), step::send(response("next"))}});
        Object connection = open(server.url("/"));
        if (*row.Field != '\0') {
            connection.call("setRequestProperty", {"X-Broken", row.Field});
        }
        return connection;
    }
    void expectOver(const Object& connection) {
        expectCopyRefused(connection, kTransferFailed);
        EXPECT_EQ(outcomeOf([&] { connection.get("ResponseCode"); }), "nothing") << "what is known stays known";
        expectCopyRefused(connection, kTransferFailed);
        connection.call("closeConnection");
        connection.set("Consumer", Array());
        connection.call("openConnection");
        EXPECT_EQ(connection.get("ResponsePayload").size(), 0U);
        EXPECT_EQ(receiveBytes(connection), "next");
        expectScopeUsable(connection);
    }
    static std::string keyOf(const std::string& outcome) { return outcome.substr(0, outcome.find('(')); }
};

TEST_P(CopyAfterAFailure, IsRefusedForTheByteArray) {
    const Object connection = openFor(GetParam());
    EXPECT_EQ(keyOf(outcomeOf([&] { receiveBytes(connection); })), std::string("VANTIK:webservices:") + GetParam().Key);
    expectOver(connection);
}

TEST_P(CopyAfterAFailure, IsRefusedForAFile) {
    const Object connection = openFor(GetParam());
    EXPECT_EQ(keyOf(outcomeOf([&] { connection.call("copyContentToFile", {Folder.file("saved")}); })),
              std::string("VANTIK:webservices:") + GetParam().Key);
    expectOver(connection);
}

TEST_P(CopyAfterAFailure, IsRefusedForAConsumer) {
    const Object connection = openFor(GetParam());
    connection.set("Consumer", makeScriptedConsumer(host()));
    EXPECT_EQ(keyOf(outcomeOf([&] { connection.call("copyContentToByteArray", {false}); })),
              std::string("VANTIK:webservices:") + GetParam().Key);
    expectOver(connection);
}

INSTANTIATE_TEST_SUITE_P(Rows, CopyAfterAFailure, ::testing::ValuesIn(kFailureRows),
                         [](const auto& info) { return std::string(info.param.Name); });

// The request is out, and its answer comes to the next copy with all that belongs to it.
TEST_F(CopyOnce, InterruptBeforeTheAnswerIsNotItsEnd) {
    Connection.call("closeConnection");
    for (const bool toFile : {false, true}) {
        ScriptedServer& server =
            serve({step::expectHead(), step::run([this] { host().interrupt(); }), step::await("the copy again"),
                   step::send(response("late", {"Content-Type: a/b", "Location: /moved"}, "203 Other"))});
        const Object connection = open(server.url("/"));
        EXPECT_EQ(outcomeOf([&] { receiveBytes(connection); }),
                  "VANTIK:webservices:ConnectionFailed(The operation was stopped on request.)");
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
        expectScopeUsable(connection);
    }
}

// The first copy has nowhere to go, so nobody hears its warning of what is missing.
TEST_F(CopyOnce, CutContentWhoseWarningWentUnderIsNotCopiedLater) {
    ScriptedServer& cutting =
        serve({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nab"), step::close()});
    Connection.call("closeConnection");
    Connection.set("URL", cutting.url("/"));
    Connection.call("openConnection");
    EXPECT_THAT(outcomeOf([&] { Connection.call("copyContentToByteArray", {false}); }),
                ::testing::HasSubstr("neither consumer nor savePayload"));
    // Where the end comes only now, its warning comes now too.
    const std::size_t before = warnings().size();
    const std::string later = outcomeOf([&] { receiveBytes(Connection); });
    if (warnings().size() == before) {
        EXPECT_THAT(later, ::testing::HasSubstr("The transfer has failed"));
    } else {
        EXPECT_EQ(later, "nothing");
        EXPECT_EQ(warnings().back().identifier(), "VANTIK:webservices:PartialFileWarning");
    }
}

// Nothing of the request has gone out, so that it is due again.
TEST_F(CopyOnce, FailureBeforeTheHeadIsOutIsTriedAgain) {
    const RefusingPort refusing;
    Connection.call("closeConnection");
    Connection.set("URL", refusing.url("/"));
    Connection.call("openConnection");
    for (int round = 0; round < 2; ++round) {
        const std::string outcome = outcomeOf([&] { receiveBytes(Connection); });
        EXPECT_EQ(outcome.substr(0, outcome.find('(')), "VANTIK:webservices:ConnectionRefused");
    }
    expectScopeUsable(Connection);
}

TEST_F(CopyOnce, BytesThatCameBeforeALimitNeverLeadTheNextContent) {
    Connection.call("closeConnection");
    Connection.set("TimeoutInMilliseconds", Array::doubles({60000, 60000, 300}));
    Connection.call("openConnection");
    const std::string outcome = outcomeOf([&] { receiveBytes(Connection); });
    EXPECT_EQ(outcome.substr(0, outcome.find('(')), "VANTIK:webservices:Timeout");
    const std::string kept(Connection.get("ResponsePayload").byteText());
    EXPECT_GT(kept.size(), 0U);
    EXPECT_EQ(difference(kept, Content.substr(0, kept.size())), "");
    Connection.set("TimeoutInMilliseconds", Array::doubles({60000}));
    Connection.call("closeConnection");
    Connection.call("openConnection");
    EXPECT_EQ(Connection.get("ResponsePayload").size(), 0U);
    EXPECT_EQ(receiveBytes(Connection), "next");
    expectScopeUsable(Connection);
}

TEST_F(CopyOnce, OlderInterfaceReportsAFailedStatusEachTime) {
    Connection.call("closeConnection");
    ScriptedServer& server = serve({step::expectHead(), step::send(response("gone", {}, "404 Not Found"))});
    const Object older = open(server.url("/"), false);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(outcomeOf([&] { receiveBytes(older); }),
                  "VANTIK:webservices:StatusError(404, Not Found, " + server.url("/") + ")");
    }
    EXPECT_EQ(server.record().Heads.size(), 1U);
    expectScopeUsable(older);
}

} // namespace
