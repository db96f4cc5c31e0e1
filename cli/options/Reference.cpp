#include "cli/options/Reference.h"

#include "cli/failures/CliFailure.h"
#include "cli/failures/ExitStatus.h"
#include "cli/options/OptionTable.h"

#include <netrove/text.h>

#include <algorithm>
#include <vector>

namespace netrove::cli {

namespace {

// clang-format off
constexpr EnvironmentRow kEnvironment[] = {
    {"NETROVE_PASSWORD", "password of the user given with -u"},
    {"NETROVE_PROXY_PASSWORD", "password of the user given with --proxy-user"},
    {"NETROVE_SHARDS", "number of parts of a batch run under GNU parallel; PARALLEL_SEQ says which part"},
    {"http_proxy, https_proxy, all_proxy", "proxy as [SCHEME://]HOST:PORT, if --proxy is auto; http_proxy applies to https too unless one of the others is set. HTTP_PROXY in capitals is never used"},
    {"no_proxy", "hosts reached without a proxy, separated by commas: NAME is that host only, .NAME those below it, * every host"},
    {"NO_COLOR", "if set and not empty, no colours unless --color is always"},
    {"LC_ALL, LC_MESSAGES, LANG", "language of the messages"},
    {"VANTIK_MESSAGES_PATH", "additional folder of message files"},
    {"VANTIK_MODULE_PATH", "folder of the module, if it is not in its usual place"},
};

constexpr ExampleRow kExamples[] = {
    {"netrove get https://example.org/", "write a page to standard output"},
    {"netrove save https://example.org/data.zip", "save a file under its own name, complete or not at all"},
    {"netrove send -d name=value https://example.org/form", "send a form"},
    {"netrove send -X PUT -T data.bin https://example.org/data.bin", "upload a file of any size"},
    {"netrove send -i -X DELETE https://example.org/data.bin", "use any method, and show the head of the response"},
    {"netrove get -u alice https://example.org/private", "log in; the password is asked for"},
    {"netrove batch list.txt --retry 3", "fetch every URL of a list, four at a time; run it again to resume"},
    {"netrove proxy https://example.org/", "see which proxy applies"},
};
// clang-format on

struct TopicRow {
    std::string_view Name;
    std::string_view Summary;
    std::string (*Text)();
};

// "-x, --proxy HOST:PORT".
std::string usageOf(const OptionRow& row) {
    std::string text = row.ShortName == 0 ? "    " : std::string("-") + row.ShortName + ", ";
    text += "--" + std::string(row.LongName);
    if (!row.ValueName.empty()) {
        text += " " + std::string(row.ValueName);
    }
    return text;
}

// Names of the commands that take an option, or "all commands".
std::string commandsOf(const OptionRow& row) {
    std::string names;
    bool all = true;
    for (const CommandRow& command : commandTable()) {
        if ((row.Commands & command.Set) == 0) {
            all = false;
            continue;
        }
        names += (names.empty() ? "" : ", ") + std::string(command.Name);
    }
    return all ? "all commands" : names;
}

std::string entry(std::string_view name, std::string_view text) {
    constexpr std::size_t indent = 6;
    constexpr std::size_t width = 72;
    return "  " + std::string(name) + "\n" + std::string(indent, ' ') + wrapped(text, width, indent) + "\n";
}

std::string groupText(std::string_view group) {
    std::string text = std::string(group) + "\n\n";
    for (const OptionRow& row : optionTable()) {
        if (row.Group == group) {
            text += entry(usageOf(row), std::string(row.Help) + " (" + commandsOf(row) + ")");
        }
    }
    return text;
}

std::string exitText() {
    return "Exit status\n\n" + exitLines(0);
}

std::string environmentText() {
    std::string text = "Environment\n\n";
    for (const EnvironmentRow& row : kEnvironment) {
        text += entry(row.Name, row.Meaning);
    }
    return text;
}

std::string exampleText() {
    std::string text = "Examples\n\n";
    for (const ExampleRow& row : kExamples) {
        text += entry(row.Line, row.Meaning);
    }
    return text;
}

std::string allText() {
    std::string text;
    std::string_view group;
    for (const OptionRow& row : optionTable()) {
        if (row.Group != group) {
            group = row.Group;
            text += groupText(group) + "\n";
        }
    }
    return text + exitText() + "\n" + environmentText() + "\n" + exampleText();
}

constexpr TopicRow kTopics[] = {
    {"request", "what is sent", [] { return groupText("Request"); }},
    {"response", "what happens to the response", [] { return groupText("Response"); }},
    {"transfers", "many transfers: jobs, retries, shards, journal", [] { return groupText("Many transfers"); }},
    {"credentials", "users, passwords, schemes", [] { return groupText("Credentials"); }},
    {"limits", "proxy and timeouts", [] { return groupText("Proxy and limits"); }},
    {"tls", "certificates", [] { return groupText("TLS"); }},
    {"output", "what is shown", [] { return groupText("What is shown"); }},
    {"exit", "exit statuses", exitText},
    {"environment", "environment variables", environmentText},
    {"examples", "command lines to start from", exampleText},
    {"all", "all of these", allText},
    {"man", "the manual page, as roff", manPage},
    {"bash", "completion for bash", bashCompletion},
    {"zsh", "completion for zsh", zshCompletion},
    {"fish", "completion for fish", fishCompletion},
};

} // namespace

std::string wrapped(std::string_view text, std::size_t width, std::size_t indent) {
    std::string result;
    std::size_t column = 0;
    for (std::size_t start = 0; start < text.size();) {
        const auto end = std::min(text.find(' ', start), text.size());
        const std::string_view word = text.substr(start, end - start);
        if (column != 0 && column + 1 + word.size() > width) {
            result += "\n" + std::string(indent, ' ');
            column = 0;
        } else if (column != 0) {
            result += ' ';
            ++column;
        }
        result += word;
        column += word.size();
        start = end + 1;
    }
    return result;
}

std::string exitLines(std::size_t indent) {
    constexpr std::size_t numberWidth = 5;
    std::string text;
    for (const ExitMeaning& meaning : exitMeanings()) {
        const std::string number = std::to_string(meaning.Status);
        text += std::string(indent + numberWidth - number.size(), ' ') + number + "  " + std::string(meaning.Meaning) +
                "\n";
    }
    return text;
}

std::span<const EnvironmentRow> environmentTable() {
    return kEnvironment;
}

std::span<const ExampleRow> exampleTable() {
    return kExamples;
}

std::string topicList() {
    std::string text = "Topics of 'netrove help TOPIC'; 'netrove COMMAND --help' describes a command.\n\n";
    for (const TopicRow& row : kTopics) {
        text += "  " + std::string(row.Name) + std::string(14 - row.Name.size(), ' ') + std::string(row.Summary) + "\n";
    }
    return text;
}

std::vector<std::string> topicNames() {
    std::vector<std::string> names;
    for (const TopicRow& row : kTopics) {
        names.emplace_back(row.Name);
    }
    return names;
}

std::string helpTopic(std::string_view topic) {
    for (const TopicRow& row : kTopics) {
        if (row.Name == topic) {
            return row.Text();
        }
    }
    std::string names;
    for (const TopicRow& row : kTopics) {
        names += (names.empty() ? "" : ", ") + std::string(row.Name);
    }
    failUsage("no help on '" + printable(topic) + "'; the topics are the commands and " + names);
}

} // namespace netrove::cli
