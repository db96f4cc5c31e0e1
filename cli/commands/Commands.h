// What each command does. Each returns the exit status, or raises the failure that main reports.
#pragma once

#include "cli/exchange/Session.h"
#include "cli/options/Settings.h"
#include "cli/terminal/Output.h"

#include <string>

namespace netrove::cli {

int runTransfer(Session& session, const Settings& settings, const Console& console); // get, save, send
int runBatch(Session& session, const Settings& settings, const Console& console);
int runProxy(Session& session, const Settings& settings, const Console& console);
int runDescribe(Session& session, const Settings& settings, const Console& console);
int runVersion(Session& session, const Console& console);

// The file that `save` writes for these settings.
std::string saveTarget(const Settings& settings);

} // namespace netrove::cli
