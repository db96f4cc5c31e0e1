// Failures of the library as Python exceptions.
#pragma once

#include "python/extension/Held.h"

#include <netrove/error.h>

#include <exception>

namespace netrove::python {

// The exception of its class, which the Python part chooses. With the GIL.
py::object exceptionOf(const Error& failure);
// The same for whatever is caught: an exception of Python's own is the same object again.
py::object exceptionOf(const std::exception_ptr& failure);

// Raises it in Python. With the GIL.
[[noreturn]] void raiseInPython(const Error& failure);

// Runs what may end with an Error, and makes the exception of it at once: within a Running, so that the thread is
// through with Python before the interpreter ends.
template <class Run>
auto raisingInPython(Run run) {
    try {
        return run();
    } catch (const Error& failure) {
        raiseInPython(failure);
    }
}

// From now on Error is raised as what `make` returns for it.
void defineFailures(py::module_& module);

} // namespace netrove::python
