// The same facts in the form that each reader needs: help by topic, man page, completions. All of it is made from the
// tables of commands, options, exit statuses and environment variables.
#pragma once

#include "cli/options/table/OptionTable.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace netrove::cli {

struct EnvironmentRow {
    std::string_view Name;
    std::string_view Meaning;
};
std::span<const EnvironmentRow> environmentTable();

// A command line that is worth showing, and what it does. Those for whom the program is new are the first three.
struct ExampleRow {
    std::string_view Line;
    std::string_view Meaning;
    unsigned Commands; // whose manual page shows it
};
std::span<const ExampleRow> exampleTable();

// One entry for each exit status, each after `indent` blanks.
std::string exitLines(std::size_t indent, std::size_t columns);

// What `netrove help TOPIC` prints, in lines of at most `columns`; for an unknown topic a usage failure names the
// topics. Commands have their own help.
std::string helpTopic(std::string_view topic, std::size_t columns);
std::string topicList(std::size_t columns);
std::vector<std::string> topicNames(); // without the commands

// Pages of section 1, as roff: of the program, and of a command.
std::string manPage();
std::string manPage(const CommandRow& command);
std::string bashCompletion();
std::string zshCompletion();
std::string fishCompletion();

} // namespace netrove::cli
