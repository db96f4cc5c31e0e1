#include "python/extension/BytesCollector.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace netrove::python {

namespace {

constexpr std::size_t kShortContent = std::size_t{64} << 10;
constexpr std::size_t kMostReserved = std::size_t{64} << 20; // on the word of a server

} // namespace

BytesCollector::~BytesCollector() {
    if (Large != nullptr) {
        withGil([this] { Py_DECREF(Large); });
    }
}

void BytesCollector::begin(std::uint64_t expected) {
    Small.clear();
    Used = 0;
    if (expected > kShortContent && Large == nullptr) {
        makeRoom(std::min<std::uint64_t>(expected, kMostReserved));
    }
}

void BytesCollector::add(std::span<const std::byte> piece) {
    if (Large == nullptr && Small.size() + piece.size() <= kShortContent) {
        Small.append(reinterpret_cast<const char*>(piece.data()), piece.size());
        return;
    }
    if (Large == nullptr) {
        makeRoom(std::max(4 * kShortContent, 2 * piece.size()));
        std::memcpy(PyBytes_AS_STRING(Large), Small.data(), Small.size());
        Used = Small.size();
    }
    if (piece.size() > Room - Used) {
        makeRoom(std::max(2 * Room, Used + piece.size()));
    }
    Ahead.advance(PyBytes_AS_STRING(Large), Used, Room);
    std::memcpy(PyBytes_AS_STRING(Large) + Used, piece.data(), piece.size());
    Used += piece.size();
}

void BytesCollector::makeRoom(std::size_t most) {
    if (most > static_cast<std::size_t>(std::numeric_limits<Py_ssize_t>::max())) {
        throw std::bad_alloc();
    }
    const auto size = static_cast<Py_ssize_t>(most);
    const py::gil_scoped_acquire gil;
    if (Large == nullptr) {
        Large = PyBytes_FromStringAndSize(nullptr, size);
    } else {
        _PyBytes_Resize(&Large, size);
    }
    if (Large == nullptr) {
        Used = Room = 0;
        throw py::error_already_set();
    }
    Room = most;
}

std::string_view BytesCollector::view() const {
    return Large == nullptr ? std::string_view(Small) : std::string_view(PyBytes_AS_STRING(Large), Used);
}

py::bytes BytesCollector::take() {
    if (Large == nullptr) {
        return {Small.data(), Small.size()};
    }
    if (Used != Room) {
        makeRoom(Used);
    }
    return py::reinterpret_steal<py::bytes>(std::exchange(Large, nullptr));
}

} // namespace netrove::python
