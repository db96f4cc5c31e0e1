// A server that plays exact bytes on loopback and records what it saw. Driven by events, never by time.
#pragma once

#include "tests/support/server/Script.h"
#include "tests/support/server/SocketHandle.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

namespace testsupport {

struct ServerState;

// The connections are given their scripts in the order in which they come in; a connection beyond the last script is
// closed at once and counted.
class ScriptedServer {
public:
    explicit ScriptedServer(std::vector<Script> scripts, Pace pace = Pace::Whole, Family family = Family::IPv4);
    explicit ScriptedServer(Script script, Pace pace = Pace::Whole, Family family = Family::IPv4);
    ~ScriptedServer(); // stops at once, whatever state the connections are in
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    std::uint16_t port() const { return Port; }
    std::string authority() const; // "127.0.0.1:port"
    std::string url(const std::string& path = "/") const;

    void raise(const std::string& event);         // for the steps that await it, now and later
    void waitFor(const std::string& event) const; // until a script has signalled it

    Record record(std::size_t connection = 0) const; // as it is now
    std::size_t connectionCount() const;             // how many have come in, unexpected ones included
    std::size_t openConnections() const;

    // Each waits until it is so and raises std::runtime_error where that takes unreasonably long (a minute): a test
    // that would hang then says what it was waiting for.
    Record waitUntilDone(std::size_t connection = 0) const; // every step done, or the peer has gone
    void waitUntilAllEnded() const;                         // no connection is open any more

private:
    template <class Condition>
    void waitUntil(const std::string& what, Condition condition) const;
    void serve(const SocketHandle& listening, std::vector<Script> scripts, Pace pace);
    void wake() const;

    Family AddressFamily;
    std::uint16_t Port = 0;
    std::vector<std::size_t> ScriptLengths; // in steps
    std::unique_ptr<ServerState> State;
    SocketHandle Wake; // an eventfd: written to when the loop has to look at its state again
    std::thread Worker;
};

} // namespace testsupport
