// A server that plays exact bytes on loopback and records what it saw. Driven by events, never by time.
#pragma once

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

// One step of one connection's script.
struct Step {
    enum class Kind {
        Head,         // read until an empty line
        Body,         // read exactly Count bytes
        ChunkedBody,  // read a chunked body to its end
        Discard,      // read exactly Count bytes and keep nothing of them, not in the record either
        Send,         // send Text, as one piece or byte by byte as the server's pace says
        SendSingly,   // send Text with one call per byte, whatever the pace
        Continue,     // send an interim 100 head where the last head asked for one
        Await,        // wait for the event Text of the test
        Signal,       // tell the test that the event Text has happened
        Run,          // call Action on the server's thread
        Close,        // close the connection
        Reset,        // close it with a reset
        HalfClose,    // send nothing more, go on reading
        AwaitPeerEnd, // say nothing until the peer closes; what it sends is read and recorded
    };
    Kind What;
    std::string Text{};
    std::size_t Count = 0;
    std::function<void()> Action{};
};

// Steps read like a script: {step::expectHead(), step::send(response("hello"))}.
namespace step {
Step expectHead();
Step expectBody(std::size_t length);
Step expectChunkedBody();
Step discard(std::size_t length);
Step send(std::string bytes);
Step sendSingly(std::string bytes);
Step continueIfExpected();
Step await(std::string event);
Step signal(std::string event);
Step run(std::function<void()> action);
Step close();
Step reset();
Step halfClose();
Step awaitPeerEnd();
} // namespace step

// When the steps of a script are used up, its connection stays open and silent until the peer closes it.
using Script = std::vector<Step>;

// How one connection went.
struct Record {
    std::vector<std::string> Heads;  // with their ends
    std::vector<std::string> Bodies; // content of chunked bodies, exact bytes of others
    std::string Received;            // every byte that was not discarded
    std::size_t StepsDone = 0;
    bool PeerEnded = false; // the peer closed or reset the connection
    bool Ended = false;     // no longer open on our side
    std::string Problem;    // what made the script stop early; empty where nothing did
};

enum class Pace { Whole, SingleBytes };
inline void PrintTo(Pace pace, std::ostream* stream) { // for GoogleTest
    *stream << (pace == Pace::Whole ? "whole" : "in single bytes");
}

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
