// How all help is set: paragraphs, entries, usages.
#pragma once

#include "cli/options/table/OptionTable.h"

#include <string>
#include <string_view>

namespace netrove::cli {

// `text` in lines of at most `width` columns, broken at blanks; each line after the first begins with `indent` blanks,
// which are not counted.
std::string wrapped(std::string_view text, std::size_t width, std::size_t indent = 0);
// A paragraph.
std::string paragraph(std::string_view text, std::size_t columns);
// A name, and what it means beside it; below it where the lines are short or the name is long.
std::string entry(std::string_view name, std::string_view text, std::size_t columns, std::size_t nameWidth = 30);
// A command line for a shell, continued after a backslash where it is too long.
std::string commandLines(std::string_view line, std::size_t width, std::size_t indent);

// "-x, --proxy HOST:PORT".
std::string usageOf(const OptionRow& row);
// What an option does, and the names that other programs have for it.
std::string meaningOf(const OptionRow& row);
// "netrove save [OPTIONS] URL [FILE]".
std::string usageOf(const CommandRow& command);

} // namespace netrove::cli
