#include "cli/failures/ExitStatus.h"

#include "cli/failures/CliFailure.h"
#include "cli/failures/ErrorMessages.h"
#include "cli/failures/Hints.h"
#include "cli/failures/LoginHint.h"

#include <csignal>
#include <cstdio>
#include <string>

namespace netrove::cli {

namespace {

constexpr ExitMeaning kMeanings[] = {
    {kExitDone, "completed"},
    {kExitFailure, "any other failure"},
    {kExitUsage, "wrong usage"},
    {kExitUrl, "malformed URL, or a scheme other than http and https"},
    {kExitUnknownHost, "unknown host"},
    {kExitConnect, "connection refused or failed"},
    {kExitIncomplete, "incomplete content"},
    {kExitStatus, "status 400 or above (not with --no-fail), or outside 200 to 299 with --simple"},
    {kExitNotWritten, "file or output not written"},
    {kExitNotRead, "content to send, or the manifest of batch, not read"},
    {kExitTimeout, "timeout"},
    {kExitRange, "the server does not send the range asked for"},
    {kExitOffset, "the file has fewer bytes than --continue-at says"},
    {kExitStopped, "stopped by the consumer or the progress reporter"},
    {kExitRedirects, "too many redirects"},
    {kExitTls, "TLS: certificate or handshake"},
    {kExitDecoding, "content could not be decoded"},
    {kExitTooLarge, "content larger than --max-filesize"},
    {kExitDigest, "the content has another digest than --digest says"},
    {kExitHungUp, "hung up (the terminal is gone)"},
    {kExitInterrupted, "interrupted (Ctrl-C)"},
    {kExitTerminated, "terminated"},
};

struct Row {
    std::string_view Identifier;
    int Status;
    std::string_view FirstArgument = {}; // empty: whatever the arguments are
};

// The first row that fits is used; an identifier without a row is "any other failure".
constexpr Row kRows[] = {
    {"VANTIK:webservices:MalformedURL", kExitUrl},
    {"VANTIK:webservices:ExpectedProtocol", kExitUrl},
    {"VANTIK:webservices:FileNotFound", kExitUrl}, // a URL without a host
    {"VANTIK:webservices:UnknownHost", kExitUnknownHost},
    {"VANTIK:webservices:ConnectionRefused", kExitConnect},
    // Also what every unexpected exception during a send becomes; `judge` picks out interrupts among them.
    {"VANTIK:webservices:ConnectionFailed", kExitConnect},
    {"VANTIK:webservices:PartialFileWarning", kExitIncomplete},
    {"VANTIK:webservices:StatusError", kExitStatus},
    {"VANTIK:webservices:InvalidFilename", kExitNotWritten},
    {"VANTIK:webservices:CopyContentToDataStreamError", kExitNotWritten, "Error saving to local data stream."},
    {"VANTIK:webservices:Timeout", kExitTimeout},
    {"VANTIK:webservices:OperationTerminatedByConsumer", kExitStopped},
    {"VANTIK:webservices:SSLConnectionNoFile", kExitTls},
    {"VANTIK:webservices:SSLConnectionSystemFailure", kExitTls},
    {"VANTIK:webservices:SSLConnectionFailure", kExitTls},
    {"VANTIK:webservices:CertificateFailedVerification", kExitTls},
    {"VANTIK:webservices:DecodingError", kExitDecoding},
    {"VANTIK:webservices:DecodedContentTooLarge", kExitDecoding},
    {"NETROVE:cli:Usage", kExitUsage},
    {"NETROVE:cli:BadManifest", kExitUsage},
    {"NETROVE:cli:NoJournal", kExitNotWritten},
    {"NETROVE:cli:JournalInUse", kExitNotWritten},
    {"NETROVE:cli:RedirectRefused", kExitUrl},
    {"NETROVE:cli:StatusError", kExitStatus},
    {"NETROVE:cli:RetryTooLate", kExitStatus},
    {"NETROVE:cli:FileNotWritten", kExitNotWritten},
    {"NETROVE:cli:FileExists", kExitNotWritten},
    {"NETROVE:cli:BinaryToTerminal", kExitNotWritten},
    {"NETROVE:cli:ContentTooLarge", kExitNotWritten},
    {"NETROVE:cli:ContentLimit", kExitTooLarge},
    {"NETROVE:cli:FileNotRead", kExitNotRead},
    {"NETROVE:cli:RangeRefused", kExitRange},
    {"NETROVE:cli:DigestMismatch", kExitDigest},
    {"NETROVE:cli:BadOffset", kExitOffset},
    {"NETROVE:cli:NotResumed", kExitIncomplete},
    {"NETROVE:cli:Incomplete", kExitIncomplete},
    {"NETROVE:cli:ContentChanged", kExitNotRead},
    {"NETROVE:cli:ContentNotRewound", kExitNotRead},
    {"NETROVE:cli:MaxTime", kExitTimeout},
    {"NETROVE:cli:TooManyRedirects", kExitRedirects},
};

struct SignalRow {
    int Number;
    std::string_view Name;
    int Status;
};

constexpr SignalRow kSignals[] = {
    {SIGHUP, "SIGHUP", kExitHungUp},
    {SIGINT, "SIGINT", kExitInterrupted},
    {SIGTERM, "SIGTERM", kExitTerminated},
};

bool firstArgumentIs(const vantik::Message& message, std::string_view text) {
    if (message.Arguments.empty()) {
        return false;
    }
    const auto* argument = std::get_if<std::string>(&message.Arguments.front());
    return argument != nullptr && *argument == text;
}

bool couldBeInterrupt(const vantik::Message& message, const Circumstances& circumstances) {
    return circumstances.Interrupted || message.identifier() == "VANTIK:webservices:ConnectionFailed" ||
           message.identifier() == "VANTIK:webservices:OperationTerminatedByConsumer";
}

std::string secondsText(double seconds) {
    char buffer[32];
    const int length = std::snprintf(buffer, sizeof buffer, "%.3f", seconds);
    std::string text(buffer, static_cast<std::size_t>(length));
    text.erase(text.find_last_not_of('0') + 1);
    if (text.ends_with('.')) {
        text.pop_back();
    }
    return text;
}

} // namespace

std::span<const ExitMeaning> exitMeanings() {
    return kMeanings;
}

int exitStatus(const vantik::Message& message) {
    const std::string identifier = message.identifier();
    for (const Row& row : kRows) {
        if (row.Identifier == identifier &&
            (row.FirstArgument.empty() || firstArgumentIs(message, row.FirstArgument))) {
            return row.Status;
        }
    }
    return kExitFailure;
}

Verdict judge(const vantik::Message& message, const Circumstances& circumstances) {
    for (const SignalRow& row : kSignals) {
        if (row.Number == circumstances.Signal) {
            return {cliMessage(failure::kInterrupted, {std::string(row.Name)}, "interrupted"), row.Status};
        }
    }
    if (circumstances.MaxTimeElapsed && couldBeInterrupt(message, circumstances)) {
        const std::string seconds = secondsText(circumstances.MaxTimeSeconds);
        return {
            cliMessage(failure::kMaxTime, {seconds}, "not complete after " + seconds + " s, the limit of --max-time"),
            kExitTimeout};
    }
    if (circumstances.Interrupted) {
        return {message, kExitInterrupted};
    }
    return {withoutAdvice(message), exitStatus(message)};
}

Verdict judge(const netrove::Error& error, Circumstances circumstances) {
    circumstances.Interrupted = error.kind() == netrove::ErrorKind::Interrupted;
    circumstances.MaxTimeElapsed =
        error.identifier().ends_with(":AttemptTime") || error.identifier().ends_with(":TotalTime");
    circumstances.Interrupted |= circumstances.MaxTimeElapsed;
    Verdict verdict = judge(messageOf(error), circumstances);
    verdict.Hint = loginHint(error, circumstances);
    return verdict;
}

std::string hintOf(const Verdict& verdict) {
    return verdict.Hint.empty() ? hintFor(verdict.Message) : verdict.Hint;
}

} // namespace netrove::cli
