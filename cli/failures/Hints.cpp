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
constexpr std::string_view kStatus = "NETROVE:cli:StatusError";
constexpr std::string_view kCopy = "VANTIK:webservices:CopyContentToDataStreamError";

constexpr std::string_view kNoTls = "the server does not speak TLS on this port; try http:// or another port";
constexpr std::string_view kExpired = "only the server's owner can renew its certificate; check this machine's clock "
                                      "too";
constexpr std::string_view kOtherName = "the certificate is for another name; use that name in the URL, or "
                                        "--no-verify-name if you know the server";
constexpr std::string_view kUnknownIssuer = "if you trust this server, name the file of its certificate authority with "
                                            "--ca-file; -k would accept anyone";
constexpr std::string_view kNotHttp = "the server may expect TLS on this port; try https://";
constexpr std::string_view kNoScheme = "put http:// or https:// in front of it";
constexpr std::string_view kConnectTime = "--connect-timeout MS sets that limit, 0 lifts it";

// The first row that fits is used. The reason of a TLS failure is argument 1, that of a failed copy argument 0.
constexpr HintRow kHints[] = {
    {kSystemTls, 1, "wrong version number", kNoTls},
    {kFileTls, 1, "wrong version number", kNoTls},
    {kOpenTls, 1, "wrong version number", kNoTls},
    {kSystemTls, 1, "has expired", kExpired},
    {kFileTls, 1, "has expired", kExpired},
    {kSystemTls, 1, "not yet valid", kExpired},
    {kFileTls, 1, "not yet valid", kExpired},
    {kSystemTls, 1, "does not match", kOtherName},
    {kFileTls, 1, "does not match", kOtherName},
    {kSystemTls, 1, "no alternative certificate subject name matches", kOtherName},
    {kFileTls, 1, "no alternative certificate subject name matches", kOtherName},
    {kFileTls, 1, "error setting certificate", "the file given with --ca-file must exist and hold PEM certificates"},
    {kSystemTls, 1, "SSL certificate", kUnknownIssuer},
    {kFileTls, 1, "issuer certificate",
     "the file given with --ca-file must hold the authority that issued this certificate"},
    {kFileTls, 1, "self-signed certificate",
     "the file given with --ca-file must hold this certificate, or the authority that issued it"},
    {"VANTIK:webservices:InternalError", 0, "CRLF not found in headers",
     "the request's head is too long to be sent at once; shorten its fields"},
    {kCopy, 0, "Empty reply from server", kNotHttp},
    {kCopy, 0, "HTTP/0.9", kNotHttp},
    {"VANTIK:webservices:ConnectionRefused", 1, "Connection reset", kNotHttp},
    {"VANTIK:webservices:MalformedURL", 0, "(no protocol)", kNoScheme},
    {"VANTIK:webservices:MalformedURL", 0, " ", "put the URL in quotes, and write %20 for a space in it"},
    {"VANTIK:webservices:ExpectedProtocol", 1, "://", kNoScheme, true}, // "localhost:8080/x"
    {"VANTIK:webservices:FileNotFound", 0, "://", "two slashes follow the scheme, as in http://host/path", true},
    {kTimeout, 3, "HTTPOptions.ConnectTimeout", kConnectTime},
    {kTimeout, 3, "HTTPOptions.ResponseTimeout", "--response-timeout MS sets that limit, 0 lifts it"},
    {kTimeout, 3, "HTTPOptions.DataTimeout", "--data-timeout MS sets that limit, 0 lifts it"},
    {kTimeout, 3, "weboptions.Timeout", "--connect-timeout MS and --response-timeout MS set that limit, 0 lifts it"},
    {"VANTIK:webservices:DecodingError", 0, "", "--no-decode keeps the content as it was sent"},
    {kStatus, 0, "401", "log in with --user NAME, or check name and password"},
    {kStatus, 0, "407", "log in to the proxy with --proxy-user NAME, or check name and password"},
    {"VANTIK:host:Failure", 0, "A proxy setting of this system",
     "--proxy HOST:PORT sets a proxy, --proxy none connects directly"},
    {"NETROVE:cli:FileNotWritten", 1, "No such file or directory", "create the folder first"},
};

bool fits(const HintRow& row, const vantik::Message& message) {
    if (row.Identifier != message.identifier() || row.Argument >= message.Arguments.size()) {
        return false;
    }
    const vantik::MessageArgument& argument = message.Arguments[row.Argument];
    const auto* words = std::get_if<std::string>(&argument);
    const std::string text = words != nullptr ? *words : std::to_string(std::get<std::int64_t>(argument));
    return (text.find(row.Needle) == text.npos) == row.Lacks;
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

std::string_view hintFor(const vantik::Message& message) {
    for (const HintRow& row : kHints) {
        if (fits(row, message)) {
            return row.Hint;
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
