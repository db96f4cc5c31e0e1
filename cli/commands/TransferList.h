// The transfers of one call of get, save or send, one after the other or at the same time.
#pragma once

#include "cli/options/Settings.h"
#include "cli/terminal/Output.h"

#include <netrove/client.h>

#include <vector>

namespace netrove::cli {

class WireTrace;

// Both return the exit status. Each failure is reported as it comes; what would make a second URL replace the file of a
// first one is raised before anything is sent. The transfers end with a signal. `trace` may be null.
int runTransfers(netrove::Client& client, const std::vector<Settings>& transfers, const Console& console);
int runParallel(const std::vector<Settings>& transfers, const Console& console, WireTrace* trace);

} // namespace netrove::cli
