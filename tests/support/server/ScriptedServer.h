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

class ServerConnection;
struct ServerState;

// One step of one connection's script.
struct Step {
    enum class Wait { Input, UnrecordedInput, Output, Event };
    Wait For;                                    // while it is not done
    std::function<bool(ServerConnection&)> Play; // as far as it goes; true: it is done
};

// Steps read like a script: {step::expectHead(), step::send(response("hello"))}.
namespace step {
Step expectHead();                      // read until an empty line
Step expectBody(std::size_t length);    // read exactly so many bytes
Step expectChunkedBody();               // read a chunked body to its end
Step discard(std::size_t length);       // read so many bytes and keep nothing of them, not in the record either
Step send(std::string bytes);           // as one piece or byte by byte, as the server's pace says
Step continueIfExpected();              // send an interim 100 head if the last head asked for one
Step await(std::string event);          // wait until the test raises the event
Step signal(std::string event);         // tell the test that the event has happened
Step run(std::function<void()> action); // on the server's thread
Step close();
Step reset();        // close with a reset
Step halfClose();    // send nothing more, go on reading
Step awaitPeerEnd(); // say nothing until the peer closes; what it sends is read and recorded
} // namespace step

// When the steps of a script are used up, its connection stays open and silent until the peer closes it.
using Script = std::vector<Step>;

// How one connection went.
struct Record {
    std::vector<std::string> Heads;  // with their ends
    std::vector<std::string> Bodies; // content of chunked bodies, exact bytes of others
    std::string Received;            // every byte that was not discarded
    std::size_t StepsDone = 0;
    bool AllDone = false;   // every step of the script
    bool PeerEnded = false; // the peer closed or reset the connection
    bool Ended = false;     // no longer open on our side
    std::string Problem;    // what made the script stop early; empty where nothing did
};

enum class Pace { Whole, SingleBytes };
inline void PrintTo(Pace pace, std::ostream* stream) { // for GoogleTest
    *stream << (pace == Pace::Whole ? "whole" : "in single bytes");
}

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

    // Each waits until it is so and raises std::runtime_error where that takes unreasonably long (a minute): a test
    // that would hang then says what it was waiting for.
    Record waitUntilDone(std::size_t connection = 0) const; // every step done, or the peer has gone
    void waitUntilAllEnded() const;                         // no connection is open any more

private:
    void waitUntil(const std::string& what, const std::function<bool()>& condition) const;
    void serve(const SocketHandle& listening, std::vector<Script> scripts, Pace pace);
    void wake() const;

    Family AddressFamily;
    std::uint16_t Port = 0;
    std::unique_ptr<ServerState> State;
    SocketHandle Wake; // an eventfd: written to when the loop has to look at its state again
    std::thread Worker;
};

} // namespace testsupport
