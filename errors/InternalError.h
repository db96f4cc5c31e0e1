// The failure of the library's own checks.
#pragma once

#include <string>

namespace netrove {

// Raises VANTIK:webservices:InternalError with this text.
[[noreturn]] void throwInternalError(const std::string& text);

} // namespace netrove
