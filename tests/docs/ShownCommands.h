// The commands that the pages show: lines of their blocks and phrases between backticks.
#pragma once

#include <string>
#include <vector>

namespace docstest {

struct ShownCommand {
    std::string Text;    // without the comment; a line that goes on with a backslash is one command with the next
    std::string Comment; // after "# "
    int Status = 0;      // "exits N" in the comment
};

// In a block marked "sh" every line is one; in a block without a language, in an indented one and between backticks
// what looks like one and has an argument.
std::vector<ShownCommand> shownCommands(const std::string& page);

} // namespace docstest
