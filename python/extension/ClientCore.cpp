#include "python/extension/ClientCore.h"

#include "python/extension/BytesCollector.h"
#include "python/extension/Failures.h"

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <optional>

namespace netrove::python {

ClientCore::ClientCore(const Settings& defaults) {
    const GilBreak released;
    Own = std::make_unique<Client>(defaults.Asked);
}

// Connections are shared with the parent after a fork; to end one would end the parent's.
ClientCore::~ClientCore() {
    if (Generation != processGeneration()) {
        static_cast<void>(Own.release());
        return;
    }
    const GilBreak released;
    Own.reset();
}

Client& ClientCore::open() {
    requireOwnProcess(Generation);
    if (!Own) {
        throw Error(ErrorKind::Usage, "NETROVE:client:Usage", {}, "the client is closed");
    }
    return *Own;
}

bool ClientCore::usable() const {
    return Own && Generation == processGeneration();
}

void ClientCore::interrupt() noexcept {
    if (usable()) {
        Own->interrupt();
    }
}

void ClientCore::close() {
    if (!usable()) {
        return;
    }
    if (Calls != 0) {
        throw Error(ErrorKind::Usage, "NETROVE:client:InUse", {}, "the client is in use, so it cannot be closed");
    }
    const GilBreak released;
    Own.reset();
}

template <class Run>
auto ClientCore::perform(const Settings& settings, Run run) {
    Client& client = open();
    Request request = settings.Asked;
    const SignalWatch watch;
    if (watch.active()) {
        request.poll = [&watch] { watch.poll(); };
    }
    const Running running([&client] { client.interrupt(); });
    struct Counted {
        explicit Counted(int& count) : Count(++count) {}
        ~Counted() { --Count; }
        int& Count;
    } const counted(Calls);
    return raisingInPython([&] {
        std::optional<Response> response;
        {
            const py::gil_scoped_release released;
            response = run(client, std::move(request));
        }
        settings.finishProgress();
        return std::move(*response);
    });
}

Response collectInto(Client& client, Request request, BytesCollector& content) {
    try {
        return client.request(std::move(request), content);
    } catch (const Error& failure) {
        if (failure.response().status == 0 || !failure.response().content.empty() || content.view().empty()) {
            throw;
        }
        Response before = failure.response();
        before.content = content.view();
        throw failure.with(std::move(before), failure.sent());
    }
}

std::pair<Response, py::bytes> ClientCore::collect(const Settings& settings) {
    BytesCollector content;
    Response response = perform(
        settings, [&](Client& client, Request request) { return collectInto(client, std::move(request), content); });
    return {std::move(response), content.take()};
}

Response ClientCore::save(const Settings& settings, const std::filesystem::path& target) {
    return perform(settings, [&](Client& client, Request request) { return client.save(std::move(request), target); });
}

void defineClient(py::module_& module) {
    py::class_<ClientCore, std::shared_ptr<ClientCore>>(module, "Client")
        .def(py::init<const Settings&>())
        .def("collect", &ClientCore::collect)
        .def("save", &ClientCore::save)
        .def("interrupt", &ClientCore::interrupt)
        .def("close", &ClientCore::close)
        .def_property_readonly("usable", &ClientCore::usable);
}

} // namespace netrove::python
