// The server of an exchange without a network and without a thread: libcurl talks to one end of a pair of sockets, and
// what the script says goes into the other end whenever the library waits. Time does not pass by itself: a wait that
// finds nothing to do moves the library's clock by what was to be waited, so an exchange that stays silent meets its
// limits at once.
//
// Link the target `netrove_scripted_peer` (it brings this file's source and the --wrap options, which reach the calls
// of netrove_static). Without an instance alive every call goes to libcurl and the real clock.
//
//     ScriptedPeer peer({{.Pieces = {"HTTP/1.1 200 OK\r\n", "\r\nabc"}, .End = StreamEnd::Closed}});
//     connection.set("URL", peer.Url);
#pragma once

#include "tests/support/server/ResponseReading.h"
#include "tests/support/server/SocketHandle.h"

#include <curl/curl.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace testsupport {

// What one connection brings: one piece for each wait of the library, and after the last piece the end.
struct PeerScript {
    std::vector<std::string> Pieces;
    StreamEnd End = StreamEnd::Open;
};

class ScriptedPeer {
public:
    static constexpr const char* kUrl = "http://127.0.0.1:9/"; // numeric, and nothing is sent there

    // The connections are given their scripts in the order in which they come in; one beyond the last is refused.
    explicit ScriptedPeer(std::vector<PeerScript> scripts);
    ~ScriptedPeer();
    ScriptedPeer(const ScriptedPeer&) = delete;
    ScriptedPeer& operator=(const ScriptedPeer&) = delete;

    // From now on every request, on a connection that is open or a new one, is answered with these bytes, whatever the
    // scripts had left to say.
    void answerWith(std::string response);

    // How the connection went on which the last request came in.
    struct Exchange {
        std::string Sent; // by the peer
        StreamEnd End = StreamEnd::Open;
        std::size_t Requests = 0;       // heads that have come in
        std::size_t SentBeforeLast = 0; // of Sent, when the last of them came in
        std::string Received;
    };
    Exchange lastExchange();

    // Bytes have been sent on a connection that libcurl has not read.
    bool hasUnread() const;

    // The library has waited more often than any exchange needs.
    bool stuck() const { return Waits > kMostWaits; }

    // For the wrapped functions.
    static ScriptedPeer* current() noexcept;
    curl_socket_t open();
    bool advance(); // true: something was sent or ended
    std::int64_t Now = 1'000'000'000;

private:
    static constexpr std::size_t kMostWaits = 20000;
    struct Connection;

    void takeRequests();

    std::vector<PeerScript> Scripts;
    std::vector<std::unique_ptr<Connection>> Connections; // in the order in which they came in
    std::size_t LastAsked = 0;                            // index of the connection with the last request
    std::string Answer;
    bool Answers = false;
    std::size_t Waits = 0;
};

} // namespace testsupport
