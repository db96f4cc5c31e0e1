#include "python/extension/PoolCore.h"

#include "python/extension/BytesCollector.h"
#include "python/extension/Failures.h"

#include <netrove/descriptor.h>
#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <exception>
#include <functional>
#include <mutex>
#include <poll.h>
#include <vector>

namespace netrove::python {

namespace {

Error interrupted() {
    return {ErrorKind::Interrupted, "NETROVE:client:Interrupted", {}, "interrupted"};
}

// What became of a call.
struct End {
    std::uint64_t Number = 0;
    std::optional<Response> Answer = {};
    std::unique_ptr<BytesCollector> Content = {};
    std::exception_ptr Failure = {};

    // With the GIL, once.
    py::tuple parts() {
        if (Failure) {
            return py::make_tuple(py::none(), py::none(), exceptionOf(Failure));
        }
        return py::make_tuple(std::move(*Answer), Content->take(), py::none());
    }
};

class Job {
public:
    using Tell = std::function<void(End)>; // on a thread of the pool, without the GIL, once

    Job(Settings settings, std::optional<std::filesystem::path> target, Tell tell)
        : Asked(std::move(settings)), Target(std::move(target)), Told(std::move(tell)) {}
    // The pool drops what waits without a word.
    ~Job() {
        if (Told) {
            tell({.Failure = std::make_exception_ptr(interrupted())});
        }
    }
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;

    void run(Client& client) {
        std::optional<Running> running; // until Python has been told
        try {
            running.emplace([&client] { client.interrupt(); });
        } catch (const Error&) {
            Told = nullptr; // the interpreter ends, and nobody waits
            return;
        }
        End end;
        try {
            end.Content = std::make_unique<BytesCollector>();
            Request request = std::move(Asked.Asked);
            end.Answer = Target ? client.save(std::move(request), *Target)
                                : collectInto(client, std::move(request), *end.Content);
            if (Asked.Progress) {
                const py::gil_scoped_acquire gil;
                Asked.finishProgress();
            }
        } catch (...) {
            end.Failure = std::current_exception();
        }
        tell(std::move(end));
    }

private:
    void tell(End end) { std::exchange(Told, nullptr)(std::move(end)); }

    Settings Asked;
    std::optional<std::filesystem::path> Target;
    Tell Told; // empty: has been called
};

} // namespace

// What has ended and was not taken.
class PoolCore::Ends {
public:
    void put(End end) {
        const std::lock_guard lock(Guard);
        All.push_back(std::move(end));
        wake();
    }
    void stop() {
        const std::lock_guard lock(Guard);
        Stopped = true;
        wake();
    }
    // Without the GIL.
    std::vector<End> take(const SignalWatch& watch) {
        for (;;) {
            {
                const std::lock_guard lock(Guard);
                if (!All.empty()) {
                    return std::exchange(All, {});
                }
                if (Stopped) {
                    throw interrupted();
                }
                Awaited = true;
            }
            pollfd entries[] = {{Changed.descriptor(), POLLIN, 0}, {watch.descriptor(), POLLIN, 0}};
            static_cast<void>(::poll(entries, 2, -1)); // a negative descriptor is left out
            Changed.clear();
            watch.poll();
        }
    }

private:
    void wake() {
        if (std::exchange(Awaited, false)) {
            Changed.raise();
        }
    }

    std::mutex Guard;
    std::vector<End> All;
    bool Awaited = false;
    bool Stopped = false;
    WakeEvent Changed;
};

PoolCore::PoolCore(const Settings& defaults, int jobs, int perHost) : Ended(std::make_shared<Ends>()) {
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

Pool& PoolCore::open() {
    requireOwnProcess(Generation);
    if (!Own) {
        throw Error(ErrorKind::Usage, "NETROVE:client:Usage", {}, "the pool is closed");
    }
    return *Own;
}

std::shared_ptr<PoolCore::Task> PoolCore::submit(const Settings& settings, std::optional<std::filesystem::path> target,
                                                 py::object done) {
    Pool& pool = open();
    auto task = std::make_shared<Task>();
    Settings asked = settings;
    asked.Asked.stop = task->Stop.get_token();
    const auto tell = [done = held(std::move(done))](End end) {
        withGil([&] {
            try { // what is raised by whoever is told has nowhere to go
                (*done)(*end.parts());
            } catch (py::error_already_set& raised) {
                raised.discard_as_unraisable("a call of the pool");
            }
        });
    };
    const auto job = std::make_shared<Job>(std::move(asked), std::move(target), tell);
    pool.submit(settings.Asked.url, [job](Client& client) { job->run(client); });
    return task;
}

void PoolCore::add(const Settings& settings, std::optional<std::filesystem::path> target, std::uint64_t number) {
    Pool& pool = open();
    const auto tell = [ended = Ended, number](End end) {
        end.Number = number;
        ended->put(std::move(end));
    };
    const auto job = std::make_shared<Job>(settings, std::move(target), tell);
    pool.submit(settings.Asked.url, [job](Client& client) { job->run(client); });
}

py::list PoolCore::take() {
    requireOwnProcess(Generation);
    const auto ended = Ended;
    const Running running([ended] { ended->stop(); });
    std::vector<End> all;
    {
        const SignalWatch watch;
        const py::gil_scoped_release released;
        all = ended->take(watch);
    }
    py::list result;
    for (End& end : all) {
        result.append(py::make_tuple(end.Number) + end.parts());
    }
    return result;
}

void PoolCore::close() {
    const GilBreak released;
    Closing.request_stop();
    Own.reset();
}

void definePool(py::module_& module) {
    py::class_<PoolCore::Task, std::shared_ptr<PoolCore::Task>>(module, "Task").def("cancel", &PoolCore::Task::cancel);
    py::class_<PoolCore>(module, "Pool")
        .def(py::init<const Settings&, int, int>())
        .def("submit", &PoolCore::submit)
        .def("add", &PoolCore::add)
        .def("take", &PoolCore::take)
        .def("close", &PoolCore::close);
}

} // namespace netrove::python
