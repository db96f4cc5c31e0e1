// Calls that the class of the HTTP client accepts although they come to nothing: a copy while no connection is open,
// and a method or fields that the next open clears. Its contract is to say nothing about them. So the embedding API
// warns, and only of calls through vantik::Object: those of the host go on unchanged.
#pragma once

#include <string_view>

namespace vantik {

class Array;

namespace detail {

class HostObject;

// Before a call or an assignment of a program. Raises where the program treats the warning as a failure.
void warnOfOrder(HostObject& object, std::string_view member);
// After it has succeeded. `value` is what was assigned; the array of no class for a call. Raises as above.
void noteOrder(HostObject& object, std::string_view member, const Array& value);

} // namespace detail

} // namespace vantik
