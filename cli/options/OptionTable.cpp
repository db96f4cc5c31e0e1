#include "cli/options/OptionTable.h"

#include "cli/failures/CliFailure.h"
#include "cli/options/FieldText.h"
#include "cli/options/ProxyChoice.h"
#include "cli/system/BodySource.h"
#include "cli/text/SafeText.h"

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

// Numbers are read and shown the same way whatever the locale.
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
    failUsage("'" + printable(text) + "' is no value for --" + option + "; it takes " + wanted);
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
                  "a whole number from 1 to " + std::to_string(kLargestBuffer >> 20) + "M, with k or M behind it");
    }
    return *value * factor;
}

// The members of the class that holds them are written in the same way but for the case of letters.
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
            failUsage("'" + printable(word) + "' is no scheme for --" + option +
                      "; known are basic, digest, ntlm and negotiate");
        }
        result.emplace_back(*known);
        start = comma + 1;
    }
    return result;
}

std::string nonEmpty(const char* option, const std::string& text) {
    if (text.empty()) {
        failUsage(std::string("--") + option + " needs a value that is not empty");
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
        parseProxy(text); // refuses now what could not be used later
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
        failUsage("'" + printable(text) + "' is no value for --color; known are auto, always and never");
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

// A '@' begins no name of a field.
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
    {"method", 'X', "M", kRequestGroup, kSend, "request method; without it GET, POST with a body, PUT with a streamed one",
     [](S& s, V v) { checkMethod(v); s.Method = v; }},
    {"field", 'H', "'NAME: VALUE'|@FILE", kRequestGroup, kTransfers, "add a header field, or with @FILE one a line from a file, where other users do not see them ('@-': standard input); 'NAME:' leaves out the library's own. Repeatable",
     addFields, Secrecy::FieldValue},
    {"remove-field", 0, "NAME", kRequestGroup, kTransfers, "leave out all header fields of that name. Repeatable",
     [](S& s, V v) { checkFieldName(v); s.RemovedFields.push_back(v); }},
    {"body", 'd', "TEXT", kRequestGroup, kSend, "body from the command line, or from a file with @FILE; several are joined by '&'. Sent as a form unless -H names another Content-Type",
     addBody},
    {"body-file", 0, "FILE", kRequestGroup, kSend, "body from a file held in memory; '-' is standard input",
     [](S& s, V v) { s.BodyFile = nonEmpty("body-file", v); }},
    {"stream-file", 'T', "FILE", kRequestGroup, kSend, "body streamed from a file through a provider object; '-' is standard input",
     [](S& s, V v) { s.StreamFile = nonEmpty("stream-file", v); }},
    {"buffer-size", 0, "N", kRequestGroup, kSend, "bytes asked of the provider at a time; k and M are 1024 and 1048576",
     [](S& s, V v) { s.BufferSize = byteSize("buffer-size", v); }},
    {"chunked", 0, "", kRequestGroup, kSend, "do not tell the length of the body, even where it is known",
     [](S& s, V) { s.Chunked = true; }},
    {"simple", 0, "", kRequestGroup, kSingle, "the older interface: every authentication scheme is allowed, and a status outside 200 to 299 fails",
     [](S& s, V) { s.Simple = true; }},

    {"output", 'o', "FILE", kResponseGroup, kGet | kSend, "write the content to a file, which appears when it is complete and replaces one that is there; '-' is standard output, whatever the content",
     [](S& s, V v) { s.OutputFile = nonEmpty("output", v); }},
    {"force", 0, "", kResponseGroup, kSave | kBatch, "replace a file that is there",
     [](S& s, V) { s.Force = true; }},
    {"include", 'i', "", kResponseGroup, kGet | kSend, "write the head of the response before its content",
     [](S& s, V) { s.Include = true; }},
    {"consumer", 0, "", kResponseGroup, kSingle, "kept for older scripts: content always comes through a consumer object",
     [](S&, V) {}},
    {"no-decode", 0, "", kResponseGroup, kTransfers, "leave compressed content as it came",
     [](S& s, V) { s.Decode = false; }},
    {"location", 'L', "", kResponseGroup, kTransfers, "follow up to 20 redirects, as get and save do by themselves",
     [](S& s, V) { s.MaxRedirects = kDefaultRedirects; }},
    {"follow", 0, "N", kResponseGroup, kTransfers, "follow up to N redirects",
     [](S& s, V v) { s.MaxRedirects = number<int>("follow", v, 0, 1000); }},
    {"no-follow", 0, "", kResponseGroup, kTransfers, "follow no redirect, as send does by itself",
     [](S& s, V) { s.MaxRedirects = 0; }},
    {"fail", 'f', "", kResponseGroup, kTransfers, "a status of 400 and above is a failure, as with batch it is by itself",
     [](S& s, V) { s.Fail = s.Batch.Fail = true; }},
    {"no-fail", 0, "", kResponseGroup, kBatch, "keep what the server says with a status of 400 and above",
     [](S& s, V) { s.Batch.Fail = false; }},
    {"create-dirs", 0, "", kResponseGroup, kBatch, "make the folders of targets that are not there",
     [](S& s, V) { s.Batch.MakeFolders = true; }},

    {"jobs", 'j', "N", kBatchGroup, kBatch, "transfers at a time, 1 to 64 (default 4)",
     [](S& s, V v) { s.Batch.Jobs = number<int>("jobs", v, 1, kMostJobs); }},
    {"retry", 0, "N", kBatchGroup, kBatch, "try again up to N times where the cause may pass: timeouts, connections that fail, cut content, status 408, 429, 500, 502, 503 and 504 (default 0)",
     [](S& s, V v) { s.Batch.Retries = number<int>("retry", v, 0, 1000); }},
    {"retry-wait", 0, "S", kBatchGroup, kBatch, "seconds before the first further attempt, doubled for each one after it and shortened by up to half at random; a server's Retry-After counts instead (default 1)",
     [](S& s, V v) { s.Batch.RetryWait = number<double>("retry-wait", v, 0, kLongestSeconds); }},
    {"retry-max-wait", 0, "S", kBatchGroup, kBatch, "longest wait before a further attempt in seconds, whatever Retry-After says (default 300)",
     [](S& s, V v) { s.Batch.LongestRetryWait = number<double>("retry-max-wait", v, 0, kLongestSeconds); }},
    {"retry-unsafe", 0, "", kBatchGroup, kBatch, "also try again what may then be done twice: methods such as POST and PATCH after the request went out",
     [](S& s, V) { s.Batch.RetryUnsafe = true; }},
    {"shard", 0, "I/N", kBatchGroup, kBatch, "do part I of N of the manifest, counted from 1; without it Slurm, Open MPI or GNU parallel may say so, and 1/1 does everything",
     [](S& s, V v) { s.Batch.Shard = nonEmpty("shard", v); }},
    {"journal", 0, "FILE", kBatchGroup, kBatch, "keep what is done in this file, so that a run that was stopped goes on; shards add their number (default: MANIFEST.journal)",
     [](S& s, V v) { s.Batch.Journal = nonEmpty("journal", v); }},
    {"no-journal", 0, "", kBatchGroup, kBatch, "keep no journal and do every line",
     [](S& s, V) { s.Batch.NoJournal = true; }},
    {"dry-run", 0, "", kBatchGroup, kBatch, "check the manifest and print what would be done",
     [](S& s, V) { s.Batch.DryRun = true; }},

    {"user", 'u', "NAME", kLoginGroup, kTransfers, "user name, or NAME:PASSWORD. Allows the schemes basic and digest unless --auth says otherwise",
     [](S& s, V v) { takeUser(s.User, s.Password, v); }, Secrecy::AfterColon},
    {"password", 0, "TEXT", kLoginGroup, kTransfers, "password; better in NETROVE_PASSWORD, or typed when asked for",
     [](S& s, V v) { s.Password = v; }, Secrecy::Whole},
    {"auth", 0, "LIST", kLoginGroup, kTransfers, "authentication schemes, by commas: basic, digest, ntlm, negotiate",
     [](S& s, V v) { s.Auth = schemes("auth", v); }},
    {"proxy-user", 0, "NAME", kLoginGroup, kTransfers, "user name for the proxy, or NAME:PASSWORD",
     [](S& s, V v) { takeUser(s.ProxyUser, s.ProxyPassword, v); }, Secrecy::AfterColon},
    {"proxy-password", 0, "TEXT", kLoginGroup, kTransfers, "password for the proxy; better in NETROVE_PROXY_PASSWORD",
     [](S& s, V v) { checkPassword(v); s.ProxyPassword = v; }, Secrecy::Whole},
    {"proxy-auth", 0, "LIST", kLoginGroup, kTransfers, "authentication schemes for the proxy",
     [](S& s, V v) { s.ProxyAuth = schemes("proxy-auth", v); }},

    {"proxy", 'x', "HOST:PORT|auto|none", kNetGroup, kTransfers, "proxy, or a URL with http, https, socks4, socks4a, socks5 or socks5h in front; without a port 80, with https 443, with socks 1080. auto (the default) asks the environment and the desktop's settings, none connects directly",
     takeProxy, Secrecy::BeforeAt},
    {"connect-timeout", 0, "MS", kNetGroup, kTransfers, "longest wait for a connection in milliseconds, 0 for no limit (default 30000)",
     [](S& s, V v) { s.ConnectTimeout = limitMs("connect-timeout", v); }},
    {"response-timeout", 0, "MS", kNetGroup, kTransfers, "longest silence before the response, 0 for no limit (default 300000)",
     [](S& s, V v) { s.ResponseTimeout = limitMs("response-timeout", v); }},
    {"data-timeout", 0, "MS", kNetGroup, kTransfers, "longest silence while content is moved, 0 for no limit (default 300000)",
     [](S& s, V v) { s.DataTimeout = limitMs("data-timeout", v); }},
    {"max-time", 'm', "S", kNetGroup, kTransfers, "longest time for everything, with batch for each attempt, in seconds with fractions",
     [](S& s, V v) { s.MaxTime = number<double>("max-time", v, 0.001, kLongestSeconds); }},

    {"ca-file", 0, "FILE", kTlsGroup, kTransfers, "certificates to trust besides the system's folder of them, as PEM",
     [](S& s, V v) { s.CaFile = nonEmpty("ca-file", v); }},
    {"no-verify", 'k', "", kTlsGroup, kTransfers, "accept any certificate: anybody on the way can read and change everything",
     [](S& s, V) { s.VerifyPeer = false; }},
    {"no-verify-name", 0, "", kTlsGroup, kTransfers, "accept a trusted certificate for another host name: its owner can pose as the server",
     [](S& s, V) { s.VerifyName = false; }},

    {"progress", 0, "", kShowGroup, kTransfers, "show progress even where standard error is no terminal",
     [](S& s, V) { s.Progress = true; }},
    {"no-progress", 0, "", kShowGroup, kTransfers, "show no progress",
     [](S& s, V) { s.Progress = false; }},
    {"verbose", 'v', "", kShowGroup, kSingle, "show the wire trace on standard error, with credentials as they are sent; twice: content too",
     [](S& s, V) { s.Debug = std::min(s.Debug + 1, kMostDebug); }},
    {"debug", 0, "N", kShowGroup, kSingle, "set the trace level: 0 none, 1 heads, 2 content too",
     [](S& s, V v) { s.Debug = number<int>("debug", v, 0, kMostDebug); }},
    {"json", 0, "", kShowGroup, kSend | kProxy | kDescribe, "print JSON; of send: one object with final URL, status, fields, times and content (up to 16 MiB, more with -o), or a failure as with --json-errors",
     [](S& s, V) { s.Json = true; }},
    {"show-password", 0, "", kShowGroup, kProxy, "print the password as it is",
     [](S& s, V) { s.ShowPassword = true; }},
    {"json-errors", 0, "", kShowGroup, kAll, "report a failure as one JSON object",
     [](S& s, V) { s.JsonErrors = true; }},
    {"color", 0, "auto|always|never", kShowGroup, kAll, "colours: auto, always or never; NO_COLOR in the environment means never for auto",
     [](S& s, V v) { s.Color = colorChoice(v); }},
    {"version", 0, "", kShowGroup, kProgram, "print the version, features and components",
     [](S& s, V) { s.ShowVersion = true; }},
};

constexpr CommandRow kCommands[] = {
    {"get", Command::Get, kGet, "Fetch a URL and write its content to standard output", true, false, false},
    {"save", Command::Save, kSave, "Fetch a URL into a file, which is complete or not there at all", true, true, false},
    {"send", Command::Send, kSend, "Make any request: method, fields, body, streaming", true, false, false},
    {"batch", Command::Batch, kBatch, "Do many transfers from a list, some at a time, and go on where a run was stopped", false, false, false, true},
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
