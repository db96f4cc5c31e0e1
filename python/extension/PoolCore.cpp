#include "python/extension/PoolCore.h"

#include "python/extension/BytesCollector.h"
#include "python/extension/Failures.h"

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <exception>

namespace netrove::python {

namespace {

class Job {
public:
    Job(Settings settings, std::optional<std::filesystem::path> target, std::stop_token stop, Held done)
        : Asked(std::move(settings)), Target(std::move(target)), Done(std::move(done)) {
        Asked.Asked.stop = std::move(stop);
    }
    // The pool drops what waits without a word.
    ~Job() {
        if (!Told) {
            tell([](const py::object& done) {
                done(py::none(), py::none(),
                     exceptionOf(Error(ErrorKind::Interrupted, "NETROVE:client:Interrupted", {}, "interrupted")));
            });
        }
    }
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;

    void run(Client& client) {
        std::optional<Running> running; // until Python has been told
        try {
            running.emplace([&client] { client.interrupt(); });
        } catch (const Error&) {
            Told = true; // the interpreter ends, and nobody waits
            return;
        }
        BytesCollector content;
        try {
            Response response = Target ? client.save(Asked.Asked, *Target) : collectInto(client, Asked.Asked, content);
            tell([&](const py::object& done) {
                Asked.finishProgress();
                done(py::cast(std::move(response)), content.take(), py::none());
            });
        } catch (...) {
            const std::exception_ptr failure = std::current_exception();
            tell([&](const py::object& done) { done(py::none(), py::none(), exceptionOf(failure)); });
        }
    }

private:
    // Once. What is raised by whoever is told has nowhere to go.
    template <class How>
    void tell(How how) {
        if (std::exchange(Told, true)) {
            return;
        }
        withGil([&] {
            try {
                how(*Done);
            } catch (py::error_already_set& raised) {
                raised.discard_as_unraisable("a call of the pool");
            }
        });
    }

    Settings Asked;
    std::optional<std::filesystem::path> Target;
    Held Done;
    bool Told = false;
};

} // namespace

PoolCore::PoolCore(const Settings& defaults, int jobs, int perHost) {
    const GilBreak released;
    Own = std::make_unique<Pool>(PoolSettings{.jobs = jobs, .perHost = perHost}, defaults.Asked);
}

PoolCore::~PoolCore() {
    if (Generation != processGeneration()) {
        static_cast<void>(Own.release()); // its threads are in the parent
        return;
    }
    close();
}

std::shared_ptr<PoolCore::Task> PoolCore::submit(const Settings& settings, std::optional<std::filesystem::path> target,
                                                 py::object done) {
    requireOwnProcess(Generation);
    if (!Own) {
        throw Error(ErrorKind::Usage, "NETROVE:client:Usage", {}, "the pool is closed");
    }
    auto task = std::make_shared<Task>();
    const auto job = std::make_shared<Job>(settings, std::move(target), task->Stop.get_token(), held(std::move(done)));
    Own->submit(settings.Asked.url, [job](Client& client) { job->run(client); });
    return task;
}

void PoolCore::close() {
    const GilBreak released;
    Own.reset();
}

void definePool(py::module_& module) {
    py::class_<PoolCore::Task, std::shared_ptr<PoolCore::Task>>(module, "Task").def("cancel", &PoolCore::Task::cancel);
    py::class_<PoolCore>(module, "Pool")
        .def(py::init<const Settings&, int, int>())
        .def("submit", &PoolCore::submit)
        .def("close", &PoolCore::close);
}

} // namespace netrove::python
