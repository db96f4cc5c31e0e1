// The extension netrove._netrove: what the Python part of the package is built on.
#include "python/extension/Bodies.h"
#include "python/extension/ClientCore.h"
#include "python/extension/Failures.h"
#include "python/extension/HostCore.h"
#include "python/extension/Lifetime.h"
#include "python/extension/PoolCore.h"
#include "python/extension/PoolStream.h"
#include "python/extension/Settings.h"
#include "python/extension/SignalWatch.h"
#include "python/extension/Stream.h"
#include "python/extension/Texts.h"
#include "vantik/Host.h"

#include <netrove/response.h>
#include <pybind11/chrono.h>
#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <string>

namespace netrove::python {

namespace {

template <class Owner>
auto text(std::string Owner::*member) {
    return [member](const Owner& self) { return textOf(self.*member); };
}

py::list fieldsOf(const Response& response) {
    py::list fields;
    for (const Field& field : response.fields) {
        fields.append(py::make_tuple(textOf(field.name), textOf(field.value)));
    }
    return fields;
}

// By its byte order mark, else by the charset of Content-Type, else as UTF-8.
py::str decodedText(const py::bytes& content, const std::string& contentType) {
    Response response;
    response.fields.add("Content-Type", contentType);
    response.content = std::string(content);
    return textOf(response.text());
}

void defineResponse(py::module_& module) {
    py::class_<Hop>(module, "Hop")
        .def_property_readonly("url", text(&Hop::url))
        .def_property_readonly("method", text(&Hop::method))
        .def_readonly("status", &Hop::status)
        .def_readonly("status_code", &Hop::status)
        .def_property_readonly("failure", text(&Hop::failure))
        .def_readonly("until_head", &Hop::untilHead)
        .def_readonly("time", &Hop::time);
    py::class_<Response>(module, "Response")
        .def_readonly("status", &Response::status)
        .def_property_readonly("reason", text(&Response::reason))
        .def_property_readonly("version", text(&Response::version))
        .def_property_readonly("fields", &fieldsOf)
        .def_property_readonly("set_cookies",
                               [](const Response& self) { return textsOf(self.fields.all("Set-Cookie")); })
        .def_property_readonly("url", text(&Response::url))
        .def_property_readonly("method", text(&Response::method))
        .def_readonly("hops", &Response::hops)
        .def_property_readonly("redirects", &Response::redirects)
        .def_readonly("attempts", &Response::attempts)
        .def_readonly("received", &Response::received)
        .def_readonly("whole", &Response::whole)
        .def_property_readonly("file", [](const Response& self) { return self.file; })
        .def_readonly("resumed_at", &Response::resumedAt)
        .def_readonly("unproven", &Response::unproven);
    module.def("decoded_text", &decodedText);
}

} // namespace

} // namespace netrove::python

PYBIND11_MODULE(_netrove, module) {
    using namespace netrove::python;
    watchForks();
    defineFailures(module);
    defineResponse(module);
    defineBodies(module);
    defineSettings(module);
    defineClient(module);
    defineStream(module);
    definePool(module);
    definePoolStream(module);
    defineHost(module);
    module.def("set_main_thread", &setMainThread);
    module.def("stop_all", &stopAll);
    module.def("live_arrays", &vantik::Host::liveArrays); // for leak checks
    module.attr("__version__") = NETROVE_VERSION;
}
