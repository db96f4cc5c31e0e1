#include "tests/support/server/ServerConnection.h"

#include "tests/support/server/WireText.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <utility>

namespace testsupport {
namespace {

const std::string kInterimHead = "HTTP/1.1 100 Continue\r\n\r\n";
const std::string Nothing;

} // namespace

ServerConnection::ServerConnection(SocketHandle socket, Script steps, Pace pace, ServerState& state, std::size_t index)
    : Socket(std::move(socket)), Steps(std::move(steps)), Speed(pace), State(state), Index(index) {
    const int on = 1; // bytes sent singly must not be held back
    ::setsockopt(Socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

template <class Change>
void ServerConnection::changeRecord(Change change) {
    {
        const std::lock_guard lock(State.Guard);
        change(State.Records[Index]);
    }
    State.Changed.notify_all();
}

bool ServerConnection::reads() const {
    const Step* step = current();
    return step == nullptr || step->What == Step::Kind::Head || step->What == Step::Kind::Body ||
           step->What == Step::Kind::ChunkedBody || step->What == Step::Kind::Discard ||
           step->What == Step::Kind::AwaitPeerEnd;
}

short ServerConnection::wantedEvents() const {
    if (reads()) {
        return POLLIN;
    }
    const Step::Kind kind = current()->What;
    const bool sends = kind == Step::Kind::Send || kind == Step::Kind::SendSingly || kind == Step::Kind::Continue;
    return static_cast<short>(POLLRDHUP | (sends ? POLLOUT : 0));
}

void ServerConnection::handle(short events) {
    if (reads()) {
        if (events != 0) {
            receiveOnce();
        }
    } else if ((events & (POLLRDHUP | POLLHUP | POLLERR)) != 0) {
        receiveAll();
    }
    advance();
}

// False where there is nothing now, or never again.
bool ServerConnection::receiveOnce() {
    std::array<char, 65536> block;
    const ssize_t length = ::recv(Socket.get(), block.data(), block.size(), 0);
    if (length < 0 && (errno == EAGAIN || errno == EINTR)) {
        return false;
    }
    if (length <= 0) {
        PeerEnded = true;
        changeRecord([](Record& record) { record.PeerEnded = true; });
        return false;
    }
    Pending.append(block.data(), static_cast<std::size_t>(length));
    if (current() != nullptr && current()->What == Step::Kind::Discard) {
        return true;
    }
    changeRecord([&](Record& record) { record.Received.append(block.data(), static_cast<std::size_t>(length)); });
    return true;
}

void ServerConnection::receiveAll() {
    while (receiveOnce()) {
    }
}

void ServerConnection::advance() {
    try {
        while (Socket && current() != nullptr && play(*current())) {
            ++Position;
            Transmitted = 0;
            Discarded = 0;
            changeRecord([this](Record& record) { record.StepsDone = Position; });
        }
    } catch (const std::exception& failure) {
        end(failure.what(), Position);
    }
    if (Socket && PeerEnded) {
        end(current() == nullptr ? Nothing : "the peer has gone at step " + std::to_string(Position), Position);
    }
}

void ServerConnection::end(const std::string& problem, std::size_t stepsDone) {
    Socket.reset();
    changeRecord([&](Record& record) {
        record.StepsDone = stepsDone;
        record.Ended = true;
        record.Problem = problem;
    });
}

// True where the step is done. False: it waits for the next event, or the connection has ended.
bool ServerConnection::play(const Step& step) {
    switch (step.What) {
    case Step::Kind::Head:
        return takeHead();
    case Step::Kind::Body:
        return takeBody(step.Count);
    case Step::Kind::ChunkedBody:
        return takeChunkedBody();
    case Step::Kind::Discard:
        return discard(step.Count);
    case Step::Kind::Send:
        return transmit(step.Text, Speed == Pace::SingleBytes);
    case Step::Kind::SendSingly:
        return transmit(step.Text, true);
    case Step::Kind::Continue:
        return transmit(ContinueExpected ? kInterimHead : Nothing, Speed == Pace::SingleBytes);
    case Step::Kind::Await: {
        const std::lock_guard lock(State.Guard);
        return State.RaisedByTest.contains(step.Text);
    }
    case Step::Kind::Signal:
        changeRecord([&](Record& record) {
            State.SignalledByScript.insert(step.Text);
            record.StepsDone = Position + 1;
        });
        return true;
    case Step::Kind::Run:
        step.Action();
        return true;
    case Step::Kind::Reset: {
        const linger atOnce{1, 0};
        ::setsockopt(Socket.get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
        end(Nothing, Position + 1);
        return true;
    }
    case Step::Kind::Close:
        receiveAll(); // bytes left unread would turn the close into a reset
        end(Nothing, Position + 1);
        return true;
    case Step::Kind::HalfClose:
        ::shutdown(Socket.get(), SHUT_WR);
        return true;
    case Step::Kind::AwaitPeerEnd:
        if (PeerEnded) {
            end(Nothing, Position + 1);
        }
        return PeerEnded;
    }
    return false;
}

bool ServerConnection::takeHead() {
    const std::size_t end = Pending.find("\r\n\r\n");
    if (end == std::string::npos) {
        return false;
    }
    const std::string head = Pending.substr(0, end + 4);
    Pending.erase(0, end + 4);
    ContinueExpected = fieldValue(head, "Expect") == "100-continue";
    changeRecord([&](Record& record) { record.Heads.push_back(head); });
    return true;
}

bool ServerConnection::takeBody(std::size_t length) {
    if (Pending.size() < length) {
        return false;
    }
    changeRecord([&](Record& record) { record.Bodies.push_back(Pending.substr(0, length)); });
    Pending.erase(0, length);
    return true;
}

bool ServerConnection::takeChunkedBody() {
    if (!Chunks.take(Pending)) {
        return false;
    }
    changeRecord([&](Record& record) { record.Bodies.push_back(Chunks.content()); });
    Chunks = ChunkedReader();
    return true;
}

bool ServerConnection::discard(std::size_t length) {
    const std::size_t part = std::min(length - Discarded, Pending.size());
    Pending.erase(0, part);
    Discarded += part;
    return Discarded == length;
}

bool ServerConnection::transmit(const std::string& text, bool singly) {
    while (Transmitted < text.size()) {
        const std::size_t length = singly ? 1 : text.size() - Transmitted;
        const ssize_t sent = ::send(Socket.get(), text.data() + Transmitted, length, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent < 0 && errno == EAGAIN) {
            return false;
        }
        if (sent < 0) {
            receiveAll(); // what came before the peer went
            PeerEnded = true;
            changeRecord([](Record& record) { record.PeerEnded = true; });
            return false;
        }
        Transmitted += static_cast<std::size_t>(sent);
    }
    return true;
}

} // namespace testsupport
