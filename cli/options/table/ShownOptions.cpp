#include "cli/failures/CliFailure.h"
#include "cli/options/table/OptionGroups.h"
#include "cli/options/table/OptionValues.h"

#include <netrove/text.h>

#include <algorithm>

namespace netrove::cli {

namespace {

constexpr int kMostDebug = 2;

ColorChoice colorChoice(const std::string& text) {
    if (text == "always") {
        return ColorChoice::Always;
    }
    if (text == "never") {
        return ColorChoice::Never;
    }
    if (text != "auto") {
        failUsage("'" + printable(text) + "' is not a valid value for --color; use auto, always or never");
    }
    return ColorChoice::Auto;
}

// clang-format off
const OptionRow kOptions[] = {
    {"progress", 0, "", kTransfers, "show progress even if standard error is not a terminal",
     [](S& s, V) { s.Progress = true; }},
    {"no-progress", 0, "", kTransfers, "show no progress",
     [](S& s, V) { s.Progress = false; }},
    {"verbose", 'v', "", kSingle, "show the wire trace on standard error, with credentials as they are sent; twice: content too",
     [](S& s, V) { s.Debug = std::min(s.Debug + 1, kMostDebug); }},
    {"debug", 0, "N", kSingle, "set the trace level: 0 none, 1 heads, 2 content too",
     [](S& s, V v) { s.Debug = number<int>("debug", v, 0, kMostDebug); }},
    {"json", 0, "", kSend | kProxy | kDescribe, "print JSON; with send: one object with final URL, status, fields, times and content (up to 16 MiB, more with -o), or a failure as with --json-errors",
     [](S& s, V) { s.Json = true; }},
    {"show-password", 0, "", kProxy, "print the password instead of ***",
     [](S& s, V) { s.ShowPassword = true; }},
    {"json-errors", 0, "", kAll, "report a failure as one JSON object",
     [](S& s, V) { s.JsonErrors = true; }},
    {"color", 0, "auto|always|never", kAll, "when to use colours; with auto, NO_COLOR in the environment turns them off",
     [](S& s, V v) { s.Color = colorChoice(v); }},
    {"version", 0, "", kProgram, "print the version, features and components",
     [](S& s, V) { s.ShowVersion = true; }},
};
// clang-format on

} // namespace

std::span<const OptionRow> shownOptions() {
    return kOptions;
}

} // namespace netrove::cli
