// The manual pages, in the macros of man(7).
#include "cli/failures/ExitStatus.h"
#include "cli/options/pages/Layout.h"
#include "cli/options/pages/Reference.h"
#include "cli/options/table/OptionTable.h"

namespace netrove::cli {

namespace {

// Characters that would be typeset as something else, which cannot be copied, and how they are written.
std::string_view escaped(char c) {
    switch (c) {
    case '\\':
        return "\\e";
    case '-':
        return "\\-";
    case '\'':
        return "\\(aq";
    case '~':
        return "\\(ti";
    case '^':
        return "\\(ha";
    case '`':
        return "\\(ga";
    default:
        return {};
    }
}

std::string roff(std::string_view text) {
    std::string result;
    for (const char c : text) {
        const std::string_view other = escaped(c);
        result += other.empty() ? std::string(1, c) : std::string(other);
    }
    if (result.starts_with('.')) { // would begin a request
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

std::string synopsisOf(const CommandRow& command) {
    std::string text = bold("netrove " + std::string(command.Name)) + " [" + italic("options") + "]";
    for (const auto& [taken, name] : {std::pair{command.Url, "URL"}, std::pair{command.Topic, "[TOPIC]"},
                                      std::pair{command.Target, "[FILE]"}, std::pair{command.Manifest, "MANIFEST"}}) {
        if (taken) {
            text += " " + italic(name);
        }
    }
    return text + "\n";
}

std::string synopsis() {
    std::string text;
    for (const CommandRow& command : commandTable()) {
        text += (text.empty() ? "" : ".br\n") + synopsisOf(command);
    }
    return text + ".br\n" + bold("netrove --version") + "\n";
}

std::string paragraphs(std::string_view text) {
    return ".PP\n" + roff(text) + "\n";
}

struct TextRow {
    unsigned Commands;
    std::string_view Text;
};

// clang-format off
constexpr TextRow kDescriptions[] = {
    {kGet, "Fetches a URL and writes its content to standard output, or with --output into a file, which appears when it is complete. Redirects are followed. Content that a terminal would obey is refused there."},
    {kSave, "Fetches a URL into a file, which appears under its name when it is complete; a transfer that fails leaves nothing under that name. FILE may be a folder. Without it the name comes from the URL. A file that exists is kept unless --force is given."},
    {kSend, "Makes any request: with a method, fields and content. What the server says is shown, whatever its status, unless --fail is given. Redirects are not followed unless --location is given."},
    {kBatch, "Does the transfers of a list, several at a time. A journal records what is done, so that a run that was stopped goes on when it is started again. Each target appears when it is complete."},
    {kProxy, "Shows which proxy applies to a URL, and why. Nothing is sent to the server."},
    {kDescribe, "Shows the properties and methods of the class that the module registers."},
    {kDemo, "Starts a small server of its own on the loopback interface and shows, step by step, what the module does against it."},
    {kHelp, "Prints a topic, the help of a command, a manual page or a completion for a shell. Without a topic the topics are listed."},
};

struct NamedRow {
    std::string_view Name;
    std::string_view Text;
    unsigned Commands;
};

constexpr NamedRow kFiles[] = {
    {"$XDG_CONFIG_HOME/netrove/config, ~/.config/netrove/config", "the configuration file", kAll},
    {"MANIFEST.journal", "what is done, beside the manifest unless --journal names another place; a shard adds its number", kBatch},
    {"/etc/ssl/certs", "certificates of the system, against which servers are verified", kTransfers},
};

constexpr NamedRow kManifestKeys[] = {
    {"url", "required; http or https", kBatch},
    {"target", "the file. null: the content is read and discarded. Missing: the name comes from the URL", kBatch},
    {"method", "default: GET, or POST with a body", kBatch},
    {"fields", "header fields: an object of names and values, with an array for several fields with one name, or an array of texts as -H takes them", kBatch},
    {"body", "text, sent as a form unless the fields have a Content-Type; or an object or array, sent as JSON", kBatch},
    {"body_file", "a file to send", kBatch},
    {"sha256", "64 hexadecimal digits: content with another digest is a failure and is not kept", kBatch},
    {"id", "text or number that names the transfer in results and journal; default: a digest of the line", kBatch},
};
// clang-format on

std::string manifestFormat() {
    std::string text = section("MANIFEST");
    text += "A text line is a URL and, after blanks or a tab, the file for its content; the rest of the line is that\n"
            "name, without blanks at its end. Without one the name comes from the URL; where it ends with a slash or is a\n"
            "folder, the file gets that name in it. Empty lines and lines that begin with # are skipped.\n";
    text += ".PP\n.nf\n" + roff("# URL                            target") + "\n" +
            roff("https://example.org/data/a.csv   data/a.csv") + "\n" + roff("https://example.org/data/b.csv") +
            "\n.fi\n";
    text += paragraphs("A line that begins with { is a JSON object with these keys.");
    for (const NamedRow& row : kManifestKeys) {
        text += tagged(bold(row.Name), row.Text);
    }
    text += ".PP\n.nf\n" + roff(R"({"url": "https://example.org/items", "method": "PUT",)") + "\n" +
            roff(R"( "body": {"name": "x"}, "target": "answers/1.json"})") + "\n.fi\n";
    return text +
           paragraphs("In the file each object is one line. The whole manifest is checked before anything runs.");
}

std::string configFormat() {
    std::string text = section("CONFIGURATION FILE");
    text += "Options by their long names, one to a line; a line that begins with # is a comment. Those before the\n"
            "first section are for every command that has them, those after a command's name in brackets for that\n"
            "command. The command line wins.\n";
    text += ".PP\n.nf\n";
    for (const char* line : {"connect-timeout = 5s", "header = X-Team: core", "location", "[batch]", "jobs = 8"}) {
        text += roff(line) + "\n";
    }
    return text + ".fi\n";
}

std::string titleLine(const std::string& name) {
    std::string upper;
    for (const char c : name) {
        upper += c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    }
    return ".\\\" Made by 'netrove help man'. Change the tables of the command line instead.\n"
           ".TH " +
           roff(upper) + " 1 \"\" \"netrove " NETROVE_VERSION "\" \"User Commands\"\n";
}

std::string commands() {
    std::string text;
    for (const CommandRow& command : commandTable()) {
        text += tagged(bold(command.Name), command.Summary);
    }
    return text;
}

std::string options(unsigned commands) {
    std::string text;
    std::string_view group;
    for (const OptionRow& row : optionTable()) {
        if ((row.Commands & commands) == 0) {
            continue;
        }
        if (row.Group != group) {
            group = row.Group;
            text += ".SS " + std::string(group) + "\n";
        }
        text += tagged(optionTag(row), meaningOf(row));
    }
    return text;
}

// What the pages end with.
std::string commonSections(unsigned commands, const std::string& self) {
    std::string text = section("EXIT STATUS");
    for (const ExitMeaning& meaning : exitMeanings()) {
        text += tagged(bold(std::to_string(meaning.Status)), meaning.Meaning);
    }
    text += section("ENVIRONMENT");
    for (const EnvironmentRow& row : environmentTable()) {
        text += tagged(bold(row.Name), row.Meaning);
    }
    text += section("FILES");
    for (const NamedRow& row : kFiles) {
        if ((row.Commands & commands) != 0) {
            text += tagged(bold(row.Name), row.Text);
        }
    }
    text += section("EXAMPLES");
    for (const ExampleRow& row : exampleTable()) {
        if ((row.Commands & commands) != 0) {
            text += tagged(roff(row.Line), row.Meaning);
        }
    }
    text += section("SEE ALSO");
    std::string pages = self == "netrove" ? "" : bold("netrove") + "(1)";
    for (const CommandRow& command : commandTable()) {
        if (const std::string name = "netrove-" + std::string(command.Name); name != self) {
            pages += (pages.empty() ? "" : ",\n") + bold(name) + "(1)";
        }
    }
    return text + pages + "\n";
}

} // namespace

std::string manPage() {
    std::string text = titleLine("netrove");
    text += section("NAME") + "netrove \\- HTTP client on the netrove module\n";
    text += section("SYNOPSIS") + synopsis();
    text += section("DESCRIPTION") +
            "netrove makes HTTP requests. Content goes to standard output or to a file, everything else to standard\n"
            "error. A file appears under its name when it is complete. Servers are verified against the certificates\n"
            "of the system unless told otherwise.\n";
    text += section("COMMANDS") + commands();
    text += section("OPTIONS") +
            "Each command takes those that make sense for it; \\fBnetrove\\fR \\fICOMMAND\\fR "
            "\\fB\\-\\-help all\\fR lists them.\n" +
            options(kAll);
    return text + configFormat() + commonSections(kAll, "netrove");
}

std::string manPage(const CommandRow& command) {
    const std::string name = "netrove-" + std::string(command.Name);
    std::string text = titleLine(name);
    text += section("NAME") + roff(name) + " \\- " + roff(command.Summary) + "\n";
    text += section("SYNOPSIS") + synopsisOf(command);
    text += section("DESCRIPTION");
    for (const TextRow& row : kDescriptions) {
        text += row.Commands == command.Set ? roff(row.Text) + "\n" : "";
    }
    text += section("OPTIONS") + "Those of the configuration file apply too; see \\fBnetrove\\fR(1).\n" +
            options(command.Set);
    if (command.Manifest) {
        text += manifestFormat();
    }
    return text + commonSections(command.Set, name);
}

} // namespace netrove::cli
