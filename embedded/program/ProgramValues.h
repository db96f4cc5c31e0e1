// Values on their way from a program into a scope, and what structs hold without handles of their own.
#pragma once

#include "embedded/arrays/Array.h"
#include "embedded/scope/Scope.h"
#include "vantik/Array.h"

#include <boost/container/small_vector.hpp>

#include <span>
#include <string>
#include <string_view>

namespace vantik::detail {

// Raises for what only a program can get wrong: an object of another scope, and an enumeration member that its class
// does not have. (A module may be handed members of a newer host and ignores them; a typing error should not be
// ignored.)
void checkValue(const Scope& scope, const Array& value);

// Most calls have so few, and then need no memory of the heap for them.
using HandleList = boost::container::small_vector<vxArray_tag*, 4>;

// The handles of values, borrowed from them, each one checked.
HandleList borrowedHandles(const Scope& scope, std::span<const Array> values);

// Sets a field that has no value yet.
void setField(StructContents& contents, std::size_t index, std::size_t field, Array value) noexcept;
// The text of a field; "" where it is empty.
std::string fieldText(const Array& structure, std::string_view name, std::size_t index);

} // namespace vantik::detail
