#include "tests/model/ModelServer.h"

#include "tests/support/server/ChunkedReader.h"
#include "tests/support/server/WireText.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <list>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <optional>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace model {

using testsupport::fieldValue;
using testsupport::SocketHandle;

namespace {

constexpr const char* kBarrier = "/barrier"; // not a request of the library's

} // namespace

std::string contentOf(const std::string& source, std::size_t size) {
    std::string text;
    for (std::size_t piece = 0; text.size() < size; ++piece) {
        text += source + ':' + std::to_string(piece) + ';';
    }
    text.resize(size);
    return text;
}

// One connection: requests one after the other, each with its answer.
class ModelServer::Connection {
public:
    Connection(ModelServer& server, SocketHandle socket, std::size_t port)
        : Server(server), Socket(std::move(socket)), Port(port) {
        const int on = 1;
        ::setsockopt(Socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }

    int descriptor() const { return Socket.get(); }
    short wantedEvents() const { return static_cast<short>(POLLIN | (Outgoing.empty() ? 0 : POLLOUT)); }

    // False once the connection has ended.
    bool handle(short events) {
        if ((events & (POLLIN | POLLHUP | POLLERR)) != 0 && !receive()) {
            return false;
        }
        return transmit();
    }

private:
    bool receive() {
        std::array<char, 65536> block;
        const ssize_t length = ::recv(Socket.get(), block.data(), block.size(), 0);
        if (length < 0 && (errno == EAGAIN || errno == EINTR)) {
            return true;
        }
        if (length <= 0) {
            return false;
        }
        if (Last == Plan::End::Whole || Current) { // after its last answer a connection is only read empty
            Pending.append(block.data(), static_cast<std::size_t>(length));
            takeRequests();
        }
        return true;
    }

    void takeRequests() {
        while (Current || Last == Plan::End::Whole) {
            if (!(Current ? takeBody() : takeHead())) {
                return;
            }
        }
    }

    bool takeHead() {
        const std::size_t end = Pending.find("\r\n\r\n");
        if (end == std::string::npos) {
            return false;
        }
        Request request;
        request.Port = Port;
        request.Head = Pending.substr(0, end + 4);
        Pending.erase(0, end + 4);
        const std::string line = testsupport::startLine(request.Head);
        const std::size_t blank = line.find(' ');
        request.Method = line.substr(0, blank);
        request.Path = line.substr(blank + 1, line.rfind(' ') - blank - 1);
        Chunked = fieldValue(request.Head, "Transfer-Encoding") == "chunked";
        Left = Chunked ? 0 : std::stoull(fieldValue(request.Head, "Content-Length").value_or("0"));
        Chunks = {};
        const std::lock_guard lock(Server.Guard);
        Current = Server.Requests.size();
        const auto found = Server.Plans.find(request.Path);
        Answer = found == Server.Plans.end() ? Plan{.Status = 500} : found->second;
        if (Answer.Challenge) {
            Answer.Status = fieldValue(request.Head, "Authorization") ? Answer.Status : 401;
        }
        Server.Requests.push_back(request);
        if (Answer.Early) {
            answer(Server.Requests.back());
        } else if (fieldValue(request.Head, "Expect")) {
            Outgoing += "HTTP/1.1 100 Continue\r\n\r\n";
        }
        return true;
    }

    bool takeBody() {
        const std::lock_guard lock(Server.Guard);
        Request& request = Server.Requests[*Current];
        try {
            request.Ended = Chunked ? Chunks.take(Pending) : takeCounted(request.Body);
        } catch (const std::exception& failure) {
            request.Trouble = failure.what();
            Pending.clear();
        }
        if (Chunked) {
            request.Body = Chunks.content();
        }
        if (request.Ended) {
            if (!Answer.Early) {
                answer(request);
            }
            Current.reset();
        }
        return request.Ended;
    }

    bool takeCounted(std::string& body) {
        const std::size_t length = std::min(Left, Pending.size());
        body.append(Pending, 0, length);
        Pending.erase(0, length);
        Left -= length;
        return Left == 0;
    }

    void answer(Request& request) {
        const std::string number = std::to_string(*Current);
        const bool bare = request.Method == "HEAD";
        std::string content = contentOf("r" + number, Answer.Size);
        request.Status = Answer.Status;
        std::string head =
            "HTTP/1.1 " + std::to_string(Answer.Status) + " Model\r\nX-Request: " + number + "\r\n" +
            (Answer.Chunked ? "Transfer-Encoding: chunked" : "Content-Length: " + std::to_string(content.size())) +
            "\r\n";
        if (Answer.Status == 401) {
            head += "WWW-Authenticate: Basic realm=\"model\"\r\n";
        }
        if (!Answer.Location.empty()) {
            head += "Location: " + Answer.Location + "\r\n";
        }
        if (Answer.Cookie) {
            head += "Set-Cookie: jar=" + number + "; Path=/\r\n";
        }
        const bool nothing = bare || (content.empty() && !Answer.Chunked); // the head is all
        request.Whole = Answer.Last == Plan::End::Whole || (Answer.Part > 0 && nothing);
        Last = request.Whole ? Plan::End::Whole : Answer.Last;
        if (!request.Whole) {
            content.resize(Answer.Part == 2 ? content.size() / 2 : 0);
        }
        if (request.Whole || Answer.Part > 0) {
            request.Cookie = Answer.Cookie;
            Outgoing += head + "\r\n";
            if (!bare) {
                request.Content = content;
                Outgoing += Answer.Chunked ? testsupport::chunked(content, 5000) : content;
                if (Answer.Chunked && !request.Whole) {
                    Outgoing.resize(Outgoing.size() - 5); // leaves out the last chunk
                }
            }
        }
    }

    bool transmit() {
        while (!Outgoing.empty()) {
            const ssize_t sent = ::send(Socket.get(), Outgoing.data(), Outgoing.size(), MSG_NOSIGNAL);
            if (sent < 0) {
                return errno == EAGAIN || errno == EINTR;
            }
            Outgoing.erase(0, static_cast<std::size_t>(sent));
        }
        if (Last == Plan::End::Reset) {
            const linger atOnce{1, 0};
            ::setsockopt(Socket.get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
            return false;
        }
        if (Last == Plan::End::Closed) {
            ::shutdown(Socket.get(), SHUT_WR); // what still comes in is read, or the close would be a reset
        }
        return true;
    }

    ModelServer& Server;
    SocketHandle Socket;
    std::size_t Port;
    std::string Pending;                // received and not yet taken
    std::string Outgoing;               // not yet transmitted
    std::optional<std::size_t> Current; // number of the request whose content comes in
    Plan Answer;                        // for that one
    Plan::End Last = Plan::End::Whole;  // how the latest answer ends, and with it the connection
    bool Chunked = false;               // the content that comes in
    std::size_t Left = 0;               // of content of a known length
    testsupport::ChunkedReader Chunks;
};

ModelServer::ModelServer() : Wake(::eventfd(0, EFD_CLOEXEC)) {
    for (std::size_t index = 0; index < Listening.size(); ++index) {
        Listening[index] = testsupport::bindLoopback(testsupport::Family::IPv4, false);
        if (::listen(Listening[index].get(), SOMAXCONN) != 0) {
            throw std::system_error(errno, std::generic_category(), "listen");
        }
        Ports[index] = testsupport::boundPort(Listening[index]);
    }
    Worker = std::thread([this] { serve(); });
}

ModelServer::~ModelServer() {
    const std::uint64_t one = 1;
    static_cast<void>(!::write(Wake.get(), &one, sizeof one));
    Worker.join();
}

void ModelServer::serve() {
    std::list<Connection> connections;
    for (;;) {
        std::vector<pollfd> watched{{Wake.get(), POLLIN, 0}};
        for (const SocketHandle& listening : Listening) {
            watched.push_back({listening.get(), POLLIN, 0});
        }
        for (const Connection& connection : connections) {
            watched.push_back({connection.descriptor(), connection.wantedEvents(), 0});
        }
        if (::poll(watched.data(), watched.size(), -1) < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        if (watched[0].revents != 0) {
            return;
        }
        std::size_t place = 1 + Listening.size();
        for (auto connection = connections.begin(); connection != connections.end(); ++place) {
            const short events = watched[place].revents;
            connection =
                events == 0 || connection->handle(events) ? std::next(connection) : connections.erase(connection);
        }
        for (std::size_t port = 0; port < Listening.size(); ++port) {
            for (;;) {
                SocketHandle socket(::accept4(Listening[port].get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
                if (!socket) {
                    break;
                }
                connections.emplace_back(*this, std::move(socket), port);
            }
        }
        {
            const std::lock_guard lock(Guard);
            Open = connections.size();
        }
        Changed.notify_all();
    }
}

std::string ModelServer::url(std::size_t port, const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(Ports.at(port)) + path;
}

void ModelServer::forget() {
    const std::lock_guard lock(Guard);
    Plans.clear();
    Requests.clear();
}

void ModelServer::plan(const std::string& path, Plan answer) {
    const std::lock_guard lock(Guard);
    Plans[path] = std::move(answer);
}

Request ModelServer::request(std::size_t number) const {
    const std::lock_guard lock(Guard);
    return number < Requests.size() ? Requests[number] : Request{};
}

std::set<int> ModelServer::statusesBelow(const std::string& folder) const {
    const std::lock_guard lock(Guard);
    std::set<int> statuses;
    for (const Request& request : Requests) {
        if (request.Path.starts_with(folder)) {
            statuses.insert(request.Status);
        }
    }
    return statuses;
}

// Connections are taken in their order: once one of our own has its answer, those before it have been taken.
bool ModelServer::awaitNoConnections() const {
    for (const std::uint16_t port : Ports) {
        const SocketHandle last = testsupport::connectLoopback(port);
        testsupport::writeAll(last, std::string("GET ") + kBarrier + " HTTP/1.1\r\n\r\n");
        testsupport::readSome(last);
    }
    std::unique_lock lock(Guard);
    return Changed.wait_for(lock, std::chrono::minutes(1), [this] { return Open == 0; });
}

bool ModelServer::isOurs(const Request& request) {
    return request.Path == kBarrier;
}

std::vector<Request> ModelServer::requests() const {
    const std::lock_guard lock(Guard);
    return Requests; // numbered as they came
}

} // namespace model
