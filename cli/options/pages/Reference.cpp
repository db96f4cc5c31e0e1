#include "cli/options/pages/Reference.h"

#include "cli/failures/CliFailure.h"
#include "cli/failures/ExitStatus.h"
#include "cli/options/pages/Layout.h"
#include "cli/options/table/OptionTable.h"

#include <netrove/text.h>

#include <algorithm>
#include <vector>

namespace netrove::cli {

namespace {

// clang-format off
constexpr EnvironmentRow kEnvironment[] = {
    {"NETROVE_PASSWORD", "password of the user given with -u"},
    {"NETROVE_BEARER", "token of --bearer @env"},
    {"NETROVE_PROXY_PASSWORD", "password of the user given with --proxy-user"},
    {"NETROVE_SHARDS", "number of parts of a batch run under GNU parallel; PARALLEL_SEQ says which part"},
    {"XDG_CONFIG_HOME", "folder of netrove/config, the configuration file; ~/.config if not set"},
    {"http_proxy, https_proxy, all_proxy", "proxy as [SCHEME://]HOST:PORT, if --proxy is auto; http_proxy applies to https too unless one of the others is set. HTTP_PROXY in capitals is never used"},
    {"no_proxy", "hosts reached without a proxy, separated by commas: NAME is that host and those below it, .NAME only those below it, * every host"},
    {"NO_COLOR", "if set and not empty, no colours unless --color is always"},
    {"LC_ALL, LC_MESSAGES, LANG", "language of the messages"},
    {"VANTIK_MESSAGES_PATH", "additional folder of message files"},
    {"VANTIK_MODULE_PATH", "folder of the module, if it is not in its usual place"},
};

constexpr ExampleRow kExamples[] = {
    {"netrove get https://example.org/", "write a page to standard output", kGet},
    {"netrove save https://example.org/data.zip", "save a file under its own name, complete or not at all", kSave},
    {"netrove send -d name=value https://example.org/form", "send a form", kSend},
    {"netrove send -X PUT -T data.bin https://example.org/data.bin", "upload a file of any size", kSend},
    {"netrove send -i -X DELETE https://example.org/data.bin", "use any method, and show the head of the response", kSend},
    {"netrove send --format json https://example.org/items", "status, fields, times and content as one object", kSend},
    {"netrove get -u alice https://example.org/private", "log in; the password is asked for", kGet},
    {"netrove get -fsS https://example.org/version", "in a script: nothing but the content, or the reason of a failure", kGet},
    {"netrove save https://example.org/data.zip downloads/", "save it in a folder", kSave},
    {"netrove save --max-time 10m https://example.org/data.zip new.zip", "save it under another name, and give up after ten minutes", kSave},
    {"netrove batch list.txt --retry 3", "fetch every URL of a list, four at a time; run it again to resume", kBatch},
    {"netrove batch list.txt --dry-run", "check the list and show what would be done", kBatch},
    {"netrove batch list.txt --shard 2/8", "do the second of eight parts", kBatch},
    {"netrove proxy https://example.org/", "see which proxy applies", kProxy},
    {"netrove describe --format json", "the class for programs to read", kDescribe},
    {"netrove demo", "a tour without a network", kDemo},
    {"netrove help exit", "exit statuses", kHelp},
};
// clang-format on

struct TopicRow {
    std::string_view Name;
    std::string_view Summary;
    std::string (*Text)(std::size_t columns);
};

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
    return names.empty() ? "without a command" : all ? "all commands" : names;
}

std::string groupText(std::string_view group, std::size_t columns) {
    std::string text = std::string(group) + "\n\n";
    for (const OptionRow& row : optionTable()) {
        if (row.Group == group) {
            text += entry(usageOf(row), meaningOf(row) + " (" + commandsOf(row) + ")", columns);
        }
    }
    return text;
}

std::string exitText(std::size_t columns) {
    return "Exit status\n\n" + exitLines(0, columns);
}

std::string environmentText(std::size_t columns) {
    std::string text = "Environment\n\n";
    for (const EnvironmentRow& row : kEnvironment) {
        text += entry(row.Name, row.Meaning, columns, 24);
    }
    return text;
}

std::string exampleText(std::size_t columns) {
    std::string text = "Examples\n\n";
    for (const ExampleRow& row : kExamples) {
        text +=
            "  " + commandLines(row.Line, columns - 2, 10) + "\n      " + wrapped(row.Meaning, columns - 6, 6) + "\n";
    }
    return text;
}

std::string allText(std::size_t columns) {
    std::string text;
    std::string_view group;
    for (const OptionRow& row : optionTable()) {
        if (row.Group != group) {
            group = row.Group;
            text += groupText(group, columns) + "\n";
        }
    }
    return text + exitText(columns) + "\n" + environmentText(columns) + "\n" + exampleText(columns);
}

constexpr TopicRow kTopics[] = {
    {"request", "what is sent", [](std::size_t columns) { return groupText("Request", columns); }},
    {"content", "bodies of requests", [](std::size_t columns) { return groupText("Content", columns); }},
    {"response", "what happens to the response", [](std::size_t columns) { return groupText("Response", columns); }},
    {"files", "saved files: resume, names, checks", [](std::size_t columns) { return groupText("Files", columns); }},
    {"several", "several URLs in one call", [](std::size_t columns) { return groupText("Several URLs", columns); }},
    {"transfers", "many transfers: jobs, shards, journal",
     [](std::size_t columns) { return groupText("Many transfers", columns); }},
    {"retries", "further attempts", [](std::size_t columns) { return groupText("Retries", columns); }},
    {"credentials", "users, passwords, schemes", [](std::size_t columns) { return groupText("Credentials", columns); }},
    {"limits", "proxy and timeouts", [](std::size_t columns) { return groupText("Proxy and limits", columns); }},
    {"tls", "certificates", [](std::size_t columns) { return groupText("TLS", columns); }},
    {"output", "what is shown", [](std::size_t columns) { return groupText("What is shown", columns); }},
    {"exit", "exit statuses", exitText},
    {"environment", "environment variables", environmentText},
    {"examples", "command lines to start from", exampleText},
    {"all", "all of these", allText},
    {"man", "the manual page, as roff; man-get, man-save and so on are those of the commands",
     [](std::size_t) { return manPage(); }},
    {"bash", "completion for bash", [](std::size_t) { return bashCompletion(); }},
    {"zsh", "completion for zsh", [](std::size_t) { return zshCompletion(); }},
    {"fish", "completion for fish", [](std::size_t) { return fishCompletion(); }},
};

} // namespace

std::string exitLines(std::size_t indent, std::size_t columns) {
    constexpr std::size_t numberWidth = 5;
    const std::size_t beside = indent + numberWidth + 2;
    std::string text;
    for (const ExitMeaning& meaning : exitMeanings()) {
        const std::string number = std::to_string(meaning.Status);
        text += std::string(indent + numberWidth - number.size(), ' ') + number + "  " +
                wrapped(meaning.Meaning, columns - beside, beside) + "\n";
    }
    return text;
}

std::span<const EnvironmentRow> environmentTable() {
    return kEnvironment;
}

std::span<const ExampleRow> exampleTable() {
    return kExamples;
}

std::string topicList(std::size_t columns) {
    std::string text =
        paragraph("Topics of 'netrove help TOPIC'; 'netrove COMMAND --help' describes a command.", columns) + "\n";
    for (const TopicRow& row : kTopics) {
        text += entry(row.Name, row.Summary, columns, 14);
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

std::string helpTopic(std::string_view topic, std::size_t columns) {
    for (const TopicRow& row : kTopics) {
        if (row.Name == topic) {
            return row.Text(columns);
        }
    }
    for (const CommandRow& command : commandTable()) {
        if (topic == "man-" + std::string(command.Name)) {
            return manPage(command);
        }
    }
    std::string names;
    for (const TopicRow& row : kTopics) {
        names += (names.empty() ? "" : ", ") + std::string(row.Name);
    }
    failUsage("no help on '" + printable(topic) + "'; the topics are the commands and " + names);
}

} // namespace netrove::cli
