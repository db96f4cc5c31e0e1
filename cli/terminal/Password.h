// Where a password comes from when it is not on the command line.
#pragma once

#include "cli/options/Settings.h"

#include <string>

namespace netrove::cli {

// Fills in the passwords that a user name needs: from the environment (NETROVE_PASSWORD, NETROVE_PROXY_PASSWORD), else
// asked for without echo where standard input is a terminal. Raises a usage failure where there is neither.
void completePasswords(Settings& settings);

// Asks on the controlling terminal, without echo. Raises an interrupt where the user presses Ctrl-C, and a usage
// failure where the input ends without a password.
std::string askPassword(const std::string& prompt);

} // namespace netrove::cli
