// Completions for the shells.
#include "cli/options/pages/Reference.h"
#include "cli/options/table/OptionTable.h"
#include "cli/options/table/OptionValues.h"

#include <algorithm>
#include <string>
#include <vector>

namespace netrove::cli {

namespace {

constexpr std::string_view kOrigin = "Change the tables of the command line instead.\n";

constexpr std::string_view kUrlSchemes = "http:// https://";
constexpr std::string_view kProxySchemes[] = {"http://",    "https://",  "socks4://",
                                              "socks4a://", "socks5://", "socks5h://"};

// How the value of an option is completed, which the name of the value says.
struct Values {
    bool Files = false;
    bool FilesAfterAt = false; // "@FILE"
    bool Folders = false;
    bool List = false; // several of the words, separated by commas
    std::vector<std::string> Words;
};

Values valuesOf(const OptionRow& row) {
    Values values;
    for (std::size_t start = 0; start < row.ValueName.size();) {
        const auto end = std::min(row.ValueName.find('|', start), row.ValueName.size());
        const std::string_view word = row.ValueName.substr(start, end - start);
        start = end + 1;
        if (word == "FILE") {
            values.Files = true;
        } else if (word == "@FILE") {
            values.FilesAfterAt = true;
        } else if (word == "FOLDER" || word == "DIR") {
            values.Folders = true;
        } else if (word == "LIST") {
            values.List = true;
            values.Words.assign(knownSchemes().begin(), knownSchemes().end());
        } else if (word == "URL") {
            values.Words = {"http://", "https://"};
        } else if (word == "HOST:PORT") {
            values.Words.insert(values.Words.end(), std::begin(kProxySchemes), std::end(kProxySchemes));
        } else if (std::ranges::none_of(word, [](char c) { return c >= 'A' && c <= 'Z'; })) { // not a placeholder
            values.Words.emplace_back(word);
        }
    }
    return values;
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

std::vector<std::string> optionWords(unsigned commands) {
    std::vector<std::string> words;
    for (const OptionRow& row : optionTable()) {
        if ((row.Commands & commands) != 0) {
            for (const std::string& name : longNames(row)) {
                words.push_back("--" + name);
            }
            if (row.ShortName != 0) {
                words.push_back(std::string("-") + row.ShortName);
            }
        }
    }
    words.emplace_back("--help");
    words.emplace_back("-h");
    return words;
}

std::vector<std::string> commandWords() {
    std::vector<std::string> words;
    for (const CommandRow& command : commandTable()) {
        words.emplace_back(command.Name);
    }
    return words;
}

// What can follow a command that takes a topic.
std::vector<std::string> helpWords() {
    std::vector<std::string> words = commandWords();
    const std::vector<std::string> topics = topicNames();
    words.insert(words.end(), topics.begin(), topics.end());
    return words;
}

// Text in single quotes for a shell, which must be closed and opened again around a quote.
std::string shellQuoted(std::string_view text) {
    std::string result = "'";
    for (const char c : text) {
        if (c == '\'') {
            result += "'\\''";
        } else {
            result += c;
        }
    }
    return result + "'";
}

// Unescaped brackets and colons would end a description in zsh.
std::string zshText(std::string_view text) {
    std::string result;
    for (const char c : text) {
        if (c == '[' || c == ']' || c == ':' || c == '\\') {
            result += '\\';
        }
        result += c;
    }
    return result;
}

std::string zshValue(const OptionRow& row) {
    if (row.ValueName.empty()) {
        return "";
    }
    const Values values = valuesOf(row);
    const std::string what = ":" + zshText(row.ValueName) + ":";
    const std::string words = zshText(joined(values.Words));
    if (values.Files) {
        return what + "_files";
    }
    if (values.Folders) {
        return what + "_files -/";
    }
    if (values.FilesAfterAt) {
        return what + "{compset -P @ && _files}";
    }
    if (values.List) {
        return what + "_values -s , scheme " + words;
    }
    return values.Words.empty() ? what : what + "(" + words + ")";
}

std::string zshOptions(unsigned commands) {
    std::string text;
    for (const OptionRow& row : optionTable()) {
        if ((row.Commands & commands) == 0) {
            continue;
        }
        const std::string description = "[" + zshText(row.Help) + "]" + zshValue(row);
        if (row.ShortName != 0) {
            text += "        " + shellQuoted("*-" + std::string(1, row.ShortName) + description) + "\n";
        }
        for (const std::string& name : longNames(row)) {
            text += "        " + shellQuoted("*--" + name + (row.ValueName.empty() ? "" : "=") + description) + "\n";
        }
    }
    return text + "        '(- *)'{-h,--help}'[print help]'\n";
}

std::string zshArguments(const CommandRow& command) {
    if (command.Topic) {
        return "'1:topic:(" + joined(helpWords()) + ")'";
    }
    if (command.Manifest) {
        return "'1:manifest:_files'";
    }
    if (!command.Url) {
        return "'*:argument:_default'";
    }
    return command.Target ? "'1:URL:_urls' '*:file or folder:_files'" : "'*:URL:_urls'";
}

// What follows the condition in a line of fish.
std::string fishOption(const OptionRow& row) {
    std::string text;
    for (const std::string& name : longNames(row)) {
        text += (text.empty() ? "-l " : " -l ") + name;
    }
    if (row.ShortName != 0) {
        text += std::string(" -s ") + row.ShortName;
    }
    const Values values = valuesOf(row);
    if (!row.ValueName.empty()) {
        text += values.Files || values.FilesAfterAt ? " -r -F" : " -x";
    }
    if (values.Folders) {
        text += " -a '(__fish_complete_directories)'";
    }
    if (values.FilesAfterAt) {
        text += " -a '(__netrove_file_after_at)'";
    }
    if (values.List) {
        text += " -a '(__fish_append , " + joined(values.Words) + ")'";
    } else if (!values.Words.empty()) {
        text += " -a " + shellQuoted(joined(values.Words));
    }
    return text + " -d " + shellQuoted(row.Help) + "\n";
}

} // namespace

std::string bashCompletion() {
    std::string text = "# Completion for bash, made by 'netrove help bash'. " + std::string(kOrigin);
    text += "_netrove_colons() { # replies go in place of what follows the last colon\n"
            "    [[ $COMP_WORDBREAKS != *:* || $word != *:* ]] || COMPREPLY=(\"${COMPREPLY[@]#\"${word%:*}:\"}\")\n"
            "    [[ ${COMPREPLY[*]} != *// ]] || compopt -o nospace\n"
            "}\n"
            "_netrove() {\n"
            "    # The words as the program gets them; bash breaks them at '=', ':' and '@' too.\n"
            "    local line=${COMP_LINE:0:COMP_POINT} word before command='' url='' each\n"
            "    local -a words\n"
            "    read -r -a words <<< \"$line\"\n"
            "    [[ $line != *[[:space:]] ]] || words+=('')\n"
            "    word=${words[-1]}\n"
            "    unset 'words[-1]'\n"
            "    before=${words[-1]}\n"
            "    if [[ $word == --*=* ]]; then\n"
            "        before=${word%%=*}\n"
            "        word=${word#*=}\n"
            "    fi\n"
            "    for each in \"${words[@]:1}\"; do\n"
            "        case $each in\n"
            "        " +
            [] {
                std::string pattern;
                for (const std::string& name : commandWords()) {
                    pattern += (pattern.empty() ? "" : " | ") + name;
                }
                return pattern;
            }() +
            ")\n"
            "            command=$each\n"
            "            break\n"
            "            ;;\n"
            "        esac\n"
            "    done\n"
            "    [[ \" ${words[*]}\" != *//* ]] || url=yes\n"
            "    COMPREPLY=()\n"
            "    case $before in\n";
    for (const OptionRow& row : optionTable()) {
        const Values values = valuesOf(row);
        if (row.ValueName.empty()) {
            continue;
        }
        text += "    ";
        for (const std::string& name : longNames(row)) {
            text += (name == row.LongName ? "--" : " | --") + name;
        }
        if (row.ShortName != 0) {
            text += std::string(" | -") + row.ShortName;
        }
        text += ")\n";
        // Nothing offered means names of files.
        if (values.FilesAfterAt) {
            text += "        if [[ $word == *@* ]]; then\n"
                    "            mapfile -t COMPREPLY < <(compgen -P @ -f -- \"${word#*@}\")\n"
                    "            compopt -o filenames\n        fi\n";
        } else if (values.Folders) {
            text += "        mapfile -t COMPREPLY < <(compgen -d -- \"$word\")\n        compopt -o filenames\n";
        } else if (values.List) {
            text += "        mapfile -t COMPREPLY < <(compgen -P \"${word%\"${word##*,}\"}\" -W " +
                    shellQuoted(joined(values.Words)) + " -- \"${word##*,}\")\n";
        } else if (!values.Words.empty() && !values.Files) {
            text += "        mapfile -t COMPREPLY < <(compgen -W " + shellQuoted(joined(values.Words)) +
                    " -- \"$word\")\n        _netrove_colons\n";
        }
        text += "        return\n        ;;\n";
    }
    text += "    esac\n    case $command in\n";
    for (const CommandRow& command : commandTable()) {
        text += "    " + std::string(command.Name) + ")\n        [[ $word == -* ]] &&\n" +
                "            mapfile -t COMPREPLY < <(compgen -W " + shellQuoted(joined(optionWords(command.Set))) +
                " -- \"$word\")\n";
        if (command.Topic) {
            text += "        [[ $word == -* ]] ||\n            mapfile -t COMPREPLY < <(compgen -W " +
                    shellQuoted(joined(helpWords())) + " -- \"$word\")\n";
        }
        if (command.Url) {
            text += std::string("        if [[ $word != -*") + (command.Target ? " && -z $url" : "") +
                    " ]]; then\n            mapfile -t COMPREPLY < <(compgen -W " + shellQuoted(kUrlSchemes) +
                    " -- \"$word\")\n            _netrove_colons\n        fi\n";
        }
        text += "        ;;\n";
    }
    std::vector<std::string> first = commandWords();
    for (const std::string& word : optionWords(kProgram)) {
        first.push_back(word);
    }
    text += "    *)\n        mapfile -t COMPREPLY < <(compgen -W " + shellQuoted(joined(first)) +
            " -- \"$word\")\n        ;;\n    esac\n}\ncomplete -o default -F _netrove netrove\n";
    return text;
}

std::string zshCompletion() {
    std::string text = "#compdef netrove\n# Completion for zsh, made by 'netrove help zsh'. " + std::string(kOrigin);
    text += "_netrove() {\n    local context state line\n    local -a options=(\n" + zshOptions(kProgram) +
            "    )\n    _arguments -C $options \\\n"
            "        '1:command:->command' \\\n        '*::arguments:->arguments'\n"
            "    case $state in\n    command)\n        local -a commands=(\n";
    for (const CommandRow& command : commandTable()) {
        text += "            " + shellQuoted(std::string(command.Name) + ":" + std::string(command.Summary)) + "\n";
    }
    text += "        )\n        _describe command commands\n        ;;\n    arguments)\n        case $words[1] in\n";
    for (const CommandRow& command : commandTable()) {
        const std::string rest = zshArguments(command);
        text += "        " + std::string(command.Name) + ")\n            options=(\n" + zshOptions(command.Set) +
                "            )\n            _arguments -s $options " + rest + "\n" + "            ;;\n";
    }
    return text + "        esac\n        ;;\n    esac\n}\n_netrove \"$@\"\n";
}

std::string fishCompletion() {
    std::string text = "# Completion for fish, made by 'netrove help fish'. " + std::string(kOrigin);
    text += "function __netrove_file_after_at\n"
            "    set -l word (commandline -ct | string replace -r '^--[^=]*=' '')\n"
            "    string match -q '@*' -- $word\n"
            "    and __fish_complete_path (string sub -s 2 -- $word) | string replace -r '^' '@'\n"
            "end\n";
    const std::string before = "not __fish_seen_subcommand_from " + joined(commandWords());
    for (const OptionRow& row : optionTable()) {
        if ((row.Commands & kProgram) != 0) {
            text += "complete -c netrove -f -n '" + before + "' " + fishOption(row);
        }
    }
    for (const CommandRow& command : commandTable()) {
        text += "complete -c netrove -f -n '" + before + "' -a " + std::string(command.Name) + " -d " +
                shellQuoted(command.Summary) + "\n";
    }
    for (const OptionRow& row : optionTable()) {
        std::vector<std::string> takers;
        for (const CommandRow& command : commandTable()) {
            if ((row.Commands & command.Set) != 0) {
                takers.emplace_back(command.Name);
            }
        }
        if (!takers.empty()) {
            text += "complete -c netrove -n '__fish_seen_subcommand_from " + joined(takers) + "' " + fishOption(row);
        }
    }
    for (const CommandRow& command : commandTable()) {
        if (command.Url) {
            text += "complete -c netrove" + std::string(command.Target ? "" : " -f") +
                    " -n '__fish_seen_subcommand_from " + std::string(command.Name) + "' -a " +
                    shellQuoted(kUrlSchemes) + "\n";
        }
        if (command.Topic) {
            text += "complete -c netrove -f -n '__fish_seen_subcommand_from " + std::string(command.Name) + "' -a " +
                    shellQuoted(joined(helpWords())) + "\n";
        }
    }
    return text;
}

} // namespace netrove::cli
