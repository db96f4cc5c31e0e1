// Where a password comes from when it is not on the command line.
#pragma once

#include "cli/options/Settings.h"

#include <string>
#include <vector>

namespace netrove::cli {

class Console;

// Reads the netrc file that the options ask for, and says so if others may read it too. Raises FileNotRead, and a usage
// failure where it is not one.
void readNetrc(Settings& settings, const Console& console);

// Fills in missing passwords of user names: from the environment (NETROVE_PASSWORD, NETROVE_PROXY_PASSWORD), or by a
// prompt without echo if standard input is a terminal. Raises a usage failure if there is neither.
void completePasswords(Settings& settings);

// What must not be shown: tokens, the values of cookies, passwords of a netrc file.
std::vector<std::string> furtherSecrets(const Settings& settings);

// Asks on the controlling terminal, without echo. Raises an interrupt if the user presses Ctrl-C, and a usage
// failure if the input ends without a password.
std::string askPassword(const std::string& prompt);

} // namespace netrove::cli
