// A program that stops its requests, in phases that tests/exchange does not meet and several times: whatever was under
// way, the next request of the same object and that of a new one complete.
#include "tests/integration/interrupt/HeldLookup.h"
#include "tests/integration/support/IntegrationFixture.h"
#include "tests/support/server/UnreachablePorts.h"
#include "tests/support/server/WireText.h"

#include <filesystem>
#include <optional>
#include <thread>
#include <utility>

namespace {

using namespace integrationtest;

constexpr int kRounds = 10;
constexpr double kLong = 60000;
constexpr double kShort = 20; // ms: bounds a wait of the send while nothing can come, and with it the time of a round

// What a stop becomes while a request is sent, and while content is copied.
const std::string kFailedConnection = "VANTIK:webservices:ConnectionFailed(The operation was stopped on request.)";
const std::string kInterrupt = "interrupted";

class InterruptPhases : public IntegrationFixture {
protected:
    // A server that plays the same script to as many connections as there are rounds.
    ScriptedServer& serveRounds(const Script& script) { return serve(std::vector<Script>(kRounds, script)); }

    // Stops the program's work, from the thread of the server.
    Step stopHere() {
        return step::run([this] { host().interrupt(); });
    }

    static void openLimited(const Object& connection, const std::string& url, double responseLimit = kLong) {
        connection.set("URL", url);
        connection.set("TimeoutInMilliseconds", Array::doubles({30000, responseLimit}));
        connection.call("openConnection");
    }

    // Runs `request` again and again, each time on one object first and on a new one then, and looks at how it ends and
    // at what comes after it.
    void stopManyTimes(
        const std::string& expected, const std::function<void(const Object&)>& request,
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
                expectStopped(expected, [&] { request(connection); });
                after();
                ASSERT_FALSE(HasFailure());
                expectGood(connection, good);
            }
            expectGood(makeAdapter(), good);
        }
        expectScopeUsable();
    }

private:
    void expectStopped(const std::string& expected, const std::function<void()>& action) {
        std::string seen = "nothing was stopped";
        try {
            action();
        } catch (const vantik::Interrupted& stop) {
            seen = stop.byProgram() ? "stopped by the program" : kInterrupt;
        } catch (const vantik::Failure& failure) {
            seen = describe(failure.message());
        }
        EXPECT_EQ(seen, expected);
        EXPECT_FALSE(host().interruptPending());
    }

    static void expectGood(const Object& connection, const std::string& url) {
        connection.call("closeConnection");
        receiveBytes(connection); // what the stopped transfer has left
        for (const char* property : {"Provider", "Consumer", "ProgressReporter"}) {
            connection.set(property, Array());
        }
        connection.set("Payload", Array::bytes(std::string_view()));
        openLimited(connection, url);
        connection.set("RequestMethod", "GET");
        EXPECT_EQ(receiveBytes(connection), "good");
        EXPECT_EQ(status(connection), 200);
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
    for (const bool otherThread : {false, true}) {
        stopManyTimes(kFailedConnection, [&](const Object& connection) {
            openLimited(connection, silent.url(), kShort);
            armed = !otherThread;
            const std::jthread other([&] {
                if (otherThread) {
                    host().interrupt();
                }
            });
            receiveBytes(connection);
        });
    }
    host().onImpersonation({}, {});
}

// The requests after each stop complete while the look-up is still held.
TEST_F(InterruptPhases, LookingUpTheName) {
    std::optional<HeldLookup> lookup;
    stopManyTimes(kFailedConnection, [&](const Object& connection) {
        lookup.emplace();
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
    stopManyTimes(kFailedConnection, [&](const Object& connection) {
        openLimited(connection, "https://" + server.authority() + "/");
        receiveBytes(connection);
    });
}

TEST_F(InterruptPhases, WithinTheHead) {
    ScriptedServer& server = serveRounds({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nX-A: 1\r\n"), stopHere(),
                                          step::send("X-B"), step::awaitPeerEnd()});
    stopManyTimes(kFailedConnection, [&](const Object& connection) {
        openLimited(connection, server.url());
        receiveBytes(connection);
    });
}

// Content from a provider that the server takes, and content from memory that nobody reads: there all buffers on the
// way fill up and nothing moves any more.
TEST_F(InterruptPhases, Sending) {
    const ScriptedProvider provider = makeScriptedProvider(host());
    provider->OnRead = [piece = std::string(16384, 'x')](int, std::uint64_t wanted) {
        return Array::bytes(std::string_view(piece).substr(0, wanted));
    };
    const std::string content(8'000'000, 'x');
    for (const bool taken : {true, false}) {
        ScriptedServer& server = serveRounds({step::expectHead(), step::discard(taken ? 50000 : 0), stopHere(),
                                              step::await(taken ? "begin" : "end"), step::awaitPeerEnd()});
        server.raise("begin");
        stopManyTimes(kFailedConnection, [&](const Object& connection) {
            openLimited(connection, server.url());
            connection.set("RequestMethod", "PUT");
            connection.call("setRequestProperty", {"Expect", ""});
            if (taken) {
                connection.set("Provider", provider);
            } else {
                connection.set("Payload", Array::bytes(std::string_view(content)));
            }
            receiveBytes(connection);
        });
        server.raise("end");
    }
}

// A file that was being written keeps what had come, and no more: the caller knows that it is not whole.
TEST_F(InterruptPhases, WritingAFileWithinTheProgressReporter) {
    std::vector<Script> scripts;
    for (int round = 0; round < kRounds; ++round) {
        scripts.push_back({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\npart"),
                           step::await("copied " + std::to_string(round)), // then more wakes the copy up
                           step::send(" more"), step::awaitPeerEnd()});
    }
    ScriptedServer& server = serve(scripts);
    const std::string file = folder().file("target");
    const ScriptedReporter reporter = makeScriptedReporter(host());
    int round = -1;
    reporter->OnUpdate = [&](int, std::uint64_t) { // called when the first part has been written
        host().interrupt();
        server.raise("copied " + std::to_string(round));
        return Array(true);
    };
    stopManyTimes(
        kInterrupt,
        [&](const Object& connection) {
            ++round;
            std::filesystem::remove(file);
            openLimited(connection, server.url());
            connection.set("ProgressReporter", reporter);
            connection.call("copyContentToFile", {Array(file)});
        },
        [&] { EXPECT_EQ(readFile(file), "part"); });
}

} // namespace
