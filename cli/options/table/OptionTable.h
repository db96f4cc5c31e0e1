// Every option of the command line, as data: the parser and the help are made from this one table.
#pragma once

#include "cli/options/table/OptionRow.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace netrove::cli {

// Every long name: ours first, then those of other programs.
std::vector<std::string> longNames(const OptionRow& row);

bool isNamed(const OptionRow& row, std::string_view typed); // "--name" or "-n"

std::span<const OptionRow> optionTable(); // in the order of the help

struct CommandRow {
    std::string_view Name;
    Command Kind;
    unsigned Set;
    std::string_view Summary;
    bool Url;              // takes a URL
    bool Target;           // takes a file after it
    bool Topic;            // takes a topic
    bool Manifest = false; // takes a list of transfers
};

std::span<const CommandRow> commandTable();

} // namespace netrove::cli
