// The content of a request, from the options that name it.
#pragma once

#include "cli/options/Settings.h"
#include "cli/system/Signals.h"

#include <netrove/body.h>

#include <optional>
#include <string>

namespace netrove::cli {

// None where the options name none. Raises FileNotRead. Waits for the content end at the deadline.
netrove::Body contentOf(const Settings& settings, std::optional<Clock::time_point> deadline);

// The URL with what the options add to its query.
std::string requestUrl(const Settings& settings);

} // namespace netrove::cli
