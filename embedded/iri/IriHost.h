// Host names of identifiers, in the ASCII form that goes on the wire.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vantik::detail {

// The ASCII form, in lower case, of a host that is found in a checked text from `position` on: a name by UTS 46, an
// address in brackets as it is. Refuses what is neither.
std::string hostToAscii(std::u16string_view host, std::size_t position);

} // namespace vantik::detail
