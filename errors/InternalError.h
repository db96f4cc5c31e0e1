// The failure of the library's own checks.
#pragma once

#include <string>

// Raises VANTIK:webservices:InternalError with this text.
[[noreturn]] void throwInternalError(const std::string& text);
