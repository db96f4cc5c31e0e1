// A program that stops its requests, in phases that tests/exchange does not meet and several times: whatever was under
// way, the next request of the same object and that of a new one complete.
#include "tests/integration/interrupt/HeldLookup.h"
#include "tests/integration/support/IntegrationFixture.h"
#include "tests/support/server/UnreachablePorts.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <thread>
#include <utility>

namespace {

using namespace integrationtest;
using namespace testsupport;
using vantik::Array;
using vantik::Object;

constexpr int kRounds = 10;
constexpr double kShort = 20; // ms: bounds a wait of the send while nothing can come, and with it the time of a round

class InterruptPhases : public IntegrationFixture {
protected:
    // What a stop becomes: while a request is sent, a failed connection; while content is copied, an interrupt.
    enum class Outcome { FailedConnection, Interrupt };

    // A server that plays the same script to as many connections as there are rounds. Events have the round's number.
    ScriptedServer& serveRounds(const std::function<Script(const std::string& round)>& script) {
        std::vector<Script> scripts;
        for (int round = 0; round < kRounds; ++round) {
            scripts.push_back(script(std::to_string(round)));
        }
        return serve(std::move(scripts));
    }
    ScriptedServer& serveRounds(const Script& script) {
        return serveRounds([&](const std::string&) { return script; });
    }

    // Stops the program's work, from the thread of the server.
    Step stopHere() {
        return step::run([this] { host().interrupt(); });
    }

    Object openLimited(const Object& connection, const std::string& url, double responseLimit) {
        connection.set("URL", url);
        connection.set("TimeoutInMilliseconds", Array::doubles({30000, responseLimit}));
        connection.call("openConnection");
        return connection;
    }

    // Runs `request` again and again, each time on one object first and on a new one then, and looks at how it ends and
    // at what comes after it.
    void stopManyTimes(
        Outcome outcome, const std::function<void(const Object&, const std::string& round)>& request,
        const std::function<void()>& after = [] {}) {
        Script answers;
        for (int count = 0; count < 3 * kRounds; ++count) {
            answers.insert(answers.end(), {step::expectHead(), step::send(response("good"))});
        }
        const std::string good = serve(std::vector<Script>(3 * kRounds, answers)).url("/good");
        for (int round = 0; round < kRounds; ++round) {
            SCOPED_TRACE(round);
            {
                const Object connection = makeAdapter();
                expectStopped(outcome, [&] { request(connection, std::to_string(round)); });
                after();
                ASSERT_FALSE(HasFailure());
                expectGood(connection, good);
            }
            expectGood(makeAdapter(), good);
        }
        expectScopeUsable();
    }

private:
    void expectStopped(Outcome outcome, const std::function<void()>& action) {
        std::string seen = "nothing was stopped";
        try {
            action();
        } catch (const vantik::Interrupted& stop) {
            seen = stop.byProgram() ? "stopped by the program" : "interrupted";
        } catch (const vantik::Failure& failure) {
            seen = describe(failure.message());
        }
        EXPECT_EQ(seen, outcome == Outcome::Interrupt
                            ? "interrupted"
                            : "VANTIK:webservices:ConnectionFailed(The operation was stopped on request.)");
        EXPECT_FALSE(host().interruptPending());
    }

    void expectGood(const Object& connection, const std::string& url) {
        connection.call("closeConnection");
        receiveBytes(connection); // what the stopped transfer has left
        for (const char* property : {"Provider", "Consumer", "ProgressReporter"}) {
            connection.set(property, Array());
        }
        openLimited(connection, url, 60000);
        connection.set("RequestMethod", "GET");
        EXPECT_EQ(receiveBytes(connection), "good");
        EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
        connection.call("closeConnection");
    }
};

TEST_F(InterruptPhases, Connecting) {
    const SilentPort silent;
    bool armed = false;
    host().onImpersonation( // called when the send begins
        [&] {
            if (std::exchange(armed, false)) {
                host().interrupt();
            }
        },
        {});
    stopManyTimes(Outcome::FailedConnection, [&](const Object& connection, const std::string&) {
        openLimited(connection, silent.url(), kShort);
        armed = true;
        receiveBytes(connection);
    });
    host().onImpersonation({}, {});
}

TEST_F(InterruptPhases, ConnectingFromAnotherThread) {
    const SilentPort silent;
    stopManyTimes(Outcome::FailedConnection, [&](const Object& connection, const std::string&) {
        openLimited(connection, silent.url(), kShort);
        const std::jthread other([this] { host().interrupt(); });
        receiveBytes(connection);
    });
}

// The requests after each stop complete while the look-up is still held.
TEST_F(InterruptPhases, LookingUpTheName) {
    std::unique_ptr<HeldLookup> lookup;
    stopManyTimes(Outcome::FailedConnection, [&](const Object& connection, const std::string&) {
        lookup.reset();
        lookup = std::make_unique<HeldLookup>();
        openLimited(connection, "http://held.test/", kShort);
        const std::jthread other([&] {
            lookup->awaitBegun();
            host().interrupt();
        });
        receiveBytes(connection);
    });
}

// The byte after each stop only wakes the client up.
TEST_F(InterruptPhases, WithinAHandshake) {
    ScriptedServer& server = serveRounds({step::discard(100), stopHere(), step::send("\x16"), step::awaitPeerEnd()});
    stopManyTimes(Outcome::FailedConnection, [&](const Object& connection, const std::string&) {
        openLimited(connection, "https://" + server.authority() + "/", 60000);
        receiveBytes(connection);
    });
}

TEST_F(InterruptPhases, WithinTheHead) {
    ScriptedServer& server = serveRounds({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nX-A: 1\r\n"), stopHere(),
                                          step::send("X-B"), step::awaitPeerEnd()});
    stopManyTimes(Outcome::FailedConnection, [&](const Object& connection, const std::string&) {
        openLimited(connection, server.url(), 60000);
        receiveBytes(connection);
    });
}

TEST_F(InterruptPhases, Sending) {
    ScriptedServer& server = serveRounds({step::expectHead(), step::discard(50000), stopHere(), step::awaitPeerEnd()});
    const ScriptedProvider provider = makeScriptedProvider(host());
    const std::string piece(16384, 'x');
    provider->OnRead = [&](int, std::uint64_t wanted) {
        return Array::bytes(std::string_view(piece).substr(0, wanted));
    };
    stopManyTimes(Outcome::FailedConnection, [&](const Object& connection, const std::string&) {
        openLimited(connection, server.url(), 60000);
        connection.set("RequestMethod", "PUT");
        connection.call("setRequestProperty", {"Expect", ""});
        connection.set("Provider", provider);
        receiveBytes(connection);
    });
}

// Nobody reads, all buffers on the way are full: nothing moves any more.
TEST_F(InterruptPhases, SendingToNobody) {
    ScriptedServer& server =
        serveRounds({step::expectHead(), stopHere(), step::await("the end"), step::awaitPeerEnd()});
    const std::string content(8'000'000, 'x');
    stopManyTimes(Outcome::FailedConnection, [&](const Object& connection, const std::string&) {
        openLimited(connection, server.url(), 60000);
        connection.set("RequestMethod", "PUT");
        connection.call("setRequestProperty", {"Expect", ""});
        connection.set("Payload", Array::bytes(std::string_view(content)));
        try {
            receiveBytes(connection);
        } catch (...) {
            connection.set("Payload", Array::bytes(std::string_view()));
            throw;
        }
    });
    server.raise("the end");
}

// A file that was being written keeps what had come, and no more: the caller knows that it is not whole.
TEST_F(InterruptPhases, WritingAFileWithinTheProgressReporter) {
    ScriptedServer& server = serveRounds([](const std::string& round) {
        return Script{step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\npart"),
                      step::await("copied " + round), // then more wakes the copy up
                      step::send(" more"), step::awaitPeerEnd()};
    });
    const std::string file = folder().file("target");
    const ScriptedReporter reporter = makeScriptedReporter(host());
    std::string current;
    reporter->OnUpdate = [&](int, std::uint64_t) { // called when the first part has been written
        host().interrupt();
        server.raise("copied " + current);
        return Array(true);
    };
    stopManyTimes(
        Outcome::Interrupt,
        [&](const Object& connection, const std::string& round) {
            current = round;
            std::filesystem::remove(file);
            openLimited(connection, server.url(), 60000);
            connection.set("ProgressReporter", reporter);
            connection.call("copyContentToFile", {Array(file)});
        },
        [&] { EXPECT_EQ(readFile(file), "part"); });
}

} // namespace
