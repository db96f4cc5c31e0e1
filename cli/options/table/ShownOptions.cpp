#include "cli/options/table/OptionGroups.h"
#include "cli/options/table/OptionValues.h"

#include <algorithm>

namespace netrove::cli {

namespace {

constexpr int kMostDebug = 2;
constexpr int kMostVerbose = 2;

constexpr Choice<ColorChoice> kColors[] = {
    {"auto", ColorChoice::Auto}, {"always", ColorChoice::Always}, {"never", ColorChoice::Never}};
constexpr Choice<OutputFormat> kFormats[] = {{"text", OutputFormat::Text}, {"json", OutputFormat::Json}};
constexpr Choice<PrettyChoice> kPretty[] = {
    {"auto", PrettyChoice::Auto}, {"always", PrettyChoice::Always}, {"never", PrettyChoice::Never}};

// clang-format off
const OptionRow kShownOptions[] = {
    {"silent", 's', "", kTransfers, "show no progress and no messages, not even of failures, which the exit status still says; with -S failures are shown",
     [](S& s, V) { s.Silent = true; }, {.OtherNames = "quiet", .Common = kTransfers}},
    {"show-error", 'S', "", kTransfers, "show failures in spite of -s",
     [](S& s, V) { s.ShowErrors = true; }, {.OtherNames = "show-errors"}},
    {"progress", '#', "", kTransfers, "show progress even if standard error is not a terminal",
     [](S& s, V) { s.Progress = true; }, {.OtherNames = "progress-bar"}},
    {"no-progress", 0, "", kTransfers, "show no progress",
     [](S& s, V) { s.Progress = false; }},
    {"verbose", 'v', "", kSingle, "show on standard error what happens: the connection, its certificate, heads sent and received, proxies, redirects, retries. Credentials are masked. With --parallel each line begins with the number of its URL. Twice: all that libcurl says, with times",
     [](S& s, V) { s.Verbose = std::min(s.Verbose + 1, kMostVerbose); }, {.Common = kSingle}},
    {"trace-time", 0, "", kSingle, "put the time of day before each line of -v",
     [](S& s, V) { s.TraceTime = true; }},
    {"debug", 0, "N", kSingle, "show the class's own trace instead of -v, with credentials as they are sent: 0 none, 1 heads, 2 content too",
     [](S& s, V v) { s.Debug = number<int>("debug", v, 0, kMostDebug); }},
    {"format", 0, "text|json", kSend | kBatch | kProxy | kDescribe, "form of what is printed; json with send: one object with final URL, status, fields, times and content (up to 16 MiB, more with -o), or a failure as with --json-errors",
     [](S& s, V v) { s.Format = chosen("format", v, kFormats); }, {.Common = kSend | kProxy | kDescribe}},
    {"show-password", 0, "", kProxy, "print the password instead of ***",
     [](S& s, V) { s.ShowPassword = true; }, {.Common = kProxy}},
    {"json-errors", 0, "", kAll, "report a failure as one JSON object",
     [](S& s, V) { s.JsonErrors = true; }},
    {"color", 0, "auto|always|never", kAll, "when to use colours; with auto, NO_COLOR in the environment turns them off",
     [](S& s, V v) { s.Color = chosen("color", v, kColors); }},
    {"pretty", 0, "auto|always|never", kGet | kSend, "indent and colour JSON, and colour the head that -i shows, on standard output: on a terminal (auto), always, or never. Nothing else about the text changes; what is not JSON is shown as it came",
     [](S& s, V v) { s.Pretty = chosen("pretty", v, kPretty); }},
    {"config", 'K', "FILE", kAll, "read options from this configuration file instead of the usual one",
     [](S& s, V v) { s.ConfigFile = nonEmpty("config", v); }},
    {"no-config", 0, "", kAll, "read no configuration file",
     [](S& s, V) { s.NoConfig = true; }},
    {"version", 0, "", kProgram, "print the version, features and components",
     [](S& s, V) { s.ShowVersion = true; }, {.Common = kProgram}},
};
// clang-format on

} // namespace

std::span<const OptionRow> shownOptions() {
    return kShownOptions;
}

} // namespace netrove::cli
