#include "cli/Hints.h"

#include <algorithm>
#include <numeric>

namespace netrove::cli {

namespace {

constexpr std::string_view kSystemTls = "VANTIK:webservices:SSLConnectionSystemFailure";
constexpr std::string_view kFileTls = "VANTIK:webservices:SSLConnectionFailure";
constexpr std::string_view kOpenTls = "VANTIK:webservices:SSLConnectionNoFile";
constexpr std::string_view kCopy = "VANTIK:webservices:CopyContentToDataStreamError";

constexpr std::string_view kNoTls = "the server does not speak TLS on this port; try http:// or another port";
constexpr std::string_view kExpired = "only the server's owner can renew its certificate; look at this machine's clock "
                                      "too";
constexpr std::string_view kOtherName = "the certificate is for another name; use that name in the URL, or "
                                        "--no-verify-name if you know the server";
constexpr std::string_view kUnknownIssuer =
    "if you know this server, name the file of its authority with --ca-file; -k "
    "would accept anybody";
constexpr std::string_view kNotHttp = "the server may expect TLS on this port; try https://";

// The first row that fits counts.
constexpr HintRow kHints[] = {
    {kSystemTls, "wrong version number", kNoTls},
    {kFileTls, "wrong version number", kNoTls},
    {kOpenTls, "wrong version number", kNoTls},
    {kSystemTls, "has expired", kExpired},
    {kFileTls, "has expired", kExpired},
    {kSystemTls, "not yet valid", kExpired},
    {kFileTls, "not yet valid", kExpired},
    {kSystemTls, "does not match", kOtherName},
    {kFileTls, "does not match", kOtherName},
    {kSystemTls, "no alternative certificate subject name matches", kOtherName},
    {kFileTls, "no alternative certificate subject name matches", kOtherName},
    {kFileTls, "error setting certificate", "the file of --ca-file must exist and hold certificates as PEM text"},
    {kSystemTls, "certificate", kUnknownIssuer},
    {kFileTls, "issuer certificate", "the file of --ca-file has to hold the authority that issued this certificate"},
    {kFileTls, "self-signed certificate",
     "the file of --ca-file has to hold this certificate, or the authority that issued it"},
    {kCopy, "Empty reply from server", kNotHttp},
    {kCopy, "HTTP/0.9", kNotHttp},
    {"VANTIK:webservices:ConnectionRefused", "Connection reset", kNotHttp},
    {"VANTIK:webservices:MalformedURL", " ", "put the URL in quotes, and write %20 for a blank in it"},
    {"NETROVE:cli:StatusError", "answered 401", "log in with --user NAME, or check name and password"},
    {"NETROVE:cli:StatusError", "answered 407",
     "log in to the proxy with --proxy-user NAME, or check name and password"},
    {"NETROVE:cli:FileNotWritten", "No such file or directory", "make the folder first"},
};

// Insertions, deletions and replacements from one word to the other.
std::size_t distance(std::string_view from, std::string_view to) {
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < from.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i + 1;
        for (std::size_t j = 0; j < to.size(); ++j) {
            const std::size_t above = row[j + 1];
            row[j + 1] = std::min({above + 1, row[j] + 1, diagonal + (from[i] == to[j] ? 0 : 1)});
            diagonal = above;
        }
    }
    return row.back();
}

} // namespace

std::span<const HintRow> hintTable() {
    return kHints;
}

std::string_view hintFor(const vantik::Message& message) {
    const std::string identifier = message.identifier();
    for (const HintRow& row : kHints)
        if (row.Identifier == identifier && message.Text.find(row.Needle) != message.Text.npos)
            return row.Hint;
    return {};
}

std::string_view nearestWord(std::string_view word, std::span<const std::string> known) {
    constexpr std::size_t farthest = 2;
    std::string_view nearest;
    std::size_t least = farthest + 1;
    for (const std::string& candidate : known)
        if (const std::size_t steps = distance(word, candidate); steps < least && steps < word.size()) {
            least = steps;
            nearest = candidate;
        }
    return nearest;
}

} // namespace netrove::cli
