// Content collected in a bytes object, where Python finds it without a copy.
#pragma once

#include "http/MappedAhead.h"
#include "python/extension/Held.h"

#include <netrove/client.h>

#include <string>

namespace netrove::python {

class BytesCollector final : public Collector {
public:
    BytesCollector() = default;
    ~BytesCollector() override;
    BytesCollector(const BytesCollector&) = delete;
    BytesCollector& operator=(const BytesCollector&) = delete;

    void begin(std::uint64_t expected) override;
    void add(std::span<const std::byte> piece) override;

    std::string_view view() const;
    py::bytes take(); // with the GIL, once

private:
    void makeRoom(std::size_t most);

    std::string Small;         // until it is worth an object of its own
    PyObject* Large = nullptr; // the only reference to a bytes object; null: what came is in Small
    std::size_t Room = 0;      // in Large
    std::size_t Used = 0;      // of Large
    MappedAhead Ahead = {};    // in Large
};

} // namespace netrove::python
