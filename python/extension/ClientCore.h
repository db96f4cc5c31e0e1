// The client of the library for Python: the GIL is released while a call runs.
#pragma once

#include "python/extension/Lifetime.h"
#include "python/extension/Settings.h"
#include "python/extension/SignalWatch.h"

#include <netrove/client.h>

#include <filesystem>
#include <memory>
#include <utility>

namespace netrove::python {

class ClientCore {
public:
    explicit ClientCore(const Settings& defaults);
    ~ClientCore();
    ClientCore(const ClientCore&) = delete;
    ClientCore& operator=(const ClientCore&) = delete;

    std::pair<Response, py::bytes> collect(const Settings& settings);
    Response save(const Settings& settings, const std::filesystem::path& target);
    void interrupt() noexcept; // any thread
    void close();              // drops its connections; it cannot be used further
    bool usable() const;       // open, and of this process

    // For a call: raises where none can begin.
    Client& open();

private:
    template <class Run>
    auto perform(const Settings& settings, Run run);

    std::uint64_t Generation = processGeneration();
    std::unique_ptr<Client> Own;
    int Calls = 0; // that have begun; with the GIL
};

// The response and its content. With or without the GIL.
Response collectInto(Client& client, Request request, class BytesCollector& content);

void defineClient(py::module_& module);

} // namespace netrove::python
