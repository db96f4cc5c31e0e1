// Content of requests from Python objects.
#pragma once

#include "python/extension/Held.h"

namespace netrove::python {

void defineBodies(py::module_& module);

} // namespace netrove::python
