// Content that Python asks for piece by piece, while a thread of its own receives it.
#pragma once

#include "python/extension/ClientCore.h"
#include "python/extension/Reception.h"

#include <memory>
#include <string>
#include <thread>

namespace netrove::python {

class Stream {
public:
    Stream(std::shared_ptr<ClientCore> client, const Settings& settings);
    ~Stream();
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    // Each waits for what it returns and raises what the call has raised.
    Response head();
    py::object next(std::size_t most); // bytes that have come, `most` at the most; None at the end

    void close(); // stops what still runs

private:
    template <class Has>
    void await(Has has);

    std::uint64_t Generation = processGeneration();
    std::shared_ptr<ClientCore> TheClient; // outlives the thread
    std::shared_ptr<Reception> Shared;
    std::thread Receiver;
    std::string Piece; // taken from what has come
    std::size_t Given = 0;
    bool Closed = false;
};

void defineStream(py::module_& module);

} // namespace netrove::python
