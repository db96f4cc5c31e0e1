// What each command does. Each returns the exit status, or raises the failure that main reports.
#pragma once

#include "cli/exchange/Session.h"
#include "cli/options/Settings.h"
#include "cli/system/Signals.h"
#include "cli/terminal/Output.h"

#include <netrove/client.h>

#include <optional>
#include <string>

namespace netrove::cli {

// get, save, send, for one URL; waits of our own end at the deadline. `response` is without content.
void runTransfer(netrove::Client& client, const Settings& settings, const Console& console,
                 std::optional<Clock::time_point> deadline, netrove::Response& response);
int runBatch(Session& session, const Settings& settings, const Console& console);
int runProxy(Session& session, const Settings& settings, const Console& console);
int runDescribe(Session& session, const Settings& settings, const Console& console);
int runVersion(Session& session, const Console& console);

// The file that `save` writes for these settings.
std::string saveTarget(const Settings& settings);

} // namespace netrove::cli
