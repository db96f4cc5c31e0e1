// Values on their way from a program into a scope.
#pragma once

#include "embedded/scope/Scope.h"
#include "vantik/Array.h"

#include <span>
#include <vector>

namespace vantik::detail {

// Raises for what only a program can get wrong: an object of another scope, and an enumeration member that its class
// does not have. (A module may be handed members of a newer host and ignores them; a typing error should not be
// ignored.)
void checkValue(const Scope& scope, const Array& value);

// The handles of values, borrowed from them, each one checked.
std::vector<vxArray_tag*> borrowedHandles(const Scope& scope, std::span<const Array> values);

} // namespace vantik::detail
