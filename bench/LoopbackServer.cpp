#include "bench/LoopbackServer.h"

#include "tests/support/server/SocketHandle.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string_view>
#include <strings.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace bench {
namespace {

using testsupport::SocketHandle;

constexpr std::size_t kBlockSize = std::size_t{256} << 10;
constexpr std::size_t kLongestHead = std::size_t{64} << 10;

[[noreturn]] void raiseSystemError(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// The peer went away, or sent something that is not a request: the connection ends.
struct ConnectionEnd {};

struct RequestHead {
    std::string Method;
    std::string Target;
    std::uint64_t ContentLength = 0;
    bool Chunked = false;
    bool ExpectsContinue = false;
};

std::uint64_t parseNumber(std::string_view text, int base) {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (error != std::errc() || end == text.data()) {
        throw ConnectionEnd();
    }
    return number;
}

RequestHead parseHead(std::string_view head) {
    RequestHead request;
    const std::size_t first = head.find(' ');
    const std::size_t second = first == std::string_view::npos ? first : head.find(' ', first + 1);
    if (second == std::string_view::npos) {
        throw ConnectionEnd();
    }
    request.Method = head.substr(0, first);
    request.Target = head.substr(first + 1, second - first - 1);
    for (std::size_t at = head.find("\r\n"); at + 2 < head.size(); at = head.find("\r\n", at + 2)) {
        const std::string_view rest = head.substr(at + 2);
        const std::string line(rest.substr(0, rest.find("\r\n")));
        const auto startsWith = [&](std::string_view name) {
            return line.size() >= name.size() && strncasecmp(line.data(), name.data(), name.size()) == 0;
        };
        if (startsWith("Content-Length: ")) {
            request.ContentLength = parseNumber(std::string_view(line).substr(16), 10);
        } else if (startsWith("Transfer-Encoding: chunked")) {
            request.Chunked = true;
        } else if (startsWith("Expect: 100-continue")) {
            request.ExpectsContinue = true;
        }
    }
    return request;
}

class Connection {
public:
    explicit Connection(SocketHandle peer) : Peer(std::move(peer)), Input(kBlockSize) {}

    void serve() {
        while (true) {
            const RequestHead request = readHead();
            if (request.Method == "GET") {
                const std::uint64_t length = parseNumber(std::string_view(request.Target).substr(1), 10);
                sendText("HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\nContent-Length: " +
                         std::to_string(length) + "\r\n\r\n");
                sendContent(length);
                continue;
            }
            if (request.ExpectsContinue) {
                sendText("HTTP/1.1 100 Continue\r\n\r\n");
            }
            const std::string received =
                std::to_string(request.Chunked ? takeChunks() : takeBytes(request.ContentLength));
            sendText("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(received.size()) + "\r\n\r\n" + received);
        }
    }

private:
    std::string_view buffered() const { return {Input.data() + Begin, End - Begin}; }

    // Reads more after what is buffered.
    void fill() {
        if (Begin == End) {
            Begin = End = 0;
        } else if (End == Input.size()) {
            std::memmove(Input.data(), Input.data() + Begin, End - Begin);
            End -= std::exchange(Begin, 0);
        }
        const ssize_t count = ::recv(Peer.get(), Input.data() + End, Input.size() - End, 0);
        if (count <= 0) {
            throw ConnectionEnd();
        }
        End += static_cast<std::size_t>(count);
    }

    // Takes everything up to and including `mark`.
    std::string takeThrough(std::string_view mark) {
        while (true) {
            const std::size_t at = buffered().find(mark);
            if (at != std::string_view::npos) {
                std::string text(buffered().substr(0, at + mark.size()));
                Begin += text.size();
                return text;
            }
            if (buffered().size() > kLongestHead) {
                throw ConnectionEnd();
            }
            fill();
        }
    }

    RequestHead readHead() { return parseHead(takeThrough("\r\n\r\n")); }

    std::uint64_t takeBytes(std::uint64_t length) {
        for (std::uint64_t left = length; left > 0;) {
            if (Begin == End) {
                fill();
            }
            const std::size_t count = std::min<std::uint64_t>(left, End - Begin);
            Begin += count;
            left -= count;
        }
        return length;
    }

    std::uint64_t takeChunks() {
        std::uint64_t total = 0;
        while (true) {
            const std::uint64_t length = parseNumber(takeThrough("\r\n"), 16);
            total += takeBytes(length);
            takeThrough("\r\n"); // after the chunk, or the end of the trailer, which is empty
            if (length == 0) {
                return total;
            }
        }
    }

    void send(const char* data, std::size_t size) {
        while (size > 0) {
            const ssize_t count = ::send(Peer.get(), data, size, MSG_NOSIGNAL);
            if (count <= 0) {
                throw ConnectionEnd();
            }
            data += count;
            size -= static_cast<std::size_t>(count);
        }
    }

    void sendText(std::string_view text) { send(text.data(), text.size()); }

    void sendContent(std::uint64_t length) {
        static const std::vector<char> block(kBlockSize, 'n');
        for (std::uint64_t left = length; left > 0;) {
            const std::size_t count = std::min<std::uint64_t>(left, block.size());
            send(block.data(), count);
            left -= count;
        }
    }

    SocketHandle Peer;
    std::vector<char> Input;
    std::size_t Begin = 0; // of what is buffered
    std::size_t End = 0;
};

[[noreturn]] void serveForever(int listening) {
    while (true) {
        SocketHandle peer(::accept4(listening, nullptr, nullptr, SOCK_CLOEXEC));
        if (!peer) {
            if (errno == EINTR || errno == ECONNABORTED) {
                continue;
            }
            ::_exit(1);
        }
        const int on = 1;
        ::setsockopt(peer.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        std::thread([connection = Connection(std::move(peer))]() mutable {
            try {
                connection.serve();
            } catch (const ConnectionEnd&) { // the peer has finished
            }
        }).detach();
    }
}

} // namespace

LoopbackServer::LoopbackServer() {
    const SocketHandle listening = testsupport::bindLoopback(testsupport::Family::IPv4, true);
    if (::listen(listening.get(), 16) != 0) {
        raiseSystemError("listening on loopback");
    }
    Port = testsupport::boundPort(listening);
    const pid_t parent = ::getpid();
    Process = ::fork();
    if (Process < 0) {
        raiseSystemError("starting the server");
    }
    if (Process == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent) { // it ended before the line above
            ::_exit(0);
        }
        serveForever(listening.get());
    }
}

LoopbackServer::~LoopbackServer() {
    ::kill(Process, SIGKILL);
    ::waitpid(Process, nullptr, 0);
}

std::string LoopbackServer::url(std::uint64_t bytes) const {
    return "http://127.0.0.1:" + std::to_string(Port) + "/" + std::to_string(bytes);
}

} // namespace bench
