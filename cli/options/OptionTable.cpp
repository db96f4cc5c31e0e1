#include "cli/options/OptionTable.h"

#include "cli/failures/CliFailure.h"
#include "cli/options/FieldText.h"
#include "cli/options/ProxyChoice.h"
#include "cli/system/BodySource.h"

#include <netrove/text.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>
#include <limits>
#include <optional>
#include <type_traits>

namespace netrove::cli {

namespace {

constexpr double kInfinite = std::numeric_limits<double>::infinity();
constexpr double kLongestMs = 2147483647.0; // what the class can hold
constexpr double kLongestSeconds = 1e8;     // fits a count of nanoseconds
constexpr int kMostJobs = 64;
constexpr int kMostDebug = 2;
constexpr std::uint64_t kLargestBuffer = std::uint64_t{64} << 20;

// Numbers are read and shown in the same way in every locale.
template <class Number>
std::optional<Number> parsed(std::string_view text) {
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

[[noreturn]] void failValue(const char* option, const std::string& text, const std::string& wanted) {
    failUsage("'" + printable(text) + "' is not a valid value for --" + option + "; it takes " + wanted);
}

template <class Number>
std::string shown(Number value) {
    if constexpr (std::is_integral_v<Number>) {
        return std::to_string(value);
    } else {
        std::array<char, 64> buffer{};
        const auto written =
            std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, std::chars_format::fixed);
        return {buffer.data(), written.ptr};
    }
}

template <class Number>
std::string rangeText(Number least, Number most) {
    return std::string(std::is_integral_v<Number> ? "a whole number" : "a number") + " from " + shown(least) + " to " +
           shown(most);
}

template <class Number>
Number number(const char* option, const std::string& text, Number least, Number most) {
    const auto value = parsed<Number>(text);
    if (!value || !(*value >= least && *value <= most)) {
        failValue(option, text, rangeText(least, most));
    }
    return *value;
}

// Milliseconds for the class; 0 lifts the limit.
double limitMs(const char* option, const std::string& text) {
    const double value = number<double>(option, text, 0.0, kLongestMs);
    return value == 0 ? kInfinite : value;
}

// Bytes, with k or M for powers of 1024.
std::uint64_t byteSize(const char* option, const std::string& text) {
    std::string_view digits = text;
    std::uint64_t factor = 1;
    if (text.ends_with('k') || text.ends_with('K')) {
        factor = std::uint64_t{1} << 10;
    } else if (text.ends_with('M') || text.ends_with('m')) {
        factor = std::uint64_t{1} << 20;
    }
    if (factor != 1) {
        digits.remove_suffix(1);
    }
    const auto value = parsed<std::uint64_t>(digits);
    if (!value || *value == 0 || *value > kLargestBuffer / factor) {
        failValue(option, text,
                  "a whole number from 1 to " + std::to_string(kLargestBuffer >> 20) + "M, which k or M may follow");
    }
    return *value * factor;
}

// The members of the enumeration; users type them in lower case.
constexpr std::string_view kSchemes[] = {"Basic", "Digest", "NTLM", "Negotiate"};
constexpr std::string_view kTypedSchemes[] = {"basic", "digest", "ntlm", "negotiate"};
static_assert(std::size(kSchemes) == std::size(kTypedSchemes));

std::vector<std::string> schemes(const char* option, const std::string& text) {
    std::vector<std::string> result;
    for (std::size_t start = 0; start <= text.size();) {
        const auto comma = std::min(text.find(',', start), text.size());
        const std::string_view word = std::string_view(text).substr(start, comma - start);
        const auto* known = std::find_if(std::begin(kSchemes), std::end(kSchemes),
                                         [&](std::string_view name) { return equalsIgnoringCase(name, word); });
        if (known == std::end(kSchemes)) {
            failUsage("'" + printable(word) + "' is not a valid scheme for --" + option +
                      "; use basic, digest, ntlm or negotiate");
        }
        result.emplace_back(*known);
        start = comma + 1;
    }
    return result;
}

std::string nonEmpty(const char* option, const std::string& text) {
    if (text.empty()) {
        failUsage(std::string("--") + option + " needs a non-empty value");
    }
    return text;
}

// "user" or "user:password".
void takeUser(std::optional<std::string>& user, std::optional<std::string>& password, const std::string& text) {
    const auto colon = text.find(':');
    user = text.substr(0, colon);
    checkUserName(*user);
    if (colon != text.npos) {
        password = text.substr(colon + 1);
    }
}

void takeProxy(Settings& settings, const std::string& text) {
    if (text != "auto" && text != "none") {
        checkProxy(text); // refuses now what could not be used later
    }
    settings.Proxy = text.empty() ? "none" : text;
}

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

// What "@FILE" names.
std::string fileText(Settings& settings, const std::string& text) {
    settings.InputReaders += text == "@-" ? 1 : 0;
    return readWhole(text.substr(1));
}

void addBody(Settings& settings, const std::string& text) {
    const std::string part = text.starts_with('@') ? fileText(settings, text) : text;
    settings.BodyText = settings.BodyText ? *settings.BodyText + "&" + part : part;
}

// No field name begins with '@'.
void addFields(Settings& settings, const std::string& text) {
    if (!text.starts_with('@')) {
        settings.Fields.push_back(parseField(text));
        return;
    }
    const std::vector<Field> fields = parseFieldLines(fileText(settings, text), text.substr(1));
    settings.Fields.insert(settings.Fields.end(), fields.begin(), fields.end());
}

using S = Settings;
using V = const std::string&;

constexpr const char* kRequestGroup = "Request";
constexpr const char* kResponseGroup = "Response";
constexpr const char* kBatchGroup = "Many transfers";
constexpr const char* kLoginGroup = "Credentials";
constexpr const char* kNetGroup = "Proxy and limits";
constexpr const char* kTlsGroup = "TLS";
constexpr const char* kShowGroup = "What is shown";

// clang-format off
const OptionRow kOptions[] = {
    {"method", 'X', "M", kRequestGroup, kSend, "request method (default: GET, with a body POST, with a streamed one PUT)",
     [](S& s, V v) { checkMethod(v); s.Method = v; }},
    {"field", 'H', "'NAME: VALUE'|@FILE", kRequestGroup, kTransfers, "add a header field; @FILE reads one per line from a file, where other users cannot see them ('@-': standard input). 'NAME:' leaves out the field that the library adds. Repeatable",
     addFields, Secrecy::FieldValue},
    {"remove-field", 0, "NAME", kRequestGroup, kTransfers, "leave out all header fields with that name. Repeatable",
     [](S& s, V v) { checkFieldName(v); s.RemovedFields.push_back(v); }},
    {"body", 'd', "TEXT", kRequestGroup, kSend, "body text, or @FILE to read it from a file; several are joined with '&'. Sent as a form unless -H sets another Content-Type",
     addBody},
    {"body-file", 0, "FILE", kRequestGroup, kSend, "read the body from a file into memory; '-' is standard input",
     [](S& s, V v) { s.BodyFile = nonEmpty("body-file", v); }},
    {"stream-file", 'T', "FILE", kRequestGroup, kSend, "stream the body from a file through a provider object; '-' is standard input",
     [](S& s, V v) { s.StreamFile = nonEmpty("stream-file", v); }},
    {"buffer-size", 0, "N", kRequestGroup, kSend, "bytes to ask the provider for at a time; k means 1024, M 1048576",
     [](S& s, V v) { s.BufferSize = byteSize("buffer-size", v); }},
    {"chunked", 0, "", kRequestGroup, kSend, "do not send the length of the body, even if it is known",
     [](S& s, V) { s.Chunked = true; }},
    {"simple", 0, "", kRequestGroup, kSingle, "use the older interface: every authentication scheme is allowed, and a status outside 200 to 299 is a failure",
     [](S& s, V) { s.Simple = true; }},

    {"output", 'o', "FILE", kResponseGroup, kGet | kSend, "write the content to a file, which appears only when complete and replaces an existing one; '-' is standard output, whatever the content",
     [](S& s, V v) { s.OutputFile = nonEmpty("output", v); }},
    {"force", 0, "", kResponseGroup, kSave | kBatch, "replace an existing file",
     [](S& s, V) { s.Force = true; }},
    {"include", 'i', "", kResponseGroup, kGet | kSend, "write the head of the response before its content",
     [](S& s, V) { s.Include = true; }},
    {"consumer", 0, "", kResponseGroup, kSingle, "no effect; kept for older scripts, since content always goes through a consumer object",
     [](S&, V) {}},
    {"no-decode", 0, "", kResponseGroup, kTransfers, "do not decompress content",
     [](S& s, V) { s.Decode = false; }},
    {"location", 'L', "", kResponseGroup, kTransfers, "follow up to 20 redirects, the default except for send",
     [](S& s, V) { s.MaxRedirects = kDefaultRedirects; }},
    {"follow", 0, "N", kResponseGroup, kTransfers, "follow up to N redirects",
     [](S& s, V v) { s.MaxRedirects = number<int>("follow", v, 0, 1000); }},
    {"no-follow", 0, "", kResponseGroup, kTransfers, "follow no redirects, the default for send",
     [](S& s, V) { s.MaxRedirects = 0; }},
    {"fail", 'f', "", kResponseGroup, kTransfers, "treat a status of 400 or above as a failure, the default for batch",
     [](S& s, V) { s.Fail = s.Batch.Fail = true; }},
    {"no-fail", 0, "", kResponseGroup, kBatch, "keep the content that comes with a status of 400 or above",
     [](S& s, V) { s.Batch.Fail = false; }},
    {"create-dirs", 0, "", kResponseGroup, kBatch, "create missing folders for the targets",
     [](S& s, V) { s.Batch.MakeFolders = true; }},

    {"jobs", 'j', "N", kBatchGroup, kBatch, "transfers at a time, 1 to 64 (default 4)",
     [](S& s, V v) { s.Batch.Jobs = number<int>("jobs", v, 1, kMostJobs); }},
    {"retry", 0, "N", kBatchGroup, kBatch, "retry up to N times if the cause may pass: timeouts, failed connections, incomplete content, status 408, 429, 500, 502, 503 and 504 (default 0)",
     [](S& s, V v) { s.Batch.Retries = number<int>("retry", v, 0, 1000); }},
    {"retry-wait", 0, "S", kBatchGroup, kBatch, "most seconds before the first retry, doubled for each further one; the wait is a random part of that, or what a server's Retry-After says (default 1)",
     [](S& s, V v) { s.Batch.RetryWait = number<double>("retry-wait", v, 0, kLongestSeconds); }},
    {"retry-max-wait", 0, "S", kBatchGroup, kBatch, "longest wait before a retry in seconds; a Retry-After beyond it ends the retries (default 300)",
     [](S& s, V v) { s.Batch.LongestRetryWait = number<double>("retry-max-wait", v, 0, kLongestSeconds); }},
    {"retry-unsafe", 0, "", kBatchGroup, kBatch, "also retry what may then be done twice: methods such as POST and PATCH once the request has gone out",
     [](S& s, V) { s.Batch.RetryUnsafe = true; }},
    {"shard", 0, "I/N", kBatchGroup, kBatch, "do part I of N of the manifest, counted from 1; by default what Slurm, Open MPI or GNU parallel say, if anything. 1/1 does everything",
     [](S& s, V v) { s.Batch.Shard = nonEmpty("shard", v); }},
    {"journal", 0, "FILE", kBatchGroup, kBatch, "record in this file what is done, so that a stopped run can be resumed; shards add their number (default: MANIFEST.journal)",
     [](S& s, V v) { s.Batch.Journal = nonEmpty("journal", v); }},
    {"no-journal", 0, "", kBatchGroup, kBatch, "keep no journal and do every line",
     [](S& s, V) { s.Batch.NoJournal = true; }},
    {"dry-run", 0, "", kBatchGroup, kBatch, "check the manifest and print what would be done",
     [](S& s, V) { s.Batch.DryRun = true; }},

    {"user", 'u', "NAME", kLoginGroup, kTransfers, "user name, or NAME:PASSWORD. Allows the schemes basic and digest unless --auth says otherwise",
     [](S& s, V v) { takeUser(s.User, s.Password, v); }, Secrecy::AfterColon},
    {"password", 0, "TEXT", kLoginGroup, kTransfers, "password; better set in NETROVE_PASSWORD or typed at the prompt",
     [](S& s, V v) { s.Password = v; }, Secrecy::Whole},
    {"auth", 0, "LIST", kLoginGroup, kTransfers, "authentication schemes, separated by commas: basic, digest, ntlm, negotiate",
     [](S& s, V v) { s.Auth = schemes("auth", v); }},
    {"proxy-user", 0, "NAME", kLoginGroup, kTransfers, "user name for the proxy, or NAME:PASSWORD",
     [](S& s, V v) { takeUser(s.ProxyUser, s.ProxyPassword, v); }, Secrecy::AfterColon},
    {"proxy-password", 0, "TEXT", kLoginGroup, kTransfers, "password for the proxy; better set in NETROVE_PROXY_PASSWORD",
     [](S& s, V v) { checkPassword(v); s.ProxyPassword = v; }, Secrecy::Whole},
    {"proxy-auth", 0, "LIST", kLoginGroup, kTransfers, "authentication schemes for the proxy",
     [](S& s, V v) { s.ProxyAuth = schemes("proxy-auth", v); }},

    {"proxy", 'x', "HOST:PORT|auto|none", kNetGroup, kTransfers, "proxy to use, with http:// (port 80 by default), https:// (443), socks4://, socks4a://, socks5:// or socks5h:// (1080) in front if needed. auto (the default) uses the environment and the desktop's settings, none connects directly",
     takeProxy, Secrecy::BeforeAt},
    {"connect-timeout", 0, "MS", kNetGroup, kTransfers, "longest wait for a connection in milliseconds, 0 for no limit (default 30000)",
     [](S& s, V v) { s.ConnectTimeout = limitMs("connect-timeout", v); }},
    {"response-timeout", 0, "MS", kNetGroup, kTransfers, "longest silence before the response, 0 for no limit (default 300000)",
     [](S& s, V v) { s.ResponseTimeout = limitMs("response-timeout", v); }},
    {"data-timeout", 0, "MS", kNetGroup, kTransfers, "longest silence while content is transferred, 0 for no limit (default 300000)",
     [](S& s, V v) { s.DataTimeout = limitMs("data-timeout", v); }},
    {"max-time", 'm', "S", kNetGroup, kTransfers, "longest time in seconds for everything, with batch for each attempt; may have a fraction",
     [](S& s, V v) { s.MaxTime = number<double>("max-time", v, 0.001, kLongestSeconds); }},

    {"ca-file", 0, "FILE", kTlsGroup, kTransfers, "PEM file of certificates to trust in addition to those in the system's folder",
     [](S& s, V v) { s.CaFile = nonEmpty("ca-file", v); }},
    {"no-verify", 'k', "", kTlsGroup, kTransfers, "accept any certificate: anyone on the path can read and change everything",
     [](S& s, V) { s.VerifyPeer = false; }},
    {"no-verify-name", 0, "", kTlsGroup, kTransfers, "accept a trusted certificate for another host name: its owner can pose as the server",
     [](S& s, V) { s.VerifyName = false; }},

    {"progress", 0, "", kShowGroup, kTransfers, "show progress even if standard error is not a terminal",
     [](S& s, V) { s.Progress = true; }},
    {"no-progress", 0, "", kShowGroup, kTransfers, "show no progress",
     [](S& s, V) { s.Progress = false; }},
    {"verbose", 'v', "", kShowGroup, kSingle, "show the wire trace on standard error, with credentials as they are sent; twice: content too",
     [](S& s, V) { s.Debug = std::min(s.Debug + 1, kMostDebug); }},
    {"debug", 0, "N", kShowGroup, kSingle, "set the trace level: 0 none, 1 heads, 2 content too",
     [](S& s, V v) { s.Debug = number<int>("debug", v, 0, kMostDebug); }},
    {"json", 0, "", kShowGroup, kSend | kProxy | kDescribe, "print JSON; with send: one object with final URL, status, fields, times and content (up to 16 MiB, more with -o), or a failure as with --json-errors",
     [](S& s, V) { s.Json = true; }},
    {"show-password", 0, "", kShowGroup, kProxy, "print the password instead of ***",
     [](S& s, V) { s.ShowPassword = true; }},
    {"json-errors", 0, "", kShowGroup, kAll, "report a failure as one JSON object",
     [](S& s, V) { s.JsonErrors = true; }},
    {"color", 0, "auto|always|never", kShowGroup, kAll, "when to use colours; with auto, NO_COLOR in the environment turns them off",
     [](S& s, V v) { s.Color = colorChoice(v); }},
    {"version", 0, "", kShowGroup, kProgram, "print the version, features and components",
     [](S& s, V) { s.ShowVersion = true; }},
};

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

} // namespace

std::span<const OptionRow> optionTable() {
    return kOptions;
}

std::span<const std::string_view> knownSchemes() {
    return kTypedSchemes;
}

std::span<const CommandRow> commandTable() {
    return kCommands;
}

} // namespace netrove::cli
