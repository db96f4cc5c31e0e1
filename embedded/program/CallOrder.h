// Calls that the class of the HTTP client accepts although they come to nothing: a copy while no connection is open,
// and a method or fields that the next open clears. Its contract leaves it no word about them, so the embedding API
// warns, of what goes through vantik::Object only.
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
