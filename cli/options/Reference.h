// The same facts in the form that each reader needs: help by topic, man page, completions. All of it is made from the
// tables of commands, options, exit statuses and environment variables.
#pragma once

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

// A command line that is worth showing, and what it does.
struct ExampleRow {
    std::string_view Line;
    std::string_view Meaning;
};
std::span<const ExampleRow> exampleTable();

// `text` in lines of at most `width` columns, broken at blanks; each line after the first begins with `indent` blanks,
// which are not counted.
std::string wrapped(std::string_view text, std::size_t width, std::size_t indent = 0);
// One line for each exit status, each after `indent` blanks.
std::string exitLines(std::size_t indent);

// What `netrove help TOPIC` prints; for an unknown topic a usage failure names the topics. Commands have their own
// help.
std::string helpTopic(std::string_view topic);
std::string topicList();
std::vector<std::string> topicNames(); // without the commands

std::string manPage(); // section 1, as roff
std::string bashCompletion();
std::string zshCompletion();
std::string fishCompletion();

} // namespace netrove::cli
