#include "python/extension/Bodies.h"

#include <netrove/body.h>
#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace netrove::python {

namespace {

// Content of so few bytes is copied: that costs less than reading it piece by piece.
constexpr std::size_t kSmallContent = std::size_t{64} << 10;

// The memory of a Python object, which keeps its size and place meanwhile. Made with the GIL.
class Memory {
public:
    explicit Memory(const py::handle& object) : View(new Py_buffer) {
        if (PyObject_GetBuffer(object.ptr(), View.get(), PyBUF_SIMPLE) != 0) {
            throw py::error_already_set();
        }
    }
    ~Memory() {
        withGil([this] { PyBuffer_Release(View.get()); });
    }
    Memory(const Memory&) = delete;
    Memory& operator=(const Memory&) = delete;

    std::span<const std::byte> bytes() const {
        return {static_cast<const std::byte*>(View->buf), static_cast<std::size_t>(View->len)};
    }

private:
    std::unique_ptr<Py_buffer> View; // does not move: some exporters point into it
};

std::size_t copyTo(std::span<std::byte> room, std::span<const std::byte>& from) {
    const std::size_t count = std::min(room.size(), from.size());
    std::copy_n(from.begin(), count, room.begin());
    from = from.subspan(count);
    return count;
}

class MemoryReader final : public BodyReader {
public:
    explicit MemoryReader(std::shared_ptr<const Memory> memory) : Whole(std::move(memory)), Left(Whole->bytes()) {}
    std::size_t read(std::span<std::byte> room) override { return copyTo(room, Left); }

private:
    std::shared_ptr<const Memory> Whole;
    std::span<const std::byte> Left;
};

Body bufferBody(const py::handle& object, std::string contentType) {
    const auto memory = std::make_shared<const Memory>(object);
    if (memory->bytes().size() <= kSmallContent) {
        return bytes(memory->bytes(), std::move(contentType));
    }
    return {[memory] { return std::make_unique<MemoryReader>(memory); }, memory->bytes().size(), true,
            std::move(contentType)};
}

// Pieces of an iterator: bytes, anything with a buffer, or text, which is sent in UTF-8.
class PiecesReader final : public BodyReader {
public:
    explicit PiecesReader(Held iterator) : Iterator(std::move(iterator)) {}

    std::size_t read(std::span<std::byte> room) override {
        if (Left.empty() && !AtEnd) {
            const py::gil_scoped_acquire gil;
            next();
        }
        return copyTo(room, Left);
    }

private:
    // An empty piece is not the end.
    void next() {
        while (Left.empty()) {
            Piece.reset();
            const auto piece = py::reinterpret_steal<py::object>(PyIter_Next(Iterator->ptr()));
            if (!piece) {
                if (PyErr_Occurred() != nullptr) {
                    throw py::error_already_set();
                }
                AtEnd = true;
                return;
            }
            Piece = py::isinstance<py::str>(piece) ? std::make_shared<const Memory>(piece.attr("encode")("utf-8"))
                                                   : std::make_shared<const Memory>(piece);
            Left = Piece->bytes();
        }
    }

    Held Iterator;
    std::shared_ptr<const Memory> Piece;
    std::span<const std::byte> Left; // of the piece
    bool AtEnd = false;              // an iterator is not asked again
};

// `start` returns an iterator each time that the content is sent.
Body piecesBody(py::object start, std::optional<std::uint64_t> length, bool repeatable, std::string contentType) {
    const auto open = [start = held(std::move(start))]() -> std::unique_ptr<BodyReader> {
        const py::gil_scoped_acquire gil;
        return std::make_unique<PiecesReader>(held((*start)()));
    };
    return {open, length, repeatable, std::move(contentType)};
}

Body multipartBody(std::vector<std::tuple<std::string, Body, std::string>>&& parts) {
    std::vector<Part> all;
    all.reserve(parts.size());
    for (auto& [name, content, filename] : parts) {
        all.push_back({std::move(name), std::move(content), std::move(filename)});
    }
    return multipart(std::move(all));
}

} // namespace

void defineBodies(py::module_& module) {
    py::class_<Body>(module, "Body")
        .def_property_readonly("length", &Body::length)
        .def_property_readonly("repeatable", &Body::repeatable)
        .def_property_readonly("content_type", &Body::contentType)
        .def("typed", &Body::as);
    module.def("text_body", &text);
    module.def("buffer_body", &bufferBody);
    module.def("pieces_body", &piecesBody);
    module.def("file_body", &file);
    module.def("form_body", &form);
    module.def("multipart_body", &multipartBody);
}

} // namespace netrove::python
