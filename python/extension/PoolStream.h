// Content that a program asks for piece by piece without waiting, while a thread of a pool receives it.
#pragma once

#include "python/extension/PoolCore.h"
#include "python/extension/Reception.h"

#include <memory>
#include <string>

namespace netrove::python {

class PoolStream {
public:
    PoolStream(PoolCore& pool, const Settings& settings);
    ~PoolStream();
    PoolStream(const PoolStream&) = delete;
    PoolStream& operator=(const PoolStream&) = delete;

    // Readable when there may be more to ask for.
    int descriptor() const;
    // Both return None where there is nothing yet, and raise what the call has raised.
    py::object head();
    py::object next(std::size_t most); // bytes that have come, `most` at the most; none of them at the end

    void close(); // stops what still runs, and does not wait for it

private:
    std::uint64_t Generation = processGeneration();
    std::shared_ptr<Reception> Shared;
    std::string Piece; // taken from what has come
    std::size_t Given = 0;
    bool Closed = false;
};

void definePoolStream(py::module_& module);

} // namespace netrove::python
