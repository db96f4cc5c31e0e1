#include "python/extension/Stream.h"

#include "embedded/scope/SignalsBlocked.h"
#include "python/extension/Failures.h"

#include <netrove/descriptor.h>

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <optional>
#include <poll.h>
#include <span>
#include <stop_token>

namespace netrove::python {

namespace {

constexpr std::size_t kMostWaiting = std::size_t{1} << 20; // bytes that nobody has asked for yet

// Nobody asks for the content any more.
struct Abandoned {};

} // namespace

// What both threads know; everything below `Guard` under it.
struct Stream::State {
    void stop() {
        {
            const std::lock_guard lock(Guard);
            Closed = true;
        }
        Room.notify_all();
        Stop.request_stop(); // of this call; an interrupt of the client might meet the next one
    }
    void tell() const { Changed.raise(); }

    bool take(std::span<const std::byte> piece) {
        std::unique_lock lock(Guard);
        Room.wait(lock, [this] { return Closed || Waiting.size() < kMostWaiting; });
        if (Closed) {
            throw Abandoned(); // a transfer that ends quietly would keep its connection until the next call
        }
        Waiting.append(reinterpret_cast<const char*>(piece.data()), piece.size());
        lock.unlock();
        tell();
        return true;
    }

    void receive(Request request) {
        try {
            const Running running([this] { stop(); });
            request.stop = Stop.get_token();
            Sender->stream(std::move(request), [this](const Response& head) -> Taker {
                const std::lock_guard lock(Guard);
                Head = head;
                Waiting.clear(); // of an attempt before this one
                tell();
                return [this](std::span<const std::byte> piece) { return take(piece); };
            });
        } catch (...) {
            const std::lock_guard lock(Guard);
            Failure = std::current_exception();
        }
        const std::lock_guard lock(Guard);
        Ended = true;
        tell();
    }

    Client* Sender = nullptr;
    std::stop_source Stop;
    WakeEvent Changed; // for whoever asks
    std::mutex Guard;
    std::condition_variable Room; // for what is received
    std::optional<Response> Head;
    std::string Waiting;
    std::exception_ptr Failure;
    bool Ended = false;
    bool Closed = false; // nobody asks any more
};

Stream::Stream(std::shared_ptr<ClientCore> client, const Settings& settings)
    : TheClient(std::move(client)), Shared(std::make_shared<State>()) {
    Shared->Sender = &TheClient->open();
    const vantik::detail::SignalsBlocked blocked; // they are meant for Python's main thread
    Receiver =
        std::thread([state = Shared.get(), request = settings.Asked]() mutable { state->receive(std::move(request)); });
}

Stream::~Stream() {
    close();
}

void Stream::close() {
    if (!Receiver.joinable()) {
        return;
    }
    if (Generation != processGeneration()) {
        Receiver.detach(); // it runs in the parent only
        static_cast<void>(new std::shared_ptr<State>(Shared));
        return;
    }
    const GilBreak released;
    Shared->stop();
    Receiver.join();
}

// Returns when the condition holds, which is asked under the guard, or all has ended.
template <class Condition>
void Stream::await(Condition condition) {
    requireOwnProcess(Generation);
    try {
        const SignalWatch watch;
        const py::gil_scoped_release released;
        for (;;) {
            {
                const std::lock_guard lock(Shared->Guard);
                if (condition() || Shared->Ended) {
                    return;
                }
            }
            pollfd entries[] = {{Shared->Changed.descriptor(), POLLIN, 0}, {watch.descriptor(), POLLIN, 0}};
            static_cast<void>(::poll(entries, 2, -1)); // a negative descriptor is left out
            Shared->Changed.clear();
            watch.poll();
        }
    } catch (...) {
        close(); // so that the client can be used again
        throw;
    }
}

// Its own receiver is stopped as well, so what waits for that ends too.
template <class Run>
auto Stream::asked(Run run) {
    const Running running([] {});
    return raisingInPython(run);
}

Response Stream::head() {
    return asked([this] {
        await([this] { return Shared->Head.has_value(); });
        const std::lock_guard lock(Shared->Guard);
        if (!Shared->Head) {
            std::rethrow_exception(Shared->Failure);
        }
        return *Shared->Head;
    });
}

// All that waits, which is nothing at the end.
void Stream::takePiece() {
    Piece.clear();
    Given = 0;
    await([this] { return !Shared->Waiting.empty(); });
    std::exception_ptr failure;
    {
        const std::lock_guard lock(Shared->Guard);
        std::swap(Piece, Shared->Waiting);
        failure = Shared->Closed ? nullptr : Shared->Failure;
    }
    Shared->Room.notify_all();
    if (Piece.empty() && failure) {
        std::rethrow_exception(failure);
    }
}

py::object Stream::next(std::size_t most) {
    if (Given == Piece.size()) {
        asked([this] { takePiece(); });
        if (Piece.empty()) {
            return py::none();
        }
    }
    const std::size_t count = std::min(most, Piece.size() - Given);
    py::object result = py::bytes(Piece.data() + Given, count);
    Given += count;
    return result;
}

void defineStream(py::module_& module) {
    py::class_<Stream>(module, "Stream")
        .def(py::init<std::shared_ptr<ClientCore>, const Settings&>())
        .def("head", &Stream::head)
        .def("next", &Stream::next)
        .def("close", &Stream::close);
}

} // namespace netrove::python
