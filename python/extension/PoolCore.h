// Many calls at a time. What became of one is told to a Python callable, or waits until Python asks.
#pragma once

#include "python/extension/ClientCore.h"

#include <netrove/pool.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <stop_token>

namespace netrove::python {

class PoolCore {
public:
    // One call, which may be given up.
    class Task {
    public:
        void cancel() { Stop.request_stop(); }

    private:
        friend class PoolCore;
        std::stop_source Stop;
    };

    PoolCore(const Settings& defaults, int jobs, int perHost);
    ~PoolCore();
    PoolCore(const PoolCore&) = delete;
    PoolCore& operator=(const PoolCore&) = delete;

    // `done` is called once, on a thread of the pool, with (response, content, None) or (None, None, exception).
    // Without a target the content comes with the response.
    std::shared_ptr<Task> submit(const Settings& settings, std::optional<std::filesystem::path> target,
                                 py::object done);
    // The same, but what became of it is what `take` returns under this number: no thread of the pool waits for the
    // GIL.
    void add(const Settings& settings, std::optional<std::filesystem::path> target, std::uint64_t number);
    // Of calls that were added: all that have ended and were not taken, as (number, response, content, exception).
    // Waits for one. Raises what a signal handler raises.
    py::list take();
    void close(); // stops what runs, drops what waits

    // For further kinds of tasks: raises where none can begin.
    Pool& open();
    // Requested before the pool ends, for tasks that wait for something else than their transfer.
    std::stop_token closing() const { return Closing.get_token(); }

private:
    class Ends;

    std::stop_source Closing;
    std::uint64_t Generation = processGeneration();
    std::shared_ptr<Ends> Ended;
    std::unique_ptr<Pool> Own;
};

void definePool(py::module_& module);

} // namespace netrove::python
