// From failures of the transfer layer to message exceptions of the host.
#pragma once

#include <string>

namespace webservices {

// Call while an exception is being handled. Throws what the host sees instead of it; `url` fills the URL arguments.
[[noreturn]] void translateTransferException(const std::u16string& url);

} // namespace webservices
