// The configuration file: options by their long names, for every command that has them or in a section for one.
#pragma once

#include "cli/options/table/OptionTable.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace netrove::cli {

struct ConfigEntry {
    const OptionRow* Row;
    std::string Value;
    std::size_t Line; // from 1
};

// Where the file is unless another one is named; empty without a home folder.
std::string usualConfigFile();

// What applies to a command, in the order of the file. Everything is checked, also what is for other commands: raises a
// usage failure that names the file and the line.
std::vector<ConfigEntry> configEntries(std::string_view text, std::string_view file, unsigned command);

// Whether users other than the owner can read the file.
bool isReadableByOthers(const std::string& file);

} // namespace netrove::cli
