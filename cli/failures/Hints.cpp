#include "cli/failures/Hints.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace netrove::cli {

namespace {

constexpr std::string_view kSystemTls = "VANTIK:webservices:SSLConnectionSystemFailure";
constexpr std::string_view kFileTls = "VANTIK:webservices:SSLConnectionFailure";
constexpr std::string_view kOpenTls = "VANTIK:webservices:SSLConnectionNoFile";
constexpr std::string_view kTimeout = "VANTIK:webservices:Timeout";
constexpr std::string_view kMalformedUrl = "VANTIK:webservices:MalformedURL";
constexpr std::string_view kExpectedProtocol = "VANTIK:webservices:ExpectedProtocol";
constexpr std::string_view kStatus = "NETROVE:cli:StatusError";
constexpr std::string_view kCopy = "VANTIK:webservices:CopyContentToDataStreamError";

constexpr std::string_view kNoTls = "try http:// or another port";
constexpr std::string_view kNoTlsAtProxy = "write the proxy with http:// in front, if that is what it speaks";
constexpr std::string_view kExpired = "only the server's owner can renew its certificate; check this machine's clock "
                                      "too";
constexpr std::string_view kOtherName = "the certificate is for another name; use that name in the URL, or "
                                        "--no-verify-name if you know the server";
constexpr std::string_view kUnknownIssuer = "if you trust this server, name the file of its certificate authority with "
                                            "--ca-file; -k would accept anyone";
constexpr std::string_view kNotHttp = "the server may expect TLS on this port; try https://";
constexpr std::string_view kNoScheme = "put http:// or https:// in front of it";
constexpr std::string_view kLimit = "0 lifts that limit";
constexpr std::string_view kRefused = "VANTIK:webservices:ConnectionRefused";

// The first row that fits is used. The reason of a TLS failure is argument 1, that of a failed copy argument 0.
constexpr HintRow kHints[] = {
    {kSystemTls, 1, "wrong version number", kNoTls, false, Party::Server},
    {kFileTls, 1, "wrong version number", kNoTls, false, Party::Server},
    {kOpenTls, 1, "wrong version number", kNoTls, false, Party::Server},
    {kSystemTls, 1, "wrong version number", kNoTlsAtProxy, false, Party::Proxy},
    {kFileTls, 1, "wrong version number", kNoTlsAtProxy, false, Party::Proxy},
    {kOpenTls, 1, "wrong version number", kNoTlsAtProxy, false, Party::Proxy},
    {kSystemTls, 1, "has expired", kExpired, false, Party::Server},
    {kFileTls, 1, "has expired", kExpired, false, Party::Server},
    {kSystemTls, 1, "not yet valid", kExpired, false, Party::Server},
    {kFileTls, 1, "not yet valid", kExpired, false, Party::Server},
    {kSystemTls, 1, "does not match", kOtherName, false, Party::Server},
    {kFileTls, 1, "does not match", kOtherName, false, Party::Server},
    {kSystemTls, 1, "no alternative certificate subject name matches", kOtherName, false, Party::Server},
    {kFileTls, 1, "no alternative certificate subject name matches", kOtherName, false, Party::Server},
    {kFileTls, 1, "error setting certificate", "the file given with --ca-file must exist and hold PEM certificates"},
    {kSystemTls, 1, "SSL certificate", kUnknownIssuer, false, Party::Server},
    {kFileTls, 1, "issuer certificate",
     "the file given with --ca-file must hold the authority that issued this certificate"},
    {kFileTls, 1, "self-signed certificate",
     "the file given with --ca-file must hold this certificate, or the authority that issued it"},
    {"VANTIK:webservices:InternalError", 0, "CRLF not found in headers",
     "the request's head is too long to be sent at once; shorten its fields"},
    {kCopy, 0, "Empty reply from server", kNotHttp, false, Party::Server},
    {kCopy, 0, "HTTP/0.9", kNotHttp, false, Party::Server},
    {kRefused, kWholeText, "reset the connection before its response", kNotHttp, false, Party::Server},
    {kMalformedUrl, 0, "(no protocol)", kNoScheme},
    {kMalformedUrl, 0, " ", "put the URL in quotes, and write %20 for a space in it"},
    {kExpectedProtocol, 1, "://", kNoScheme, true}, // "localhost:8080/x"
    {"VANTIK:webservices:FileNotFound", 0, "://", "two slashes follow the scheme, as in http://host/path", true},
    {kTimeout, 3, "HTTPOptions.", kLimit},
    {kTimeout, 3, "weboptions.Timeout", kLimit},
    {"VANTIK:webservices:DecodingError", 0, "", "--no-decode keeps the content as it was sent"},
    {kStatus, 0, "401", "log in with --user NAME, or check name and password"},
    {kStatus, 0, "407", "log in to the proxy with --proxy-user NAME, or check name and password"},
    {"VANTIK:host:Failure", 0, "A proxy setting of this system",
     "--proxy HOST:PORT sets a proxy, --proxy none connects directly"},
    {"NETROVE:cli:FileNotWritten", 1, "No such file or directory", "create the folder first"},
};

std::string argumentText(const vantik::Message& message, std::size_t index) {
    const auto* words = std::get_if<std::string>(&message.Arguments[index]);
    return words != nullptr ? *words : std::to_string(std::get<std::int64_t>(message.Arguments[index]));
}

// The client names the party that has failed.
Party partyOf(const vantik::Message& message) {
    return message.Text.find("the proxy ") == message.Text.npos ? Party::Server : Party::Proxy;
}

bool speaksTls(const vantik::Message& message) {
    return std::any_of(message.Arguments.begin(), message.Arguments.end(), [](const vantik::MessageArgument& argument) {
        const auto* text = std::get_if<std::string>(&argument);
        return text != nullptr && text->starts_with("https://");
    });
}

bool fits(const HintRow& row, const vantik::Message& message) {
    const bool whole = row.Argument == kWholeText;
    if (row.Identifier != message.identifier() || (!whole && row.Argument >= message.Arguments.size()) ||
        (row.Of != Party::Any && row.Of != partyOf(message)) || (row.Hint == kNotHttp && speaksTls(message))) {
        return false;
    }
    const std::string text = whole ? message.Text : argumentText(message, row.Argument);
    return (text.find(row.Needle) == text.npos) == row.Lacks;
}

// The URL that a failure is about, as it was typed.
std::string refusedUrl(const vantik::Message& message) {
    const std::string identifier = message.identifier();
    const std::size_t index = identifier == kExpectedProtocol ? 1 : 0;
    if ((identifier != kExpectedProtocol && identifier != kMalformedUrl) || index >= message.Arguments.size()) {
        return {};
    }
    std::string url = argumentText(message, index);
    if (constexpr std::string_view end = "\" (no protocol)"; url.starts_with('"') && url.ends_with(end)) {
        url = url.substr(1, url.size() - 1 - end.size());
    }
    return url;
}

bool isNumber(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == text.npos;
}

// What is wrong with the port of a URL; empty for nothing.
std::string portHint(std::string_view url) {
    const std::size_t start = url.find("://") + 3;
    std::string_view authority = url.substr(start, url.find_first_of("/?#", start) - start);
    authority.remove_prefix(authority.find_last_of("@]") + 1); // npos + 1 is 0
    const std::size_t colon = authority.find(':');
    if (colon == authority.npos || colon + 1 == authority.size()) {
        return {};
    }
    const std::string port(authority.substr(colon + 1));
    constexpr std::size_t longest = 5; // digits
    if (!isNumber(port)) {
        return "'" + port + "' is not a port; a port is a number from 1 to 65535";
    }
    const bool tooLarge = port.size() > longest || std::stoi(port) > 65535;
    return tooLarge ? "the port " + port + " is above 65535, the largest there is" : "";
}

// True for "host", "host/path" and "host:80/path", whatever comes before is then their scheme.
bool lacksOnlyItsScheme(std::string_view url) {
    if (url.empty() || url.starts_with('/') || url.starts_with("http") || url.find_first_of(" \"<>\\") != url.npos ||
        url.find("***") != url.npos) {
        return false;
    }
    const std::string_view authority = url.substr(0, url.find_first_of("/?#"));
    const std::size_t colon = authority.find(':', authority.starts_with('[') ? authority.find(']') : 0);
    return colon == authority.npos || isNumber(authority.substr(colon + 1));
}

std::string urlHint(const vantik::Message& message) {
    const std::string url = refusedUrl(message);
    if (url.find("://") != url.npos) {
        return portHint(url);
    }
    return lacksOnlyItsScheme(url) ? "write http://" + url + ", or https:// if it speaks TLS" : "";
}

// What people type who are used to other programs.
struct OtherName {
    std::string_view Word;
    std::string_view Ours;
};
constexpr OtherName kOtherNames[] = {
    {"-V", "--version"}, {"version", "--version"}, {"fetch", "get"},   {"download", "save"},
    {"post", "send"},    {"put", "send"},          {"upload", "send"},
};

// Insertions, deletions, replacements and swaps of neighbours from one word to the other. The embedded host measures
// names of classes in another way, by half steps and without swaps, and offers that to no program.
std::size_t distance(std::string_view from, std::string_view to) {
    std::vector<std::size_t> before(to.size() + 1);
    std::vector<std::size_t> above(to.size() + 1);
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < from.size(); ++i) {
        std::swap(before, above);
        std::swap(above, row);
        row[0] = i + 1;
        for (std::size_t j = 0; j < to.size(); ++j) {
            row[j + 1] = std::min({above[j + 1] + 1, row[j] + 1, above[j] + (from[i] == to[j] ? 0 : 1)});
            if (i > 0 && j > 0 && from[i] == to[j - 1] && from[i - 1] == to[j]) {
                row[j + 1] = std::min(row[j + 1], before[j - 1] + 1);
            }
        }
    }
    return row.back();
}

} // namespace

std::span<const HintRow> hintTable() {
    return kHints;
}

std::string hintFor(const vantik::Message& message) {
    if (std::string hint = urlHint(message); !hint.empty()) {
        return hint;
    }
    for (const HintRow& row : kHints) {
        if (fits(row, message)) {
            return std::string(row.Hint);
        }
    }
    return {};
}

std::string_view nearestWord(std::string_view word, std::span<const std::string> known) {
    for (const OtherName& other : kOtherNames) {
        if (other.Word == word && std::find(known.begin(), known.end(), other.Ours) != known.end()) {
            return other.Ours;
        }
    }
    // A short word with two other letters is another word.
    constexpr std::size_t shortWord = 5;
    const std::size_t farthest = word.size() <= shortWord ? 1 : 2;
    std::string_view nearest;
    std::size_t least = farthest + 1;
    for (const std::string& candidate : known) {
        if (const std::size_t steps = distance(word, candidate); steps < least && steps < word.size()) {
            least = steps;
            nearest = candidate;
        }
    }
    return nearest;
}

} // namespace netrove::cli
