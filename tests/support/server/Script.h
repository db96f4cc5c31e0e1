// What a scripted server does on one connection, step by step, and what it records of it.
#pragma once

#include <cstddef>
#include <functional>
#include <ostream>
#include <string>
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

} // namespace testsupport
