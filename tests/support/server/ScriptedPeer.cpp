#include "tests/support/server/ScriptedPeer.h"

#include <linux/sockios.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <stdexcept>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace testsupport {
namespace {

ScriptedPeer* thePeer = nullptr;

curl_socket_t openSocket(void*, curlsocktype, curl_sockaddr*) {
    return thePeer == nullptr ? CURL_SOCKET_BAD : thePeer->open();
}

} // namespace

struct ScriptedPeer::Connection {
    SocketHandle Socket;
    std::vector<std::string> Pieces;
    StreamEnd EndWanted = StreamEnd::Open;
    std::size_t Next = 0;     // piece
    std::size_t Position = 0; // in it
    Exchange Went;
    std::size_t Unread = 0;   // of what has been received, at its end
    std::size_t Searched = 0; // of what has been received, for requests

    // One byte always stays unread: closing a socket with unread bytes is a reset. True: requests have come in.
    bool receive() {
        std::array<char, 4096> block;
        ssize_t seen = 0;
        while (Socket && (seen = ::recv(Socket.get(), block.data(), block.size(), MSG_PEEK | MSG_DONTWAIT)) > 1) {
            ::recv(Socket.get(), block.data(), static_cast<std::size_t>(seen - 1), MSG_DONTWAIT);
            Went.Received.resize(Went.Received.size() - Unread);
            Went.Received.append(block.data(), static_cast<std::size_t>(seen));
            Unread = 1;
        }
        constexpr std::string_view mark = " HTTP/1."; // 1.0 to an old server; nothing else that a test sends holds it
        const std::size_t before = Went.Requests;
        for (std::size_t at; (at = Went.Received.find(mark, Searched)) != std::string::npos; Searched = at + 1) {
            ++Went.Requests;
            Went.SentBeforeLast = Went.Sent.size();
        }
        Searched = std::max(Searched, Went.Received.size() - std::min(Went.Received.size(), mark.size()));
        return Went.Requests != before;
    }

    bool sendNext() {
        if (!Socket || Went.End != StreamEnd::Open) {
            return false;
        }
        bool moved = false;
        if (Next < Pieces.size()) {
            const std::string& piece = Pieces[Next];
            const ssize_t sent =
                ::send(Socket.get(), piece.data() + Position, piece.size() - Position, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (sent < 0 && errno != EAGAIN) { // libcurl has closed its end
                Socket.reset();
                return false;
            }
            if (sent >= 0) {
                moved = true;
                Went.Sent.append(piece, Position, static_cast<std::size_t>(sent));
                Position += static_cast<std::size_t>(sent);
            }
            if (Position == piece.size()) {
                ++Next;
                Position = 0;
            }
        }
        if (Next == Pieces.size() && EndWanted != StreamEnd::Open) {
            moved = true;
            Went.End = EndWanted;
            if (EndWanted == StreamEnd::Closed) {
                ::shutdown(Socket.get(), SHUT_WR);
            } else {
                Socket.reset();
            }
        }
        return moved;
    }
};

ScriptedPeer::ScriptedPeer(std::vector<PeerScript> scripts) : Scripts(std::move(scripts)) {
    if (thePeer != nullptr) {
        throw std::logic_error("Only one ScriptedPeer at a time");
    }
    thePeer = this;
}

ScriptedPeer::~ScriptedPeer() {
    thePeer = nullptr;
}

ScriptedPeer* ScriptedPeer::current() noexcept {
    return thePeer;
}

void ScriptedPeer::answerWith(std::string response) {
    takeRequests(); // what has been asked so far is not answered
    Answers = true;
    Answer = std::move(response);
    for (const auto& connection : Connections) {
        connection->Pieces.clear();
        connection->Next = connection->Position = 0;
        connection->EndWanted = StreamEnd::Open;
    }
}

void ScriptedPeer::takeRequests() {
    for (std::size_t i = 0; i < Connections.size(); ++i) {
        Connection& connection = *Connections[i];
        if (connection.receive()) {
            LastAsked = i;
            if (Answers) {
                connection.Pieces.push_back(Answer);
            }
        }
    }
}

ScriptedPeer::Exchange ScriptedPeer::lastExchange() {
    takeRequests();
    return LastAsked < Connections.size() ? Connections[LastAsked]->Went : Exchange();
}

bool ScriptedPeer::hasUnread() const {
    return std::any_of(Connections.begin(), Connections.end(), [](const auto& connection) {
        int waiting = 0;
        return connection->Socket && ::ioctl(connection->Socket.get(), SIOCOUTQ, &waiting) == 0 && waiting != 0;
    });
}

curl_socket_t ScriptedPeer::open() {
    if (!Answers && Connections.size() == Scripts.size()) {
        return CURL_SOCKET_BAD;
    }
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        return CURL_SOCKET_BAD;
    }
    auto connection = std::make_unique<Connection>();
    connection->Socket = SocketHandle(ends[0]);
    if (!Answers) {
        connection->Pieces = Scripts[Connections.size()].Pieces;
        connection->EndWanted = Scripts[Connections.size()].End;
    }
    Connections.push_back(std::move(connection));
    return ends[1];
}

bool ScriptedPeer::advance() {
    if (++Waits > kMostWaits) {
        throw std::runtime_error("the exchange does not end");
    }
    takeRequests();
    bool moved = false;
    for (const auto& connection : Connections) {
        moved = connection->sendNext() || moved;
    }
    return moved;
}

} // namespace testsupport

// The wrapped functions. Their names are the linker's: a call of `name` comes to `__wrap_name`, and `__real_name` is
// the function itself.
using testsupport::ScriptedPeer;

extern "C" {

// These two stand in the place of the C library's, for libcurl as well. Version 7.88 connects a socket also where
// CURLOPT_SOCKOPTFUNCTION says CURL_SOCKOPT_ALREADY_CONNECTED, and no version uses a connection again whose peer has no
// address.
__attribute__((visibility("default"))) int connect(int socket, const sockaddr* address, socklen_t length) {
    return ScriptedPeer::current() != nullptr ? 0 : static_cast<int>(::syscall(SYS_connect, socket, address, length));
}

__attribute__((visibility("default"))) int getpeername(int socket, sockaddr* address, socklen_t* length) noexcept {
    if (ScriptedPeer::current() == nullptr) {
        return static_cast<int>(::syscall(SYS_getpeername, socket, address, length));
    }
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(9);
    peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::memcpy(address, &peer, std::min<std::size_t>(*length, sizeof(peer)));
    *length = sizeof(peer);
    return 0;
}

CURLMcode __real_curl_multi_add_handle(CURLM* multi, CURL* easy);
CURLMcode __real_curl_multi_wait(CURLM* multi, curl_waitfd* extra, unsigned int count, int milliseconds, int* ready);
void __real__ZN7netrove17interruptibleWaitEl(std::int64_t until);
std::int64_t __real__ZN7netrove12monotonicNowEv();

CURLMcode __wrap_curl_multi_add_handle(CURLM* multi, CURL* easy) {
    if (ScriptedPeer::current() != nullptr) {
        curl_easy_setopt(easy, CURLOPT_OPENSOCKETFUNCTION, &testsupport::openSocket);
    }
    return __real_curl_multi_add_handle(multi, easy);
}

CURLMcode __wrap_curl_multi_wait(CURLM* multi, curl_waitfd* extra, unsigned int count, int milliseconds, int* ready) {
    ScriptedPeer* peer = ScriptedPeer::current();
    if (peer == nullptr) {
        return __real_curl_multi_wait(multi, extra, count, milliseconds, ready);
    }
    const bool moved = peer->advance();
    const CURLMcode code = __real_curl_multi_wait(multi, extra, count, 0, ready);
    if (!moved && *ready == 0) {
        peer->Now += std::int64_t{milliseconds} * 1'000'000;
    }
    return code;
}

std::int64_t __wrap__ZN7netrove12monotonicNowEv() {
    const ScriptedPeer* peer = ScriptedPeer::current();
    return peer == nullptr ? __real__ZN7netrove12monotonicNowEv() : peer->Now;
}

void __wrap__ZN7netrove17interruptibleWaitEl(std::int64_t until) {
    ScriptedPeer* peer = ScriptedPeer::current();
    if (peer == nullptr) {
        __real__ZN7netrove17interruptibleWaitEl(until);
    } else {
        peer->Now = std::max(peer->Now, until);
    }
}

} // extern "C"
