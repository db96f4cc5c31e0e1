#include "python/extension/Failures.h"

#include <netrove/response.h>
#include <pybind11/stl.h>

#include <string>
#include <utility>
#include <variant>

namespace netrove::python {

namespace {

// Never freed: it belongs to a module that lives as long as the interpreter.
PyObject* maker = nullptr;

} // namespace

py::object exceptionOf(const Error& failure) {
    py::list arguments;
    for (const Error::Argument& argument : failure.arguments()) {
        arguments.append(py::cast(argument));
    }
    const bool answered = failure.response().status != 0;
    py::object response = py::none();
    py::bytes content = "";
    if (answered) {
        Response before = failure.response();
        content = py::bytes(before.content);
        before.content.clear();
        response = py::cast(std::move(before));
    }
    return py::handle(maker)(std::string(nameOf(failure.kind())), failure.identifier(), arguments, failure.what(),
                             failure.hostText(), failure.sent(), failure.response().attempts, response, content);
}

py::object exceptionOf(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const Error& known) {
        return exceptionOf(known);
    } catch (py::error_already_set& raised) {
        raised.restore();
    } catch (const std::exception& other) {
        PyErr_SetString(PyExc_RuntimeError, other.what());
    } catch (...) {
        PyErr_SetString(PyExc_RuntimeError, "an exception of another library");
    }
    py::error_already_set raised; // takes what is set, with its traceback
    return py::reinterpret_borrow<py::object>(raised.value());
}

void raiseInPython(const Error& failure) {
    const py::object exception = exceptionOf(failure);
    PyErr_SetObject(py::type::of(exception).ptr(), exception.ptr());
    throw py::error_already_set();
}

void defineFailures(py::module_& module) {
    module.def("set_failure_maker", [](const py::object& make) { maker = py::object(make).release().ptr(); });
    py::register_exception_translator([](std::exception_ptr failure) {
        try {
            if (failure) {
                std::rethrow_exception(std::move(failure));
            }
        } catch (const Error& known) {
            const py::object exception = exceptionOf(known);
            PyErr_SetObject(py::type::of(exception).ptr(), exception.ptr());
        }
    });
}

} // namespace netrove::python
