#include "tests/model/ModelServer.h"

#include "tests/support/server/ChunkedReader.h"
#include "tests/support/server/WireText.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdexcept>
#include <sys/socket.h>
#include <system_error>
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

    // Raises std::runtime_error where the peer has gone, or what it sends is not well formed.
    void run() {
        for (bool whole = true; whole;) {
            takeHead();
            if (!Answer.How.Early) {
                takeBody();
            }
            whole = answer();
            if (!whole && Answer.How.Last == End::Reset) {
                const linger atOnce{1, 0};
                ::setsockopt(Socket.get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
                return;
            }
            if (!whole && Answer.How.Last == End::Closed) {
                ::shutdown(Socket.get(), SHUT_WR); // what still comes in is read, or the close would be a reset
            }
            if (Answer.How.Early) {
                takeBody();
            }
        }
        testsupport::readToEnd(Socket);
    }

private:
    void receive() {
        const std::string more = testsupport::readSome(Socket);
        if (more.empty()) {
            throw std::runtime_error("the peer has gone");
        }
        Pending += more;
    }

    void takeHead() {
        std::size_t end = 0;
        while ((end = Pending.find("\r\n\r\n")) == std::string::npos) {
            receive();
        }
        Request request;
        request.Port = Port;
        request.Head = Head = Pending.substr(0, end + 4);
        Pending.erase(0, end + 4);
        const std::string line = testsupport::startLine(Head);
        const std::size_t blank = line.find(' ');
        request.Method = line.substr(0, blank);
        request.Path = line.substr(blank + 1, line.rfind(' ') - blank - 1);
        {
            const std::lock_guard lock(Server.Guard);
            Number = Server.Requests.size();
            const auto found = Server.Plans.find(request.Path);
            Answer = found == Server.Plans.end() ? Plan() : found->second;
            Server.Requests.push_back(std::move(request));
        }
        if (Answer.How.What == Kind::Challenge && !fieldValue(Head, "Authorization")) {
            Answer.Status = 401;
        }
        if (!Answer.How.Early && fieldValue(Head, "Expect")) {
            testsupport::writeAll(Socket, "HTTP/1.1 100 Continue\r\n\r\n");
        }
    }

    void takeBody() {
        const bool chunked = fieldValue(Head, "Transfer-Encoding") == "chunked";
        std::size_t left = chunked ? 0 : std::stoull(fieldValue(Head, "Content-Length").value_or("0"));
        testsupport::ChunkedReader chunks;
        for (;; receive()) {
            const std::lock_guard lock(Server.Guard);
            Request& request = Server.Requests[Number];
            if (chunked) {
                request.Trouble = "not well formed";
                request.Ended = chunks.take(Pending);
                request.Trouble.clear();
                request.Body = chunks.content();
            } else {
                const std::size_t length = std::min(left, Pending.size());
                request.Body.append(Pending, 0, length);
                Pending.erase(0, length);
                left -= length;
                request.Ended = left == 0;
            }
            if (request.Ended) {
                return;
            }
        }
    }

    // True where all of it has been sent.
    bool answer() {
        const std::string number = std::to_string(Number);
        std::string content = contentOf("r" + number, kAnswerSizes.at(Answer.How.Size));
        std::string bytes =
            "HTTP/1.1 " + std::to_string(Answer.Status) + " Model\r\nX-Request: " + number + "\r\n" +
            (Answer.How.Chunked ? "Transfer-Encoding: chunked" : "Content-Length: " + std::to_string(content.size())) +
            (Answer.Status == 401 ? "\r\nWWW-Authenticate: Basic realm=\"model\"" : "") +
            (Answer.Location.empty() ? "" : "\r\nLocation: " + Answer.Location) +
            (Answer.How.Cookie ? "\r\nSet-Cookie: jar=" + number + "; Path=/" : "") + "\r\n\r\n";
        std::unique_lock lock(Server.Guard);
        Request& request = Server.Requests[Number];
        const bool bare = request.Method == "HEAD";
        const bool headIsAll = bare || (content.empty() && !Answer.How.Chunked);
        const bool whole = Answer.How.Last == End::Whole || (Answer.How.Part > 0 && headIsAll);
        request.Status = Answer.Status;
        request.Whole = whole;
        if (!whole && Answer.How.Part == 0) {
            return false;
        }
        request.Cookie = Answer.How.Cookie;
        if (!bare) {
            if (!whole) {
                content.resize(Answer.How.Part == 2 ? content.size() / 2 : 0);
            }
            request.Content = content;
            bytes += Answer.How.Chunked ? testsupport::chunked(content, 5000) : content;
            if (Answer.How.Chunked && !whole) {
                bytes.resize(bytes.size() - 5); // leaves out the last chunk
            }
        }
        lock.unlock();
        testsupport::writeAll(Socket, bytes);
        return whole;
    }

    ModelServer& Server;
    SocketHandle Socket;
    std::size_t Port;
    std::string Pending;    // received and not yet taken
    std::size_t Number = 0; // of the request at hand
    std::string Head;       // its own
    Plan Answer;            // for it
};

ModelServer::ModelServer() {
    for (std::size_t port = 0; port < Ports.size(); ++port) {
        Listening[port] = testsupport::bindLoopback(testsupport::Family::IPv4, true);
        if (::listen(Listening[port].get(), SOMAXCONN) != 0) {
            throw std::system_error(errno, std::generic_category(), "listen");
        }
        Ports[port] = testsupport::boundPort(Listening[port]);
        Acceptors[port] = std::thread([this, port] {
            while (SocketHandle socket{::accept4(Listening[port].get(), nullptr, nullptr, SOCK_CLOEXEC)}) {
                {
                    const std::lock_guard lock(Guard);
                    ++Open;
                }
                std::thread([this, port, taken = std::move(socket)]() mutable {
                    try {
                        Connection(*this, std::move(taken), port).run();
                    } catch (const std::runtime_error&) {
                    }
                    const std::lock_guard lock(Guard);
                    --Open;
                    Changed.notify_all();
                }).detach();
            }
        });
    }
}

ModelServer::~ModelServer() {
    for (std::size_t port = 0; port < Ports.size(); ++port) {
        ::shutdown(Listening[port].get(), SHUT_RDWR); // ends the accept
        Acceptors[port].join();
    }
    std::unique_lock lock(Guard);
    Changed.wait(lock, [this] { return Open == 0; });
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

// Connections are taken in their order: once one of our own has its answer, those before it have been counted.
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
