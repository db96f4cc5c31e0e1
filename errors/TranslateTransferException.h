// Turns failures of the transfer layer into the host's message exceptions.
#pragma once

#include <string>

namespace webservices {

// Call while an exception is being handled. Throws what the host is to see in its place; `url` fills the URL arguments.
[[noreturn]] void translateTransferException(const std::u16string& url);

} // namespace webservices
