#include "tests/support/server/ScriptedServer.h"

#include "tests/support/server/ChunkedReader.h"
#include "tests/support/server/WireText.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <list>
#include <mutex>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <set>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace testsupport {

// What the server's thread and the test share.
struct ServerState {
    std::mutex Guard; // of all of it. The server's thread holds it except while it waits or runs an action of a script.
    std::condition_variable Changed;
    std::deque<Record> Records; // which connections refer to
    std::set<std::string> RaisedByTest;
    std::set<std::string> SignalledByScript;
    bool Stopping = false;
};

// One connection: plays its steps as far as they go without waiting.
class ServerConnection {
public:
    ServerConnection(SocketHandle socket, Script steps, Pace pace, ServerState& state)
        : Socket(std::move(socket)), Steps(std::move(steps)), Speed(pace), State(state),
          Went(state.Records.emplace_back()) {
        const int on = 1; // bytes sent singly must not be held back
        ::setsockopt(Socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }

    bool isOpen() const { return static_cast<bool>(Socket); }

    pollfd pollEntry() const {
        const int ended = POLLRDHUP;
        const int events = reads() ? POLLIN : waitsFor() == Step::Wait::Output ? ended | POLLOUT : ended;
        return {Socket.get(), static_cast<short>(events), 0};
    }

    // What poll has found.
    void handle(short events) {
        if (reads()) {
            if (events != 0) {
                receiveOnce();
            }
        } else if ((events & (POLLRDHUP | POLLHUP | POLLERR)) != 0) {
            receiveAll();
        }
        advance();
    }

    void advance() {
        try {
            while (Socket && Went.StepsDone < Steps.size() && Steps[Went.StepsDone].Play(*this)) {
                ++Went.StepsDone;
                Transmitted = 0;
                Discarded = 0;
            }
        } catch (const std::exception& failure) {
            end(failure.what());
        }
        Went.AllDone = Went.StepsDone == Steps.size();
        if (Socket && Went.PeerEnded) {
            end(Went.AllDone ? "" : "the peer has gone at step " + std::to_string(Went.StepsDone));
        }
    }

    // What the steps do. True where it is done; false: it waits for the next event, or the connection has ended.

    bool takeHead() {
        const std::size_t end = Pending.find("\r\n\r\n");
        return end != std::string::npos && take(end + 4, Went.Heads);
    }

    bool takeBody(std::size_t length) { return Pending.size() >= length && take(length, Went.Bodies); }

    bool takeChunkedBody() {
        if (!Chunks.take(Pending)) {
            return false;
        }
        Went.Bodies.push_back(std::exchange(Chunks, {}).content());
        return true;
    }

    bool discard(std::size_t length) {
        const std::size_t part = std::min(length - Discarded, Pending.size());
        Pending.erase(0, part);
        Discarded += part;
        return Discarded == length;
    }

    bool transmit(const std::string& text) {
        while (Transmitted < text.size()) {
            const std::size_t length = Speed == Pace::SingleBytes ? 1 : text.size() - Transmitted;
            const ssize_t sent = ::send(Socket.get(), text.data() + Transmitted, length, MSG_NOSIGNAL);
            if (sent < 0 && errno == EINTR) {
                continue;
            }
            if (sent < 0) {
                if (errno != EAGAIN) {
                    receiveAll(); // what came before the peer went
                    Went.PeerEnded = true;
                }
                return false;
            }
            Transmitted += static_cast<std::size_t>(sent);
        }
        return true;
    }

    bool continueIfExpected() {
        const bool expected = !Went.Heads.empty() && fieldValue(Went.Heads.back(), "Expect") == "100-continue";
        return transmit(expected ? "HTTP/1.1 100 Continue\r\n\r\n" : "");
    }

    bool isRaised(const std::string& event) const { return State.RaisedByTest.contains(event); }

    bool signal(const std::string& event) {
        State.SignalledByScript.insert(event);
        return true;
    }

    // The action may ask the server how far it is.
    bool run(const std::function<void()>& action) {
        struct Unlocked {
            std::mutex& Guard;
            explicit Unlocked(std::mutex& guard) : Guard(guard) { Guard.unlock(); }
            ~Unlocked() { Guard.lock(); }
        };
        State.Changed.notify_all();
        const Unlocked unlocked(State.Guard);
        action();
        return true;
    }

    bool close() {
        receiveAll(); // bytes left unread would turn the close into a reset
        return end();
    }

    bool reset() {
        const linger atOnce{1, 0};
        ::setsockopt(Socket.get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
        return end();
    }

    bool halfClose() {
        ::shutdown(Socket.get(), SHUT_WR);
        return true;
    }

    bool awaitPeerEnd() { return Went.PeerEnded && end(); }

private:
    Step::Wait waitsFor() const {
        return Went.StepsDone < Steps.size() ? Steps[Went.StepsDone].For : Step::Wait::Input;
    }
    bool reads() const { return waitsFor() == Step::Wait::Input || waitsFor() == Step::Wait::UnrecordedInput; }

    bool take(std::size_t length, std::vector<std::string>& into) {
        into.push_back(Pending.substr(0, length));
        Pending.erase(0, length);
        return true;
    }

    // False where there is nothing now, or never again.
    bool receiveOnce() {
        std::array<char, 65536> block;
        const ssize_t length = ::recv(Socket.get(), block.data(), block.size(), 0);
        if (length < 0 && (errno == EAGAIN || errno == EINTR)) {
            return false;
        }
        if (length <= 0) {
            Went.PeerEnded = true;
            return false;
        }
        Pending.append(block.data(), static_cast<std::size_t>(length));
        if (waitsFor() != Step::Wait::UnrecordedInput) {
            Went.Received.append(block.data(), static_cast<std::size_t>(length));
        }
        return true;
    }

    void receiveAll() {
        while (receiveOnce()) {
        }
    }

    bool end(const std::string& problem = {}) {
        Socket.reset();
        Went.Ended = true;
        Went.Problem = problem;
        return true;
    }

    SocketHandle Socket;
    Script Steps;
    Pace Speed;
    ServerState& State;
    Record& Went;
    std::size_t Transmitted = 0; // of the text of the current step
    std::size_t Discarded = 0;   // of the bytes of the current step
    std::string Pending;         // received and not yet taken by a step
    ChunkedReader Chunks;
};

namespace step {

using Wait = Step::Wait;
using Connection = ServerConnection;

Step expectHead() {
    return {Wait::Input, &Connection::takeHead};
}
Step expectBody(std::size_t length) {
    return {Wait::Input, [length](Connection& to) { return to.takeBody(length); }};
}
Step expectChunkedBody() {
    return {Wait::Input, &Connection::takeChunkedBody};
}
Step discard(std::size_t length) {
    return {Wait::UnrecordedInput, [length](Connection& to) { return to.discard(length); }};
}
Step send(std::string bytes) {
    return {Wait::Output, [bytes = std::move(bytes)](Connection& to) { return to.transmit(bytes); }};
}
Step continueIfExpected() {
    return {Wait::Output, &Connection::continueIfExpected};
}
Step await(std::string event) {
    return {Wait::Event, [event = std::move(event)](Connection& to) { return to.isRaised(event); }};
}
Step signal(std::string event) {
    return {Wait::Event, [event = std::move(event)](Connection& to) { return to.signal(event); }};
}
Step run(std::function<void()> action) {
    return {Wait::Event, [action = std::move(action)](Connection& to) { return to.run(action); }};
}
Step close() {
    return {Wait::Event, &Connection::close};
}
Step reset() {
    return {Wait::Event, &Connection::reset};
}
Step halfClose() {
    return {Wait::Event, &Connection::halfClose};
}
Step awaitPeerEnd() {
    return {Wait::Input, &Connection::awaitPeerEnd};
}

} // namespace step

ScriptedServer::ScriptedServer(Script script, Pace pace, Family family)
    : ScriptedServer(std::vector<Script>{std::move(script)}, pace, family) {}

ScriptedServer::ScriptedServer(std::vector<Script> scripts, Pace pace, Family family)
    : AddressFamily(family), State(std::make_unique<ServerState>()), Wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    SocketHandle listening = bindLoopback(family, false);
    if (!Wake || ::listen(listening.get(), SOMAXCONN) != 0) {
        throw std::system_error(errno, std::generic_category(), "listen");
    }
    Port = boundPort(listening);
    Worker = std::thread([this, socket = std::move(listening), scripts = std::move(scripts), pace]() mutable {
        serve(socket, std::move(scripts), pace);
    });
}

ScriptedServer::~ScriptedServer() {
    {
        const std::lock_guard lock(State->Guard);
        State->Stopping = true;
    }
    wake();
    Worker.join();
}

void ScriptedServer::wake() const {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(Wake.get(), &one, sizeof one); // full: awake anyway
}

void ScriptedServer::serve(const SocketHandle& listening, std::vector<Script> scripts, Pace pace) {
    std::list<ServerConnection> connections;
    std::vector<pollfd> entries;
    std::unique_lock lock(State->Guard);
    while (!State->Stopping) {
        State->Changed.notify_all();
        std::erase_if(connections, [](const ServerConnection& connection) { return !connection.isOpen(); });
        entries.assign({{Wake.get(), POLLIN, 0}, {listening.get(), POLLIN, 0}});
        for (const ServerConnection& connection : connections) {
            entries.push_back(connection.pollEntry());
        }
        lock.unlock();
        ::poll(entries.data(), entries.size(), -1); // where a signal ends it, nothing has happened
        std::uint64_t count = 0;
        [[maybe_unused]] const ssize_t length = ::read(Wake.get(), &count, sizeof count);
        lock.lock();
        const pollfd* entry = entries.data() + 2;
        for (ServerConnection& connection : connections) {
            connection.handle(entry++->revents);
        }
        while (SocketHandle socket{::accept4(listening.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC)}) {
            const std::size_t index = State->Records.size();
            if (index < scripts.size()) {
                connections.emplace_back(std::move(socket), std::move(scripts[index]), pace, *State).advance();
            } else {
                Record& unexpected = State->Records.emplace_back();
                unexpected.Ended = true;
                unexpected.Problem = "no script for this connection";
            }
        }
    }
}

std::string ScriptedServer::authority() const {
    return (AddressFamily == Family::IPv6 ? "[::1]:" : "127.0.0.1:") + std::to_string(Port);
}

std::string ScriptedServer::url(const std::string& path) const {
    return "http://" + authority() + path;
}

void ScriptedServer::raise(const std::string& event) {
    {
        const std::lock_guard lock(State->Guard);
        State->RaisedByTest.insert(event);
    }
    wake();
}

void ScriptedServer::waitUntil(const std::string& what, const std::function<bool()>& condition) const {
    constexpr std::chrono::minutes unreasonable{1};
    std::unique_lock lock(State->Guard);
    if (State->Changed.wait_for(lock, unreasonable, condition)) {
        return;
    }
    std::string text = "waited in vain until " + what + "; connections:";
    for (const Record& record : State->Records) {
        text += " [" + std::to_string(record.StepsDone) + " steps, " + std::to_string(record.Received.size()) +
                " bytes" + (record.Ended ? ", ended" : "") + (record.Problem.empty() ? "" : ", ") + record.Problem +
                "]";
    }
    throw std::runtime_error(text);
}

void ScriptedServer::waitFor(const std::string& event) const {
    waitUntil("the script signalled " + event, [&] { return State->SignalledByScript.contains(event); });
}

Record ScriptedServer::record(std::size_t connection) const {
    const std::lock_guard lock(State->Guard);
    return State->Records.at(connection);
}

std::size_t ScriptedServer::connectionCount() const {
    const std::lock_guard lock(State->Guard);
    return State->Records.size();
}

Record ScriptedServer::waitUntilDone(std::size_t connection) const {
    waitUntil("connection " + std::to_string(connection) + " was done", [&] {
        return connection < State->Records.size() &&
               (State->Records[connection].Ended || State->Records[connection].AllDone);
    });
    return record(connection);
}

void ScriptedServer::waitUntilAllEnded() const {
    waitUntil("all connections had ended", [&] { return std::ranges::all_of(State->Records, &Record::Ended); });
}

} // namespace testsupport
