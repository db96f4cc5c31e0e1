// Content that becomes a file.
#pragma once

#include "cli/exchange/Exchange.h"

#include <string>

namespace netrove::cli {

// Raises FileExists where there is one that is not to be replaced.
void toFile(Exchange& exchange, const std::string& target, bool replace);

} // namespace netrove::cli
