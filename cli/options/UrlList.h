// Several URLs in one call.
#pragma once

#include "cli/options/Settings.h"

#include <vector>

namespace netrove::cli {

// The settings of each URL of get, save or send, in order and complete. Raises a usage failure.
std::vector<Settings> settingsOfUrls(Settings asked);

} // namespace netrove::cli
