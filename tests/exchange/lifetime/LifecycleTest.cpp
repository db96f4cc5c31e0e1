// Opens, reopens and closes of one object on the handles of a scope: nothing of its last exchange comes into the next.
#include "tests/exchange/ExchangeFixture.h"
#include "tests/support/process/StandardOutputCapture.h"

#include <thread>

namespace {

using namespace testsupport;

class Lifecycle : public ExchangeFixture {};

TEST_F(Lifecycle, LoadingTheModuleAgainDoesNoHarm) {
    const Texts classes = host().classNames();
    host().load("netrove"); // by name this time: it lies beside the host's library
    EXPECT_EQ(host().classNames(), classes);
}

TEST_F(Lifecycle, DestructionClosesAndTheNextObjectReusesTheNetworkConnection) {
    ScriptedServer& server = serve(answers(response("one")) + answers(response("two")));
    {
        const Object first = makeFor(server.url("/1"));
        first.call("openConnection");
        EXPECT_EQ(receiveBytes(first), "one");
        EXPECT_EQ(outcomeOf([&] { makeAdapter(); }), kOnlyOneTransfer);
    }
    EXPECT_EQ(receiveBytes(open(server.url("/2"))), "two");
    EXPECT_EQ(server.connectionCount(), 1U);
    EXPECT_EQ(startLine(server.record().Heads.at(1)), "GET /2 HTTP/1.1");
}

// A reset forgets every option; after a 401 the handle is kept as it is, and so is the method that was set on it.
TEST_F(Lifecycle, ReopenForgetsTheMethodExceptAfterA401) {
    ScriptedServer& server =
        serve(answers(response("", {}, "401 Unauthorized")) + answers(response("")) + answers(response("")));
    const Object connection = open(server.url("/"));
    connection.set("RequestMethod", "DELETE");
    connection.call("setRequestProperty", {"X-Field", "1"});
    for (int round = 0; round < 3; ++round) {
        receiveBytes(connection);
        connection.call("openConnection");
    }
    const Texts heads = server.record().Heads;
    ASSERT_EQ(heads.size(), 3U);
    EXPECT_EQ(startLine(heads[0]), "DELETE / HTTP/1.1");
    EXPECT_EQ(startLine(heads[1]), "DELETE / HTTP/1.1");
    EXPECT_EQ(startLine(heads[2]), "GET / HTTP/1.1");
    EXPECT_EQ(fieldValue(heads[1], "X-Field"), std::nullopt) << "the fields are cleared in every case";
}

// libcurl may call the trace callback while a handle is removed, reset or cleaned up.
TEST_F(Lifecycle, ObjectMayBeDroppedInTheMiddleOfATransfer) {
    ScriptedServer& server = serve(breaksOff(kPart));
    {
        const StandardOutputCapture output;
        const Object connection = makeFor(server.url("/"));
        connection.set("Debug", 2);
        connection.set("TimeoutInMilliseconds", Array::doubles({60000, 60000, 60000}));
        connection.call("openConnection");
        EXPECT_EQ(connection.get("ResponseCode").number(), 200.0) << "the head is complete, the content is not";
    }
    EXPECT_TRUE(server.waitUntilDone().PeerEnded);
}

// A close of all takes the response that was there with the handles.
TEST_F(Lifecycle, ReopenInTheMiddleOfATransferStartsAfresh) {
    for (const bool closesAll : {false, true}) {
        ScriptedServer& server = serve({breaksOff(kPart), answers(response("fresh"))});
        const Object connection = open(server.url("/"));
        EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
        connection.call("closeConnection");
        if (closesAll) {
            connection.call("closeAllConnections");
            EXPECT_TRUE(server.waitUntilDone(0).PeerEnded);
            EXPECT_EQ(receiveBytes(connection), "") << "it is closed";
            EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
        }
        connection.call("openConnection");
        EXPECT_EQ(receiveBytes(connection), "fresh");
    }
}

// Without a copy of the content nothing clears the mark of a finished exchange. Nothing has been sent since the open,
// and what the handle still has is the content of the first response.
TEST_F(Lifecycle, ReopenWithoutACopyLeavesNothingToCopyUntilTheClose) {
    struct Row {
        const char* Status;
        const char* Content;
        const char* Read; // the property whose reading sends the request
        bool Uploads;
    };
    for (const Row& row : {Row{"200 OK", "content", "ResponseCode", false},
                           {"403 Forbidden", "no", "RedirectURL", false},
                           {"401 Unauthorized", "", "ContentEncoding", false},
                           {"401 Unauthorized", "denied", "ResponseCode", true}}) {
        SCOPED_TRACE(std::string(row.Status) + row.Content);
        const auto exchange = row.Uploads ? takes : answers;
        const Script second = exchange(response("let in"));
        // libcurl may keep the connection or not.
        ScriptedServer& server = serve({exchange(response(row.Content, {}, row.Status)) + second, second});
        const Object connection = makeFor(server.url("/"));
        const auto openIt = [&] {
            connection.call("openConnection");
            if (row.Uploads) {
                prepareUpload(connection, Array::bytes("content"));
            }
        };
        openIt();
        connection.get(row.Read);
        openIt();
        EXPECT_FALSE(connection.get("Sent").truth());
        EXPECT_EQ(connection.get("ContentType").text(), "");
        expectCopyRefused(connection, kOpenedAgain);
        EXPECT_EQ(server.connectionCount(), 1U);
        EXPECT_EQ(server.record().Heads.size(), 1U);
        connection.call("closeConnection");
        openIt();
        EXPECT_EQ(receiveBytes(connection), "let in");
        EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
        EXPECT_EQ(allBodies(server), row.Uploads ? (Texts{"content", "content"}) : Texts{});
        expectScopeUsable(connection);
    }
}

TEST_F(Lifecycle, ScopesOnSeveralThreadsDoNotMeet) {
    ScriptedServer& server = serve(std::vector<Script>(4, answers(response("one")) + answers(response("two"))));
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([url = server.url("/")] {
            vantik::Host own;
            own.load(modulePath());
            const Object connection = own.create(kAdapterClass, {true});
            connection.set("URL", url);
            for (const char* expected : {"one", "two"}) {
                connection.call("openConnection");
                EXPECT_EQ(receiveBytes(connection), expected);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(server.connectionCount(), 4U) << "each scope has handles of its own";
}

} // namespace
