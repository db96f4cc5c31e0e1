// The manual page, in the macros of man(7).
#include "cli/failures/ExitStatus.h"
#include "cli/options/OptionTable.h"
#include "cli/options/pages/Reference.h"

namespace netrove::cli {

namespace {

// A plain hyphen would be typeset as a dash that cannot be copied; a leading dot or quote would begin a request.
std::string roff(std::string_view text) {
    std::string result;
    for (const char c : text) {
        if (c == '\\') {
            result += "\\e";
        } else if (c == '-') {
            result += "\\-";
        } else {
            result += c;
        }
    }
    if (!result.empty() && (result.front() == '.' || result.front() == '\'')) {
        result.insert(0, "\\&");
    }
    return result;
}

std::string section(std::string_view title) {
    return ".SH " + std::string(title) + "\n";
}

// A paragraph with a tag.
std::string tagged(const std::string& tag, std::string_view text) {
    return ".TP\n" + tag + "\n" + roff(text) + ".\n";
}

std::string bold(std::string_view text) {
    return "\\fB" + roff(text) + "\\fR";
}

std::string italic(std::string_view text) {
    return "\\fI" + roff(text) + "\\fR";
}

std::string optionTag(const OptionRow& row) {
    std::string tag;
    if (row.ShortName != 0) {
        tag += bold(std::string("-") + row.ShortName) + ", ";
    }
    tag += bold("--" + std::string(row.LongName));
    if (!row.ValueName.empty()) {
        tag += " " + italic(row.ValueName);
    }
    return tag;
}

std::string synopsis() {
    std::string text;
    for (const CommandRow& command : commandTable()) {
        text += (text.empty() ? "" : ".br\n") + bold("netrove " + std::string(command.Name)) + " [" +
                italic("options") + "]";
        for (const auto& [taken, name] :
             {std::pair{command.Url, "URL"}, std::pair{command.Topic, "[TOPIC]"}, std::pair{command.Target, "[FILE]"},
              std::pair{command.Manifest, "MANIFEST"}}) {
            if (taken) {
                text += " " + italic(name);
            }
        }
        text += "\n";
    }
    return text + ".br\n" + bold("netrove --version") + "\n";
}

std::string commands() {
    std::string text;
    for (const CommandRow& command : commandTable()) {
        text += tagged(bold(command.Name), command.Summary);
    }
    return text;
}

std::string options() {
    std::string text;
    std::string_view group;
    for (const OptionRow& row : optionTable()) {
        if (row.Group != group) {
            group = row.Group;
            text += ".SS " + std::string(group) + "\n";
        }
        text += tagged(optionTag(row), row.Help);
    }
    return text;
}

} // namespace

std::string manPage() {
    std::string text = ".\\\" Made by 'netrove help man'. Change the tables of the command line instead.\n"
                       ".TH NETROVE 1 \"\" \"netrove " NETROVE_VERSION "\" \"User Commands\"\n";
    text += section("NAME") + "netrove \\- HTTP client on the netrove module\n";
    text += section("SYNOPSIS") + synopsis();
    text += section("DESCRIPTION") +
            "netrove makes HTTP requests. Content goes to standard output or to a file, everything else to standard\n"
            "error. A file appears under its name when it is complete. Servers are verified against the certificates\n"
            "of the system unless told otherwise.\n";
    text += section("COMMANDS") + commands();
    text += section("OPTIONS") +
            "Each command takes those that make sense for it; \\fBnetrove\\fR \\fICOMMAND\\fR "
            "\\fB\\-\\-help\\fR lists them.\n" +
            options();
    text += section("EXIT STATUS");
    for (const ExitMeaning& meaning : exitMeanings()) {
        text += tagged(bold(std::to_string(meaning.Status)), meaning.Meaning);
    }
    text += section("ENVIRONMENT");
    for (const EnvironmentRow& row : environmentTable()) {
        text += tagged(bold(row.Name), row.Meaning);
    }
    text += section("EXAMPLES");
    for (const ExampleRow& row : exampleTable()) {
        text += tagged(roff(row.Line), row.Meaning);
    }
    return text;
}

} // namespace netrove::cli
