// Content that becomes a file.
#pragma once

#include "cli/exchange/Exchange.h"

#include <string>

namespace netrove::cli {

// True if the target of `save` is a folder, which --output-dir may have put below another: one that is there, or, by a
// slash at its end, one that --create-dirs makes.
bool isTargetFolder(const Settings& settings);

// Raises FileExists where there is one that is not to be replaced.
void toFile(Exchange& exchange, const std::string& target, bool replace);

} // namespace netrove::cli
