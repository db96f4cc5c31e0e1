// Converts the host's wide text to the narrow text that libcurl takes.
#pragma once

#include <string>

namespace netrove {

// Narrow text in the named encoding; an empty name means ASCII. Text that the encoding cannot represent raises
// VANTIK:webservices:EncodingFailure.
std::string toNarrow(const std::u16string& wide, const std::string& encoding);

} // namespace netrove
