// The offline tour: what netrove does, shown against a small server of its own.
#pragma once

#include "cli/exchange/Session.h"
#include "cli/terminal/Output.h"

namespace netrove::cli {

// Runs every step and checks that it did what it says. Raises DemoFailed where one did not.
int runDemo(Session& session, const Console& console);

} // namespace netrove::cli
