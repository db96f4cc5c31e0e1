#include "bench/LoopbackServer.h"

#include "bench/Content.h"
#include "tests/support/server/SocketHandle.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <iterator>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string_view>
#include <strings.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/uio.h>
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
constexpr std::size_t kLongestHead = std::size_t{256} << 10;
constexpr std::string_view kFieldLine = "X-Field: a value as long as many are\r\n";

[[noreturn]] void raiseSystemError(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// The peer went away, or sent something that is not a request: the connection ends.
struct ConnectionEnd {};

// What a GET asks for.
struct Target {
    std::uint64_t Length = 0;
    std::uint64_t Fields = 0;
};

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

Target parseTarget(std::string_view text) {
    constexpr std::string_view kFields = "?fields=";
    const std::size_t fields = text.find(kFields);
    return {parseNumber(text.substr(1), 10),
            fields == std::string_view::npos ? 0 : parseNumber(text.substr(fields + kFields.size()), 10)};
}

// User and system.
std::string cpuSeconds() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return std::to_string(static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                          static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * 1e-6);
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
                answerGet(request.Target);
                continue;
            }
            if (request.ExpectsContinue) {
                send("HTTP/1.1 100 Continue\r\n\r\n");
            }
            Tally received(request.Target == "/checksum");
            if (request.Chunked) {
                takeChunks(received);
            } else {
                takeBytes(request.ContentLength, received);
            }
            answer(std::to_string(received.count()) +
                   (request.Target == "/checksum" ? " " + std::to_string(received.checksum()) : ""));
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

    void takeBytes(std::uint64_t length, Tally& received) {
        for (std::uint64_t left = length; left > 0;) {
            if (Begin == End) {
                fill();
            }
            const std::size_t count = std::min<std::uint64_t>(left, End - Begin);
            received.take(Input.data() + Begin, count);
            Begin += count;
            left -= count;
        }
    }

    void takeChunks(Tally& received) {
        while (true) {
            const std::uint64_t length = parseNumber(takeThrough("\r\n"), 16);
            takeBytes(length, received);
            takeThrough("\r\n"); // after the chunk, or the end of the trailer, which is empty
            if (length == 0) {
                return;
            }
        }
    }

    void answerGet(const std::string& text) {
        if (text == "/cpu") {
            answer(cpuSeconds());
            return;
        }
        static const std::string content = contentOf(kContentPeriod);
        const Target target = parseTarget(text);
        std::string head = "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\nContent-Length: " +
                           std::to_string(target.Length) + "\r\n";
        for (std::uint64_t field = 0; field < target.Fields; ++field) {
            head += kFieldLine;
        }
        head += "\r\n";
        std::uint64_t left = target.Length;
        do { // what is small goes out in one piece
            const std::size_t count = std::min<std::uint64_t>(left, content.size());
            send(head, std::string_view(content).substr(0, count));
            head.clear();
            left -= count;
        } while (left > 0);
    }

    void answer(const std::string& content) {
        send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(content.size()) + "\r\n\r\n" + content);
    }

    // Sends both texts.
    void send(std::string_view first, std::string_view second = {}) {
        while (!first.empty() || !second.empty()) {
            iovec parts[] = {{const_cast<char*>(first.data()), first.size()},
                             {const_cast<char*>(second.data()), second.size()}};
            msghdr message{};
            message.msg_iov = parts;
            message.msg_iovlen = std::size(parts);
            const ssize_t count = ::sendmsg(Peer.get(), &message, MSG_NOSIGNAL);
            if (count <= 0) {
                throw ConnectionEnd();
            }
            const std::size_t ofFirst = std::min(first.size(), static_cast<std::size_t>(count));
            first.remove_prefix(ofFirst);
            second.remove_prefix(static_cast<std::size_t>(count) - ofFirst);
        }
    }

    SocketHandle Peer;
    std::vector<char> Input;
    std::size_t Begin = 0; // of what is buffered
    std::size_t End = 0;
};

} // namespace

[[noreturn]] void serveForever(const SocketHandle& listening) {
    while (true) {
        SocketHandle peer(::accept4(listening.get(), nullptr, nullptr, SOCK_CLOEXEC));
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

SocketHandle listenOnLoopback() {
    SocketHandle listening = testsupport::bindLoopback(testsupport::Family::IPv4, true);
    if (::listen(listening.get(), 16) != 0) {
        raiseSystemError("listening on loopback");
    }
    return listening;
}

LoopbackServer::LoopbackServer() {
    const SocketHandle listening = listenOnLoopback();
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
        serveForever(listening);
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
