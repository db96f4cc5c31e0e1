// What a server sends, as text for Python. It need not be UTF-8.
#pragma once

#include <pybind11/pybind11.h>

#include <string>
#include <vector>

namespace netrove::python {

namespace py = pybind11;

inline py::str textOf(const std::string& text) {
    PyObject* const result = PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "surrogateescape");
    if (result == nullptr) {
        throw py::error_already_set();
    }
    return py::reinterpret_steal<py::str>(result);
}

inline py::list textsOf(const std::vector<std::string>& texts) {
    py::list result;
    for (const std::string& text : texts) {
        result.append(textOf(text));
    }
    return result;
}

} // namespace netrove::python
