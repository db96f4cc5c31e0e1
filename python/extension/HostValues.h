// Values of the host below and values of Python: what becomes of which.
#pragma once

#include "python/extension/Held.h"
#include "vantik/Array.h"

#include <optional>
#include <string>

namespace netrove::python {

// What a host knows about objects, in both directions. With the GIL.
class ObjectValues {
public:
    virtual ~ObjectValues();
    virtual py::object objectFromHost(vantik::Array object) = 0;
    virtual std::optional<vantik::Array> objectForHost(const py::handle& value) = 0; // nothing: it is not an object
};

// Numbers and truth values keep class and shape; those of other sizes get the class that holds them exactly. `place`
// names the value in the TypeError for what cannot be converted. With the GIL.
vantik::Array hostValue(const py::handle& value, const std::string& place, ObjectValues& objects);

// A scalar as a number, text as str, a struct as dict, more than one as a list; arrays stay where they are. A value
// that is declared as a vector stays one, however many elements it has. With the GIL.
py::object pythonValue(vantik::Array value, bool isVector, ObjectValues& objects);

// An array that stays one. With the GIL.
py::object arrayValue(vantik::Array value);

void defineHostValues(py::module_& module);

} // namespace netrove::python
