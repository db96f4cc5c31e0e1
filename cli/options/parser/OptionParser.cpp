#include "cli/options/parser/OptionParser.h"

#include "cli/failures/CliFailure.h"
#include "cli/failures/ExitStatus.h"
#include "cli/failures/Hints.h"
#include "cli/options/FieldText.h"
#include "cli/options/UrlList.h"
#include "cli/options/pages/Help.h"
#include "cli/options/pages/Reference.h"
#include "cli/options/parser/ConfigFile.h"
#include "cli/options/table/ForeignOptions.h"
#include "cli/system/BodySource.h"
#include "vantik/Failure.h"

#include <CLI/CLI.hpp>
#include <netrove/refusedurl.h>
#include <netrove/text.h>
#include <netrove/url.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <span>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace netrove::cli {

namespace {

std::string optionNames(const OptionRow& row) {
    std::string names = row.ShortName == 0 ? "" : std::string("-") + row.ShortName;
    for (const std::string& name : longNames(row)) {
        names += (names.empty() ? "--" : ",--") + name;
    }
    return names;
}

// An option as it was typed.
struct Occurrence {
    const OptionRow* Row;
    std::string Value;
};

// The names that the words of a command line may mean, and maybe some more. Only these are made known to the parser: it
// compares each new option with all before, which takes longer than a small transfer.
class TypedNames {
public:
    TypedNames(int argc, const char* const* argv) {
        for (const std::string_view word : std::span(argv, static_cast<std::size_t>(argc))) {
            if (word.starts_with("--")) {
                Options.push_back(word.substr(0, word.find('=')));
            } else if (word.starts_with('-')) {
                Letters += word; // several flags, or one with its value
            } else {
                Others.push_back(word);
            }
        }
    }

    bool have(const CommandRow& row) const { return std::ranges::find(Others, row.Name) != Others.end(); }
    bool have(const OptionRow& row) const {
        return (row.ShortName != 0 && Letters.find(row.ShortName) != Letters.npos) ||
               std::ranges::any_of(Options, [&](std::string_view word) { return isNamed(row, word); });
    }
    bool haveUrl() const { return std::ranges::find(Options, "--url") != Options.end(); }

private:
    std::vector<std::string_view> Options; // without what follows "="
    std::vector<std::string_view> Others;
    std::string Letters;
};

// Adds one option of the table. What is typed is noted in its order, so that the last of two contradicting options
// wins.
void addOption(CLI::App& app, const OptionRow& row, std::vector<Occurrence>& typed) {
    CLI::Option* option = nullptr;
    if (row.ValueName.empty()) {
        option = app.add_flag_function(optionNames(row), [&row, &typed](std::int64_t count) {
            if (count > 0) {
                typed.push_back({&row, ""});
            }
        });
    } else {
        option = app.add_option(optionNames(row), [&row, &typed](const CLI::results_t& values) {
            for (const std::string& value : values) {
                typed.push_back({&row, value});
            }
            return true;
        });
        option->type_size(1)->expected(1)->type_name(std::string(row.ValueName));
        option->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    }
    option->trigger_on_parse();
}

void addCommand(CLI::App& app, const CommandRow& command, Settings& settings, std::vector<Occurrence>& typed,
                const TypedNames& names) {
    CLI::App* sub = app.add_subcommand(std::string(command.Name), std::string(command.Summary));
    if (!names.have(command)) {
        return;
    }
    sub->set_help_flag("-h,--help");
    if (command.Url && (command.Set & kSingle) != 0) {
        sub->add_option("URL", settings.Words, "http or https URL; get and save take several")
            ->required(!names.haveUrl())
            ->type_name("");
    } else if (command.Url) {
        sub->add_option("URL", settings.Url, "http or https URL")->required()->type_name("");
    }
    if (command.Target) {
        sub->add_option("FILE", settings.Target, "file or folder; without it the name comes from the URL")
            ->type_name("");
    }
    if (command.Manifest) {
        sub->add_option("MANIFEST", settings.Batch.Manifest, "list of transfers; '-' is standard input")
            ->required()
            ->type_name("");
    }
    if (command.Topic) {
        sub->add_option("TOPIC", settings.Topic, "what to explain; without it the topics are listed")->type_name("");
    }
    for (const OptionRow& row : optionTable()) {
        if ((row.Commands & command.Set) != 0 && names.have(row)) {
            addOption(*sub, row, typed);
        }
    }
    sub->callback([&settings, kind = command.Kind] { settings.Command = kind; });
}

const CommandRow* commandNamed(std::string_view name) {
    const auto found = std::ranges::find(commandTable(), name, &CommandRow::Name);
    return found == commandTable().end() ? nullptr : &*found;
}

// A command has its own help, everything else is a topic.
std::string helpOn(const std::string& topic) {
    if (topic.empty()) {
        return topicList(helpColumns());
    }
    if (const CommandRow* command = commandNamed(topic)) {
        return commandHelp(*command, helpColumns(), false);
    }
    return helpTopic(topic, helpColumns());
}

// What --help asks for: the word after it may say what about.
std::string helpAsked(const CLI::App& app, int argc, const char* const* argv) {
    std::string_view about;
    for (int i = 1; i + 1 < argc && about.empty(); ++i) {
        const std::string_view word = argv[i];
        about = word == "--help" || word == "-h" ? std::string_view(argv[i + 1]) : std::string_view();
    }
    if (about.starts_with('-')) {
        about = {};
    }
    const auto chosen = app.get_subcommands();
    const std::vector<std::string> topics = topicNames();
    if (!chosen.empty() && (about.empty() || about == "all" || std::ranges::find(topics, about) == topics.end())) {
        return commandHelp(*commandNamed(chosen.front()->get_name()), helpColumns(), about == "all");
    }
    return about.empty() ? programHelp(helpColumns()) : helpOn(std::string(about));
}

// Every failure is one line.
std::string firstLine(std::string text) {
    text.resize(std::min(text.find('\n'), text.size()));
    return text;
}

std::string suggestion(std::string_view word, const std::vector<std::string>& known) {
    const std::string_view nearest = nearestWord(word, known);
    return nearest.empty() ? std::string() : "; did you mean " + std::string(nearest) + "?";
}

unsigned commandSet(std::string_view name) {
    const CommandRow* command = commandNamed(name);
    return command == nullptr ? 0 : command->Set;
}

// "--name" without its value, or a letter without what follows it, which may be a password.
std::string optionName(const std::string& word) {
    return word.starts_with("--") ? word.substr(0, word.find('=')) : word.substr(0, 2);
}

// "get and send have it"; empty if no command has an option with that name.
std::string takersOf(std::string_view name) {
    std::vector<std::string_view> takers;
    for (const OptionRow& row : optionTable()) {
        for (const CommandRow& command : commandTable()) {
            if (isNamed(row, name) && (row.Commands & command.Set) != 0) {
                takers.push_back(command.Name);
            }
        }
    }
    if (takers.empty()) {
        return {};
    }
    std::string text(takers.front());
    for (std::size_t i = 1; i < takers.size(); ++i) {
        text += (i + 1 == takers.size() ? " and " : ", ") + std::string(takers[i]);
    }
    return text + (takers.size() == 1 ? " has it" : " have it");
}

// What to write instead of an option that a command does not have.
std::string alternative(std::string_view name, unsigned commands, const std::vector<std::string>& known) {
    const std::string takers = takersOf(name);
    const std::string_view instead = insteadOf(name, commands);
    if (!instead.empty() && (commands != kAll || takers.empty())) { // without a command those that have it say more
        return "; " + std::string(instead);
    }
    return takers.empty() ? suggestion(name, known) : "; " + takers;
}

bool isOption(std::string_view name, unsigned commands) {
    return std::ranges::any_of(
        optionTable(), [&](const OptionRow& row) { return (row.Commands & commands) != 0 && isNamed(row, name); });
}

// A method is not a command, but says what is wanted.
std::string suggestedCommand(const std::string& word, const std::vector<std::string>& known) {
    constexpr std::string_view methods[] = {"HEAD", "POST", "PUT", "PATCH", "DELETE", "OPTIONS"};
    if (std::ranges::find(methods, word) != std::end(methods)) {
        return "; did you mean send --method " + word + "?";
    }
    std::string lowered = word;
    std::ranges::transform(lowered, lowered.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return suggestion(lowered, known);
}

unsigned setOf(Command kind) {
    const auto found = std::ranges::find(commandTable(), kind, &CommandRow::Kind);
    return found == commandTable().end() ? unsigned{kProgram} : found->Set;
}

// The parser takes "-4" for a number and thus for an argument.
void refuseDigits(const Settings& settings) {
    for (const std::string& word : settings.Words) {
        if (word.size() == 2 && word.front() == '-' && std::isdigit(static_cast<unsigned char>(word.back())) != 0) {
            const unsigned commands = setOf(settings.Command);
            const auto command = std::ranges::find(commandTable(), settings.Command, &CommandRow::Kind);
            failUsage("unknown option '" + word + "' for " + std::string(command->Name) +
                      alternative(word, commands, {}));
        }
    }
}

// Names the first word that nothing in the table accepts.
[[noreturn]] void failOnExtras(const CLI::App& app) {
    const auto chosen = app.get_subcommands();
    const std::vector<std::string> left = app.remaining(true);
    const auto option =
        std::find_if(left.begin(), left.end(), [](const std::string& word) { return word.starts_with('-'); });
    if (option != left.end()) {
        const std::string name = optionName(*option);
        if (!chosen.empty() && isOption(name, commandSet(chosen.front()->get_name()))) {
            const std::string command = chosen.front()->get_name();
            failUsage("'" + name + "' is an option of " + command + " and comes after it: netrove " + command + " " +
                      name);
        }
        std::vector<std::string> known = {"--help"};
        for (const OptionRow& row : optionTable()) {
            if (chosen.empty() || (row.Commands & commandSet(chosen.front()->get_name())) != 0) {
                for (const std::string& name : longNames(row)) {
                    known.push_back("--" + name);
                }
            }
        }
        failUsage("unknown option '" + printable(name) + "'" +
                  (chosen.empty() ? "" : " for " + chosen.front()->get_name()) +
                  alternative(name, chosen.empty() ? kAll : commandSet(chosen.front()->get_name()), known));
    }
    if (!chosen.empty()) {
        failUsage("unexpected argument '" + printable(maskRefusedUrl(left.front())) + "' for " +
                  chosen.front()->get_name());
    }
    std::vector<std::string> known = {"--help", "--version"};
    for (const CommandRow& command : commandTable()) {
        known.emplace_back(command.Name);
    }
    const auto isUrl = [](const std::string& word) { return word.find("://") != word.npos; };
    const auto found = std::find_if_not(left.begin(), left.end(), isUrl);
    if (found == left.end()) {
        failUsage("no command; try 'netrove get " + printable(maskRefusedUrl(left.front())) + "'");
    }
    const std::string& word = *found;
    failUsage("unknown command '" + printable(maskRefusedUrl(word)) + "'" + suggestedCommand(word, known));
}

// The part of a value that is secret.
std::string_view secretPart(const SecretValue& value) {
    const std::string_view text = value.Text;
    switch (value.Kind) {
    case Secrecy::Whole:
        return text;
    case Secrecy::AfterColon:
        return text.find(':') == text.npos ? std::string_view() : text.substr(text.find(':') + 1);
    case Secrecy::BeforeAt: { // of a proxy, whose password may hold slashes as they are
        const auto start = text.find("://") == text.npos ? 0 : text.find("://") + 3;
        const auto at = text.rfind('@');
        return at == text.npos || at < start ? std::string_view() : text.substr(start, at - start);
    }
    case Secrecy::FieldValue: {
        const auto colon = text.find(':');
        if (colon == text.npos || !isSecretField(text.substr(0, colon))) {
            return {};
        }
        const auto first = text.find_first_not_of(" \t", colon + 1);
        return first == text.npos ? std::string_view() : text.substr(first);
    }
    case Secrecy::None:
        break;
    }
    return {};
}

// The file that is named must be there, the usual one need not.
void applyConfig(ParseResult& result, const std::string& usualFile) {
    const bool named = !result.Settings.ConfigFile.empty();
    const std::string file = named ? result.Settings.ConfigFile : usualFile;
    if (result.Settings.NoConfig || (!named && (file.empty() || access(file.c_str(), F_OK) != 0))) {
        return;
    }
    bool secret = false;
    for (const ConfigEntry& entry : configEntries(readWhole(file), file, setOf(result.Settings.Command))) {
        try {
            entry.Row->Apply(result.Settings, entry.Value);
        } catch (const vantik::Failure& failure) {
            if (failure.message().Key != failure::kUsage) {
                throw;
            }
            failUsage(printable(file) + ":" + std::to_string(entry.Line) + ": " + failure.message().Text);
        }
        secret = secret || !secretPart({entry.Value, entry.Row->Traits.Secret}).empty();
    }
    if (secret && isReadableByOthers(file)) {
        result.Warnings.push_back(printable(file) + " has a secret in it and other users can read it; chmod 600 helps");
    }
}

// What is typed wins over the configuration file, so it comes later; which file that is comes first.
void applyAll(ParseResult& result, const std::vector<Occurrence>& typed, const std::string& usualConfig) {
    const auto choosesFile = [](const Occurrence& occurrence) {
        return occurrence.Row->LongName == "config" || occurrence.Row->LongName == "no-config";
    };
    for (const Occurrence& occurrence : typed) {
        if (choosesFile(occurrence)) {
            occurrence.Row->Apply(result.Settings, occurrence.Value);
        }
    }
    applyConfig(result, usualConfig);
    for (const auto& [row, value] : typed) {
        if (!choosesFile({row, value})) {
            row->Apply(result.Settings, value);
        }
        if (row->Traits.Secret != Secrecy::None) {
            result.Secrets.push_back({value, row->Traits.Secret});
        }
    }
}

} // namespace

ParseResult parseCommandLine(int argc, const char* const* argv, const std::string& usualConfig) {
    ParseResult result;
    std::vector<Occurrence> typed;
    CLI::App app("", "netrove");
    app.set_help_flag("-h,--help");
    app.require_subcommand(0, 1);
    const TypedNames names(argc, argv);
    for (const OptionRow& row : optionTable()) {
        if ((row.Commands & kProgram) != 0 && names.have(row)) {
            addOption(app, row, typed);
        }
    }
    for (const CommandRow& command : commandTable()) {
        addCommand(app, command, result.Settings, typed, names);
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        result.Help = helpAsked(app, argc, argv);
        return result;
    } catch (const CLI::ExtrasError&) {
        failOnExtras(app);
    } catch (const CLI::RequiredError& error) {
        const std::string command = app.get_subcommands().front()->get_name();
        const bool url = std::string_view(error.what()).starts_with("URL");
        failUsage("no " + std::string(url ? "URL" : "list") + "; give it as in 'netrove " + command +
                  (url ? " https://example.org/'" : " list.txt'"));
    } catch (const CLI::ArgumentMismatch& error) {
        const std::string text = error.what(); // begins with the option
        failUsage(text.substr(0, text.find(':')) + " needs a value");
    } catch (const CLI::ParseError& error) {
        failUsage(firstLine(error.what()));
    }
    if (result.Settings.Command == Command::Help) {
        result.Help = helpOn(result.Settings.Topic);
        return result;
    }
    applyAll(result, typed, usualConfig);
    if (result.Settings.Command == Command::None && !result.Settings.ShowVersion) {
        failUsage("no command; try 'netrove get URL', or 'netrove --help' for all of them");
    }
    refuseDigits(result.Settings);
    const cli::Command command = result.Settings.Command;
    if (!result.Settings.ShowVersion &&
        (command == Command::Get || command == Command::Save || command == Command::Send)) {
        result.Transfers = settingsOfUrls(result.Settings);
        result.Settings = result.Transfers.front();
    } else if (!result.Settings.ShowVersion) {
        completeSettings(result.Settings);
    }
    return result;
}

bool wantsJsonErrors(int argc, const char* const* argv) {
    for (int i = 1; i < argc && std::strcmp(argv[i], "--") != 0; ++i) {
        if (std::strcmp(argv[i], "--json-errors") == 0) {
            return true;
        }
    }
    return false;
}

std::string shownCommandLine(int argc, const char* const* argv, const std::vector<SecretValue>& secrets) {
    constexpr std::string_view plain = "-._~/:=,+@%";
    std::string line = "netrove";
    for (int i = 1; i < argc; ++i) {
        std::string word = argv[i];
        for (const SecretValue& value : secrets) {
            if (const std::string_view secret = secretPart(value); !secret.empty() && word.ends_with(value.Text)) {
                const auto offset = static_cast<std::size_t>(secret.data() - value.Text.data());
                word.replace(word.size() - value.Text.size() + offset, secret.size(), "***");
                break;
            }
        }
        word = maskUserInfo(word);
        const bool bare = !word.empty() && std::all_of(word.begin(), word.end(), [&](unsigned char c) {
            return std::isalnum(c) != 0 || plain.find(static_cast<char>(c)) != plain.npos;
        });
        if (!bare) {
            for (auto at = word.find('\''); at != word.npos; at = word.find('\'', at + 4)) {
                word.replace(at, 1, "'\\''");
            }
            word = "'" + word + "'";
        }
        line += " " + word;
    }
    return line;
}

void wipeSecrets(int argc, char** argv, const std::vector<SecretValue>& secrets) {
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        // A value is an argument of its own, or follows "--name=" or a letter.
        for (const SecretValue& value : secrets) {
            if (const std::string_view secret = secretPart(value); !secret.empty() && argument.ends_with(value.Text)) {
                const auto offset = static_cast<std::size_t>(secret.data() - value.Text.data());
                std::memset(argv[i] + argument.size() - value.Text.size() + offset, 'x', secret.size());
            }
        }
        // The user name and password of a URL.
        if (const std::string_view info = userInfoIn(argument); !info.empty()) {
            std::memset(argv[i] + (info.data() - argument.data()), 'x', info.size());
        }
    }
}

} // namespace netrove::cli
