// From the host's wide text to the narrow text that libcurl takes.
#pragma once

#include <string>

namespace netrove {

// Narrow text in the named encoding; the empty name stands for ASCII. Text that the encoding cannot hold raises
// VANTIK:webservices:EncodingFailure.
std::string toNarrow(const std::u16string& wide, const std::string& encoding);

} // namespace netrove
