// Help for people at a terminal: on the program and on a command.
#pragma once

#include "cli/options/table/OptionTable.h"

#include <string>

namespace netrove::cli {

// Columns of the terminal that standard output is: as COLUMNS says, as the terminal says, otherwise 80.
std::size_t helpColumns();

std::string programHelp(std::size_t columns);
// The options that are used most, or all of them.
std::string commandHelp(const CommandRow& command, std::size_t columns, bool all);

} // namespace netrove::cli
