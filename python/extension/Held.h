// Python objects that C++ callables own, whatever thread they end on.
#pragma once

#include "python/extension/Lifetime.h"

#include <pybind11/pybind11.h>

#include <memory>
#include <utility>

namespace netrove::python {

// Dropped with the GIL, which the thread that drops the last copy need not have. At the end of the interpreter the
// object is left alone.
using Held = std::shared_ptr<py::object>;

inline Held held(py::object object) {
    return {new py::object(std::move(object)), [](py::object* owned) {
                withGil([owned] { *owned = {}; });
                static_cast<void>(owned->release());
                delete owned;
            }};
}

} // namespace netrove::python
