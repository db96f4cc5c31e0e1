#include "cli/options/parser/ConfigFile.h"

#include "cli/failures/CliFailure.h"
#include "cli/failures/Hints.h"
#include "cli/options/Trimmed.h"
#include "cli/options/table/ForeignOptions.h"

#include <netrove/text.h>

#include <algorithm>
#include <cstdlib>
#include <sys/stat.h>

namespace netrove::cli {

namespace {

constexpr std::string_view kBlanks = " \t\r";
// They choose the file, or end the program before anything in it counts.
constexpr std::string_view kNotHere[] = {"config", "no-config", "version"};

std::string didYouMean(std::string_view word, const std::vector<std::string>& known) {
    const std::string_view nearest = nearestWord(word, known);
    return nearest.empty() ? std::string() : "; did you mean " + std::string(nearest) + "?";
}

// One file while it is read.
class Reading {
public:
    Reading(std::string_view file, unsigned command) : File(file), Command(command) {}

    void take(std::string_view line) {
        ++Line;
        const std::string_view text = trimmed(line, kBlanks);
        if (text.empty() || text.starts_with('#')) {
            return;
        }
        if (text.starts_with('[')) {
            beginSection(text);
        } else {
            takeOption(text);
        }
    }

    std::vector<ConfigEntry> Entries;

private:
    [[noreturn]] void refuse(const std::string& text) const {
        failUsage(printable(File) + ":" + std::to_string(Line) + ": " + text);
    }

    void beginSection(std::string_view text) {
        std::vector<std::string> known;
        for (const CommandRow& command : commandTable()) {
            known.push_back("[" + std::string(command.Name) + "]");
            if (known.back() == text) {
                Section = command.Set;
                return;
            }
        }
        refuse("there is no command '" + printable(text) + "'" + didYouMean(text, known));
    }

    const OptionRow& rowNamed(std::string_view name) const {
        std::vector<std::string> known;
        for (const OptionRow& row : optionTable()) {
            const bool here =
                (row.Commands & Section) != 0 && std::ranges::find(kNotHere, row.LongName) == std::end(kNotHere);
            if (isNamed(row, "--" + std::string(name))) {
                if (here) {
                    return row;
                }
                refuse("'" + printable(name) + "' cannot be set here");
            }
            if (here) {
                std::ranges::copy(longNames(row), std::back_inserter(known));
            }
        }
        const std::string_view instead = insteadOf("--" + std::string(name), Section);
        refuse("unknown option '" + printable(name) + "'" +
               (instead.empty() ? didYouMean(name, known) : "; " + std::string(instead)));
    }

    void takeOption(std::string_view text) {
        const auto sign = text.find('=');
        const std::string_view name = trimmed(text.substr(0, sign), kBlanks);
        const OptionRow& row = rowNamed(name);
        std::string_view value = sign == text.npos ? std::string_view() : trimmed(text.substr(sign + 1), kBlanks);
        if (value.size() > 1 && value.starts_with('"') && value.ends_with('"')) {
            value = value.substr(1, value.size() - 2); // keeps blanks at its ends
        }
        if (row.ValueName.empty() && sign != text.npos) {
            refuse("'" + printable(name) + "' takes no value; write the name alone");
        }
        if (!row.ValueName.empty() && sign == text.npos) {
            refuse("'" + printable(name) + "' needs a value: " + std::string(name) + " = " +
                   std::string(row.ValueName));
        }
        if ((row.Commands & Section & Command) != 0) {
            Entries.push_back({&row, std::string(value), Line});
        }
    }

    std::string_view File;
    unsigned Command;
    unsigned Section = kAll;
    std::size_t Line = 0;
};

} // namespace

std::string usualConfigFile() {
    const char* folder = std::getenv("XDG_CONFIG_HOME");
    const char* home = std::getenv("HOME");
    if (folder != nullptr && *folder == '/') { // another one is to be ignored
        return std::string(folder) + "/netrove/config";
    }
    return home == nullptr || *home == '\0' ? std::string() : std::string(home) + "/.config/netrove/config";
}

std::vector<ConfigEntry> configEntries(std::string_view text, std::string_view file, unsigned command) {
    Reading reading(file, command);
    for (std::size_t start = 0; start < text.size();) {
        const auto end = std::min(text.find('\n', start), text.size());
        reading.take(text.substr(start, end - start));
        start = end + 1;
    }
    return std::move(reading.Entries);
}

bool isReadableByOthers(const std::string& file) {
    struct stat status {};
    return stat(file.c_str(), &status) == 0 && (status.st_mode & (S_IRGRP | S_IROTH)) != 0;
}

} // namespace netrove::cli
