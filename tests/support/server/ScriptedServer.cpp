#include "tests/support/server/ScriptedServer.h"

#include "tests/support/server/ServerConnection.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <list>
#include <poll.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace testsupport {
namespace {

constexpr std::chrono::minutes kUnreasonable{1};

Step make(Step::Kind kind) {
    return {.What = kind};
}

Step make(Step::Kind kind, std::string text) {
    return {.What = kind, .Text = std::move(text)};
}

// The connections whose scripts are being played, and what poll is to look at.
class Connections {
public:
    Connections(std::vector<Script> scripts, Pace pace, ServerState& state)
        : Scripts(std::move(scripts)), Speed(pace), State(state) {}

    void acceptFrom(const SocketHandle& listening) {
        while (SocketHandle socket{::accept4(listening.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC)}) {
            std::size_t index = 0;
            {
                const std::lock_guard lock(State.Guard);
                index = State.Records.size();
                State.Records.emplace_back();
                if (index >= Scripts.size()) {
                    State.Records.back().Ended = true;
                    State.Records.back().Problem = "no script for this connection";
                }
            }
            if (index < Scripts.size()) {
                All.emplace_back(std::move(socket), std::move(Scripts[index]), Speed, State, index).advance();
            }
            State.Changed.notify_all();
        }
    }

    void addTo(std::vector<pollfd>& entries) {
        std::erase_if(All, [](const ServerConnection& connection) { return !connection.open(); });
        for (const ServerConnection& connection : All) {
            entries.push_back({connection.descriptor(), connection.wantedEvents(), 0});
        }
    }

    // `entries` are those that `addTo` has just added.
    void handle(const pollfd* entries) {
        for (ServerConnection& connection : All) {
            connection.handle(entries++->revents);
        }
    }

private:
    std::vector<Script> Scripts;
    Pace Speed;
    ServerState& State;
    std::list<ServerConnection> All;
};

} // namespace

namespace step {
Step expectHead() {
    return make(Step::Kind::Head);
}
Step expectBody(std::size_t length) {
    return {.What = Step::Kind::Body, .Count = length};
}
Step expectChunkedBody() {
    return make(Step::Kind::ChunkedBody);
}
Step discard(std::size_t length) {
    return {.What = Step::Kind::Discard, .Count = length};
}
Step send(std::string bytes) {
    return make(Step::Kind::Send, std::move(bytes));
}
Step sendSingly(std::string bytes) {
    return make(Step::Kind::SendSingly, std::move(bytes));
}
Step continueIfExpected() {
    return make(Step::Kind::Continue);
}
Step await(std::string event) {
    return make(Step::Kind::Await, std::move(event));
}
Step signal(std::string event) {
    return make(Step::Kind::Signal, std::move(event));
}
Step run(std::function<void()> action) {
    return {.What = Step::Kind::Run, .Action = std::move(action)};
}
Step close() {
    return make(Step::Kind::Close);
}
Step reset() {
    return make(Step::Kind::Reset);
}
Step halfClose() {
    return make(Step::Kind::HalfClose);
}
Step awaitPeerEnd() {
    return make(Step::Kind::AwaitPeerEnd);
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
    for (const Script& script : scripts) {
        ScriptLengths.push_back(script.size());
    }
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
    Connections connections(std::move(scripts), pace, *State);
    std::vector<pollfd> entries;
    for (;;) {
        entries.assign({{Wake.get(), POLLIN, 0}, {listening.get(), POLLIN, 0}});
        connections.addTo(entries);
        if (::poll(entries.data(), entries.size(), -1) < 0) {
            continue; // a signal
        }
        std::uint64_t count = 0;
        [[maybe_unused]] const ssize_t length = ::read(Wake.get(), &count, sizeof count);
        {
            const std::lock_guard lock(State->Guard);
            if (State->Stopping) {
                return;
            }
        }
        connections.handle(entries.data() + 2);
        connections.acceptFrom(listening);
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

template <class Condition>
void ScriptedServer::waitUntil(const std::string& what, Condition condition) const {
    std::unique_lock lock(State->Guard);
    if (State->Changed.wait_for(lock, kUnreasonable, condition)) {
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

std::size_t ScriptedServer::openConnections() const {
    const std::lock_guard lock(State->Guard);
    return static_cast<std::size_t>(std::count_if(State->Records.begin(), State->Records.end(),
                                                  [](const Record& record) { return !record.Ended; }));
}

Record ScriptedServer::waitUntilDone(std::size_t connection) const {
    waitUntil("connection " + std::to_string(connection) + " was done", [&] {
        if (connection >= State->Records.size()) {
            return false;
        }
        const Record& record = State->Records[connection];
        return record.Ended || record.StepsDone == ScriptLengths.at(connection);
    });
    return record(connection);
}

void ScriptedServer::waitUntilAllEnded() const {
    waitUntil("all connections had ended", [&] {
        return std::all_of(State->Records.begin(), State->Records.end(),
                           [](const Record& record) { return record.Ended; });
    });
}

} // namespace testsupport
