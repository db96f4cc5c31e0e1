// The offline tour: what netrove does, shown against a small server of its own.
#pragma once

#include "cli/Output.h"
#include "cli/Session.h"

namespace netrove::cli {

// Runs every step and checks that it did what it says. Raises DemoFailed where one did not.
int runDemo(Session& session, const Console& console);

} // namespace netrove::cli
