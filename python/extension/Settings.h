// One request with its settings, as the Python part fills it in.
#pragma once

#include "python/extension/Held.h"

#include <netrove/request.h>

#include <memory>

namespace netrove::python {

// Tells a Python callable how far a call has come: not more often than a person can see, and at the end.
class ProgressReports;

// Copies share what reports progress.
struct Settings {
    Request Asked = {};
    std::shared_ptr<ProgressReports> Progress = {};

    // Tells what has not been told yet. With the GIL, at the end of a call.
    void finishProgress() const;
};

void defineSettings(py::module_& module);

} // namespace netrove::python
