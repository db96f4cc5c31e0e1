// Many calls at a time, each of which tells a Python callable what became of it.
#pragma once

#include "python/extension/ClientCore.h"

#include <netrove/pool.h>

#include <filesystem>
#include <memory>
#include <optional>

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
    void close(); // stops what runs, drops what waits

private:
    std::uint64_t Generation = processGeneration();
    std::unique_ptr<Pool> Own;
};

void definePool(py::module_& module);

} // namespace netrove::python
