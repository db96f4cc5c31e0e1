// What a person asked for on the command line, as a request of the client.
#pragma once

#include "cli/failures/Circumstances.h"
#include "cli/options/Settings.h"
#include "cli/system/Signals.h"

#include <netrove/client.h>

#include <functional>
#include <memory>
#include <optional>

namespace netrove::cli {

// The request, with its content opened. Raises FileNotRead. Waits for the content end at the deadline.
netrove::Request requestOf(const Settings& settings, std::optional<Clock::time_point> deadline);

// Raises ContentNotRewound where this is a redirect to follow that wants the content again, which can be read only
// once.
void refuseSpentContent(const Settings& settings, const netrove::Response& head, bool repeatable);

// What is known of a request by these settings, should it fail.
Circumstances circumstancesOf(const Settings& settings);

// The class as the settings want it driven.
netrove::NetworkSettings networkSettings(const Settings& settings);

// Where warnings go that are not failures: the console must outlive what it is given to.
class Console;
std::function<void(const std::string& identifier, const std::string& text)> warningsTo(const Console& console);

} // namespace netrove::cli
