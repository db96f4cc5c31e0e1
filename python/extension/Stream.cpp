#include "python/extension/Stream.h"

#include "embedded/scope/SignalsBlocked.h"
#include "python/extension/Failures.h"

#include <algorithm>
#include <optional>
#include <poll.h>

namespace netrove::python {

Stream::Stream(std::shared_ptr<ClientCore> client, const Settings& settings)
    : TheClient(std::move(client)), Shared(std::make_shared<Reception>()) {
    Client& sender = TheClient->open();
    const vantik::detail::SignalsBlocked blocked; // they are meant for Python's main thread
    Receiver = std::thread([shared = Shared.get(), &sender, request = settings.Asked]() mutable {
        shared->receive(sender, std::move(request));
    });
}

Stream::~Stream() {
    close();
}

void Stream::close() {
    Closed = true;
    if (!Receiver.joinable()) {
        return;
    }
    if (Generation != processGeneration()) {
        Receiver.detach(); // it runs in the parent only
        static_cast<void>(new std::shared_ptr<Reception>(Shared));
        return;
    }
    const GilBreak released;
    Shared->stop();
    Receiver.join();
}

// Returns once `has` does so with true.
template <class Has>
void Stream::await(Has has) {
    requireOwnProcess(Generation);
    const Running running([] {}); // its own receiver is stopped as well, so what waits for that ends too
    return raisingInPython([&] {
        try {
            const SignalWatch watch;
            const py::gil_scoped_release released;
            for (;;) {
                if (has()) {
                    return;
                }
                pollfd entries[] = {{Shared->changed().descriptor(), POLLIN, 0}, {watch.descriptor(), POLLIN, 0}};
                static_cast<void>(::poll(entries, 2, -1)); // a negative descriptor is left out
                Shared->changed().clear();
                watch.poll();
            }
        } catch (...) {
            close(); // so that the client can be used again
            throw;
        }
    });
}

Response Stream::head() {
    std::optional<Response> head;
    await([&] { return (head = Shared->head()).has_value(); });
    return *std::move(head);
}

py::object Stream::next(std::size_t most) {
    if (Closed) {
        return py::none();
    }
    if (Given == Piece.size()) {
        Given = 0;
        await([this] { return Shared->next(Piece); });
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
