// One connection of a scripted server: plays its steps as far as they go without waiting.
#pragma once

#include "tests/support/server/ChunkedReader.h"
#include "tests/support/server/Script.h"
#include "tests/support/server/SocketHandle.h"

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace testsupport {

// What the server's thread and the test share. Everything behind the one lock.
struct ServerState {
    std::mutex Guard;
    std::condition_variable Changed;
    std::vector<Record> Records;
    std::set<std::string> RaisedByTest;
    std::set<std::string> SignalledByScript;
    bool Stopping = false;
};

class ServerConnection {
public:
    ServerConnection(SocketHandle socket, Script steps, Pace pace, ServerState& state, std::size_t index);

    int descriptor() const { return Socket.get(); }
    bool open() const { return static_cast<bool>(Socket); }
    short wantedEvents() const; // for poll
    void handle(short events);  // what poll has found
    void advance();             // plays steps until one has to wait

private:
    const Step* current() const { return Position < Steps.size() ? &Steps[Position] : nullptr; }
    bool reads() const; // what is played now takes what the peer sends
    bool play(const Step& step);
    bool takeHead();
    bool takeBody(std::size_t length);
    bool takeChunkedBody();
    bool discard(std::size_t length);
    bool transmit(const std::string& text, bool singly);
    bool receiveOnce();
    void receiveAll();
    void end(const std::string& problem, std::size_t stepsDone);
    template <class Change>
    void changeRecord(Change change);

    SocketHandle Socket;
    Script Steps;
    Pace Speed;
    ServerState& State;
    std::size_t Index;
    std::size_t Position = 0;
    std::size_t Transmitted = 0; // of the text of the current step
    std::size_t Discarded = 0;   // of the bytes of the current step
    std::string Pending;         // received and not yet taken by a step
    ChunkedReader Chunks;
    bool ContinueExpected = false; // the last head asked for an interim response
    bool PeerEnded = false;
};

} // namespace testsupport
