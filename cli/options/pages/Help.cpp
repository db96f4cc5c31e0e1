#include "cli/options/pages/Help.h"

#include "cli/options/NumberText.h"
#include "cli/options/pages/Layout.h"
#include "cli/options/pages/Reference.h"

#include <algorithm>
#include <cstdlib>
#include <sys/ioctl.h>
#include <unistd.h>

namespace netrove::cli {

namespace {

constexpr std::size_t kUsualColumns = 80;
constexpr std::size_t kFewestColumns = 40;

struct PurposeRow {
    std::string_view Heading;
    unsigned Commands;
};

// Every command but help is for one of these.
constexpr PurposeRow kPurposes[] = {
    {"Fetch", kGet | kSave | kBatch}, {"Send", kSend}, {"Look around", kProxy | kDescribe | kDemo | kHelp}};

// What a short help says of an option.
std::string firstClause(std::string_view text) {
    return std::string(text.substr(0, std::min({text.find("; "), text.find(". "), text.size()})));
}

} // namespace

std::size_t helpColumns() {
    const char* wanted = std::getenv("COLUMNS");
    winsize size{};
    std::size_t columns = kUsualColumns;
    if (const auto number = wholeNumber(wanted == nullptr ? "" : wanted); number.value_or(0) > 0) {
        columns = static_cast<std::size_t>(*number);
    } else if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
        columns = size.ws_col;
    }
    return std::max(columns, kFewestColumns);
}

std::string programHelp(std::size_t columns) {
    std::string text = "Usage: netrove COMMAND [OPTIONS]\n\n" +
                       paragraph("An HTTP client: files that are whole or not there, servers that are verified, lists "
                                 "of any length.",
                                 columns);
    constexpr std::size_t commandWidth = 11;
    for (const PurposeRow& purpose : kPurposes) {
        text += "\n" + std::string(purpose.Heading) + ":\n";
        for (const CommandRow& command : commandTable()) {
            if ((command.Set & purpose.Commands) != 0) {
                text += entry(command.Name, command.Summary, columns, commandWidth);
            }
        }
    }
    text += "\nStart with:\n";
    for (const ExampleRow& example : exampleTable().first(3)) {
        text += "  " + commandLines(example.Line, columns - 2, 6) + "\n";
    }
    text += "\nMore help:\n";
    constexpr std::pair<std::string_view, std::string_view> kMore[] = {
        {"netrove get --help", "the options of a command that are used most"},
        {"netrove get --help all", "all of them"},
        {"netrove --help all", "everything"},
        {"netrove help", "topics: exit statuses, environment, examples and others"},
        {"netrove --version", "version, features and components"},
    };
    for (const auto& [line, meaning] : kMore) {
        text += entry(line, meaning, columns, 26);
    }
    return text;
}

std::string commandHelp(const CommandRow& command, std::size_t columns, bool all) {
    std::string text = paragraph("Usage: " + usageOf(command), columns) + "\n" +
                       paragraph(std::string(command.Summary) + ".", columns);
    std::string_view group;
    for (const OptionRow& row : optionTable()) {
        if ((row.Commands & (all ? ~0u : row.Traits.Common) & command.Set) == 0) {
            continue;
        }
        if (row.Group != group) {
            group = row.Group;
            text += "\n" + std::string(group) + ":\n";
        }
        text += entry(usageOf(row), all ? meaningOf(row) : firstClause(row.Help), columns);
    }
    text += "\n";
    if (!all) {
        return text + paragraph("'netrove " + std::string(command.Name) + " --help all' lists all options.", columns);
    }
    text +=
        entry("-h, --help [all|TOPIC]", "print help: the options that are used most, all of them, or a topic", columns);
    if ((command.Set & kTransfers) != 0) {
        text += "\nExit status:\n" + exitLines(2, columns);
    }
    return text;
}

} // namespace netrove::cli
