#include "cli/report/FailureCause.h"

#include "cli/failures/CliFailure.h"

#include <netrove/text.h>
#include <netrove/url.h>

#include <algorithm>
#include <cctype>
#include <variant>

namespace netrove::cli {

namespace {

constexpr std::size_t kMostCauses = 500;
constexpr std::size_t kLongestHost = 255;
constexpr const char* kFurtherHosts = "further hosts";
constexpr const char* kFurtherCauses = "further causes";

struct CauseRow {
    std::string_view Key; // of the identifier
    std::string_view Kind;
    std::string_view Joiner = {}; // empty: whatever the host
    std::string_view Needle = {}; // in the text of the failure
};

// The first row that fits is used.
constexpr CauseRow kCauses[] = {
    {"UnknownHost", "unknown host", " "},
    {"ConnectionRefused", "connection reset", " by ", "reset"},
    {"ConnectionRefused", "connection timed out", " at ", "timed out"},
    {"ConnectionRefused", "connection refused", " by "},
    {"ConnectionReset", "connection reset", " by "},
    {"ConnectionFailed", "connection failed", " to "},
    {"Timeout", "no connection in time", " to ", "onnect"},
    {"Timeout", "timeout", " at "},
    {"MaxTime", "not complete within --max-time"},
    {"TotalTime", "not complete in time"},
    {"PartialFileWarning", "incomplete content", " from "},
    {"Incomplete", "incomplete content", " from "},
    {"CopyContentToDataStreamError", "transfer broken off", " at "},
    {"SSLConnectionNoFile", "TLS failed", " with "},
    {"SSLConnectionSystemFailure", "TLS failed", " with "},
    {"SSLConnectionFailure", "TLS failed", " with "},
    {"CertificateFailedVerification", "certificate refused", " of "},
    {"DecodingError", "content could not be decoded", " of "},
    {"DecodedContentTooLarge", "content too large once decoded", " of "},
    {"ContentTooLarge", "content too large", " of "},
    {"TooManyRedirects", "too many redirects", " at "},
    {"RedirectRefused", "redirect to no valid URL", " by "},
    {"RetryTooLate", "a longer wait was asked for", " by "},
    {"MalformedURL", "malformed URL"},
    {"ExpectedProtocol", "malformed URL"},
    {"FileNotFound", "URL without a host"},
    {"FileExists", "the file exists"},
    {"DigestMismatch", "wrong digest"},
    {"ContentChanged", "content to send has changed"},
    {"ContentNotRewound", "content to send could not be read again"},
    {"InvalidFilename", "file not written"},
};

struct PhraseRow {
    int Status;
    std::string_view Phrase;
};

// A server's own words would make any number of causes.
constexpr PhraseRow kPhrases[] = {
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {402, "Payment Required"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {406, "Not Acceptable"},
    {407, "Proxy Authentication Required"},
    {408, "Request Timeout"},
    {409, "Conflict"},
    {410, "Gone"},
    {411, "Length Required"},
    {412, "Precondition Failed"},
    {413, "Content Too Large"},
    {414, "URI Too Long"},
    {415, "Unsupported Media Type"},
    {416, "Range Not Satisfiable"},
    {417, "Expectation Failed"},
    {421, "Misdirected Request"},
    {422, "Unprocessable Content"},
    {423, "Locked"},
    {424, "Failed Dependency"},
    {425, "Too Early"},
    {426, "Upgrade Required"},
    {428, "Precondition Required"},
    {429, "Too Many Requests"},
    {431, "Request Header Fields Too Large"},
    {451, "Unavailable For Legal Reasons"},
    {500, "Internal Server Error"},
    {501, "Not Implemented"},
    {502, "Bad Gateway"},
    {503, "Service Unavailable"},
    {504, "Gateway Timeout"},
    {505, "HTTP Version Not Supported"},
    {507, "Insufficient Storage"},
    {508, "Loop Detected"},
    {511, "Network Authentication Required"},
};

FailureCause statusCause(std::int64_t status) {
    const auto* row = std::find_if(std::begin(kPhrases), std::end(kPhrases),
                                   [&](const PhraseRow& phrase) { return phrase.Status == status; });
    const std::string phrase = row == std::end(kPhrases) ? "" : " " + std::string(row->Phrase);
    return {"the server answered " + std::to_string(status) + phrase, "", ""};
}

// "FileNotRead" as "file not read".
std::string inWords(std::string_view key) {
    std::string text;
    for (const char c : key) {
        if (std::isupper(static_cast<unsigned char>(c)) != 0 && !text.empty()) {
            text += ' ';
        }
        text += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

// The reason of a system call that failed: one of the system's texts.
std::string reasonIn(const vantik::Message& message) {
    const auto* reason = message.Arguments.size() < 2 ? nullptr : std::get_if<std::string>(&message.Arguments[1]);
    return reason == nullptr || reason->empty() ? "" : ": " + *reason;
}

} // namespace

std::string hostOf(std::string_view url) {
    std::string host = printable(hostAndPort(url));
    if (host.size() > kLongestHost) {
        host.resize(kLongestHost);
    }
    return host;
}

FailureCause causeOf(const vantik::Message& message, std::string_view url) {
    if (message.Key == "StatusError" && !message.Arguments.empty()) {
        if (const auto* status = std::get_if<std::int64_t>(&message.Arguments.front())) {
            return statusCause(*status);
        }
    }
    for (const CauseRow& row : kCauses) {
        if (row.Key == message.Key && message.Text.find(row.Needle) != std::string::npos) {
            return {std::string(row.Kind), std::string(row.Joiner), row.Joiner.empty() ? "" : hostOf(url)};
        }
    }
    if (message.Key == failure::kFileNotWritten || message.Key == failure::kFileNotRead) {
        return {inWords(message.Key) + reasonIn(message), "", ""};
    }
    return {inWords(message.Key), "", ""};
}

std::size_t CauseCounts::add(const FailureCause& cause, std::size_t line) {
    auto place = Counts.find(cause);
    if (place == Counts.end()) {
        FailureCause kept = cause;
        if (Counts.size() >= 2 * kMostCauses) {
            kept = {kFurtherCauses, "", ""};
        } else if (Counts.size() >= kMostCauses && !kept.Host.empty()) {
            kept.Host = kFurtherHosts;
        }
        place = Counts.try_emplace(std::move(kept)).first;
    }
    Entry& entry = place->second;
    if (entry.Count == 0) {
        entry.FirstLine = line;
    }
    return ++entry.Count;
}

std::vector<CauseCounts::Counted> CauseCounts::sorted() const {
    std::vector<Counted> result;
    for (const auto& [cause, entry] : Counts) {
        result.push_back({cause.text(), entry.Count, entry.FirstLine});
    }
    std::stable_sort(result.begin(), result.end(),
                     [](const Counted& left, const Counted& right) { return left.Count > right.Count; });
    return result;
}

std::map<std::string, std::size_t> CauseCounts::byKind() const {
    std::map<std::string, std::size_t> result;
    for (const auto& [cause, entry] : Counts) {
        result[cause.Kind] += entry.Count;
    }
    return result;
}

std::string causesText(const std::vector<CauseCounts::Counted>& causes, std::size_t most) {
    std::string text;
    const std::size_t named = std::min(causes.size(), most);
    for (std::size_t i = 0; i < named; ++i) {
        text += (i == 0 ? "" : ", ") + std::to_string(causes[i].Count) + " x " + causes[i].Text;
    }
    const std::size_t more = causes.size() - named;
    if (more != 0) {
        text += " and " + std::to_string(more) + (more == 1 ? " more cause" : " more causes");
    }
    return text;
}

} // namespace netrove::cli
