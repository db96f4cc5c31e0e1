// Where a password comes from when it is not on the command line.
#pragma once

#include "cli/options/Settings.h"

#include <string>

namespace netrove::cli {

// Fills in missing passwords of user names: from the environment (NETROVE_PASSWORD, NETROVE_PROXY_PASSWORD), or by a
// prompt without echo if standard input is a terminal. Raises a usage failure if there is neither.
void completePasswords(Settings& settings);

// Asks on the controlling terminal, without echo. Raises an interrupt if the user presses Ctrl-C, and a usage
// failure if the input ends without a password.
std::string askPassword(const std::string& prompt);

} // namespace netrove::cli
