#include "cli/options/table/OptionTable.h"

#include "cli/options/table/OptionGroups.h"

#include <algorithm>
#include <ranges>
#include <sstream>
#include <vector>

namespace netrove::cli {

namespace {

struct GroupRow {
    std::string_view Heading;
    std::span<const OptionRow> (*Options)();
};

// In the order of the help.
constexpr GroupRow kGroups[] = {
    {"Request", requestOptions}, {"Content", contentOptions},      {"Response", responseOptions},
    {"Files", fileOptions},      {"Several URLs", severalOptions}, {"Many transfers", batchOptions},
    {"Retries", retryOptions},   {"Credentials", loginOptions},    {"Proxy and limits", networkOptions},
    {"TLS", tlsOptions},         {"What is shown", shownOptions},
};

// clang-format off
constexpr CommandRow kCommands[] = {
    {"get", Command::Get, kGet, "Fetch a URL and write its content to standard output", true, false, false},
    {"save", Command::Save, kSave, "Fetch a URL into a file, which is complete or not there at all", true, true, false},
    {"send", Command::Send, kSend, "Make any request: method, fields, body, streaming", true, false, false},
    {"batch", Command::Batch, kBatch, "Do many transfers from a list, several at a time, and resume a run that was stopped", false, false, false, true},
    {"proxy", Command::Proxy, kProxy, "Show which proxy applies to a URL", true, false, false},
    {"describe", Command::Describe, kDescribe, "Show the properties and methods of the connection class", false, false, false},
    {"demo", Command::Demo, kDemo, "Show what netrove does against a small server of its own", false, false, false},
    {"help", Command::Help, kHelp, "Explain a topic: options by group, exit statuses, environment, examples", false, false, true},
};
// clang-format on

std::vector<OptionRow> joined() {
    std::vector<OptionRow> rows;
    for (const GroupRow& group : kGroups) {
        for (OptionRow row : group.Options()) {
            row.Group = group.Heading;
            rows.push_back(row);
        }
    }
    return rows;
}

} // namespace

std::vector<std::string> longNames(const OptionRow& row) {
    std::vector<std::string> names = {std::string(row.LongName)};
    std::istringstream others{std::string(row.Traits.OtherNames)};
    for (std::string name; others >> name;) {
        names.push_back(name);
    }
    return names;
}

// Asked for each row and each word of a command line, so it makes no strings.
bool isNamed(const OptionRow& row, std::string_view typed) {
    if (!typed.starts_with("--")) {
        return row.ShortName != 0 && typed.size() == 2 && typed[1] == row.ShortName;
    }
    const std::string_view name = typed.substr(2);
    auto others = std::views::split(row.Traits.OtherNames, ' ');
    return name == row.LongName ||
           std::ranges::any_of(others, [&](auto other) { return std::ranges::equal(other, name); });
}

std::span<const OptionRow> optionTable() {
    static const std::vector<OptionRow> kRows = joined();
    return kRows;
}

std::span<const CommandRow> commandTable() {
    return kCommands;
}

} // namespace netrove::cli
