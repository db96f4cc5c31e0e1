#include "client/exchange/FailureTranslation.h"

#include "client/failures/ClientFailure.h"
#include "vantik/Http.h"

#include <netrove/refusedurl.h>
#include <netrove/text.h>
#include <netrove/url.h>

#include <algorithm>
#include <variant>

namespace netrove {

namespace {

constexpr std::string_view kCopyFailure = "VANTIK:webservices:CopyContentToDataStreamError";
constexpr std::string_view kRefused = "VANTIK:webservices:ConnectionRefused";
constexpr std::string_view kTimeout = "VANTIK:webservices:Timeout";
constexpr std::string_view kCutOff = "VANTIK:webservices:PartialFileWarning";

constexpr std::string_view kTunnelRefused = "CONNECT tunnel failed, response ";

struct KindRow {
    std::string_view Identifier;
    ErrorKind Kind;
};

constexpr KindRow kKinds[] = {
    {"VANTIK:webservices:MalformedURL", ErrorKind::Url},
    {"VANTIK:webservices:ExpectedProtocol", ErrorKind::Url},
    {"VANTIK:webservices:FileNotFound", ErrorKind::Url}, // a URL without a host
    {"VANTIK:webservices:UnknownHost", ErrorKind::Name},
    {kRefused, ErrorKind::Connect},
    {"VANTIK:webservices:ConnectionFailed", ErrorKind::Connect},
    {"VANTIK:webservices:SSLConnectionNoFile", ErrorKind::Tls},
    {"VANTIK:webservices:SSLConnectionSystemFailure", ErrorKind::Tls},
    {"VANTIK:webservices:SSLConnectionFailure", ErrorKind::Tls},
    {"VANTIK:webservices:CertificateFailedVerification", ErrorKind::Tls},
    {kTimeout, ErrorKind::Timeout},
    {"VANTIK:webservices:StatusError", ErrorKind::Status},
    {kCutOff, ErrorKind::Content},
    {"VANTIK:webservices:DecodingError", ErrorKind::Content},
    {"VANTIK:webservices:DecodedContentTooLarge", ErrorKind::Content},
    {"VANTIK:webservices:EncodingFailure", ErrorKind::Usage},
    {"VANTIK:webservices:EmptyName", ErrorKind::Usage},
    {"VANTIK:host:Interrupted", ErrorKind::Interrupted},
};

// Connections that end without a response share an identifier with other failures; libcurl's code, at the end of the
// first argument, says which it is.
struct CodeRow {
    std::string_view End;
    ErrorKind Kind;
};

constexpr CodeRow kCodes[] = {
    {"(CURLE code 1)", ErrorKind::Content},  // not HTTP
    {"(CURLE code 16)", ErrorKind::Connect}, // HTTP/2 framing
    {"(CURLE code 52)", ErrorKind::Connect}, // no response
    {"(CURLE code 55)", ErrorKind::Connect}, // not sent
    {"(CURLE code 92)", ErrorKind::Connect}, // an HTTP/2 stream that was reset
};

ErrorKind kindOfCopyFailure(std::string_view cause) {
    const auto* row = std::find_if(std::begin(kCodes), std::end(kCodes),
                                   [&](const CodeRow& candidate) { return cause.ends_with(candidate.End); });
    return row == std::end(kCodes) ? ErrorKind::Other : row->Kind;
}

ErrorKind kindOf(std::string_view identifier) {
    const auto* row = std::find_if(std::begin(kKinds), std::end(kKinds),
                                   [&](const KindRow& candidate) { return candidate.Identifier == identifier; });
    return row == std::end(kKinds) ? ErrorKind::Other : row->Kind;
}

std::string argumentText(const vantik::Message& message, std::size_t index) {
    if (index >= message.Arguments.size()) {
        return {};
    }
    const auto* text = std::get_if<std::string>(&message.Arguments[index]);
    return text != nullptr ? *text : std::to_string(std::get<std::int64_t>(message.Arguments[index]));
}

// libcurl's own words about the failure.
std::string causeIn(const vantik::Message& message) {
    const std::string identifier = message.identifier();
    if (identifier == kCutOff || identifier == kTimeout) {
        return argumentText(message, 2);
    }
    return argumentText(message, identifier == kCopyFailure ? 0 : 1);
}

bool says(std::string_view text, std::string_view words) {
    return text.find(words) != text.npos;
}

// How far the answer had come when it broke off.
std::string progressText(const Circumstances& known) {
    if (known.Status == 0) {
        return known.Sent ? "before its response" : "before the request was sent";
    }
    return "after " + std::to_string(known.Received) + " bytes of content";
}

std::string connectText(const std::string& cause, const std::string& party, const Circumstances& known) {
    if (says(cause, "reset by peer") || says(cause, "Broken pipe")) {
        return party + " reset the connection " + progressText(known);
    }
    if (says(cause, "Empty reply")) {
        return party + " closed the connection without a response";
    }
    if (says(cause, "HTTP/0.9")) {
        return party + " does not speak HTTP on this port";
    }
    if (says(cause, "Couldn't connect") || says(cause, "Failed to connect")) {
        return "no connection to " + party + ": nothing listens there, or a firewall refuses";
    }
    return party + ": " + cause;
}

std::string tlsText(const std::string& cause, const std::string& party) {
    // What the TLS library makes of an answer in plain text.
    for (const char* words : {"wrong version number", "packet length too long", "http request"}) {
        if (says(cause, words)) {
            return party + " does not speak TLS on this port";
        }
    }
    return "no secure connection to " + party + ": " + cause;
}

// A limit of silence, or of the system.
std::string timeoutText(const vantik::Message& message, const std::string& party, const Circumstances& known) {
    const std::string option = argumentText(message, 3);
    const bool ofAll = says(option, "weboptions"); // of the older interface, which has one limit for all
    const bool connecting = ofAll ? !known.Sent : says(option, "Connect");
    const std::string seconds = argumentText(message, 1) + " s, the limit ";
    if (connecting) {
        return "no connection to " + party + " for " + seconds + "`connect`";
    }
    if (says(option, "Response") || (ofAll && known.Status == 0)) {
        return "no response from " + party + " for " + seconds + "`response`";
    }
    if (says(option, "Data") || ofAll) {
        return "no data from or to " + party + " for " + seconds + "`data`";
    }
    return "no connection to " + party + " for " + seconds + "of the system";
}

// What went wrong between us and the proxy, or by its decision; empty where the server is meant.
std::string proxyText(const vantik::Message& message, ErrorKind kind, const std::string& cause,
                      const Circumstances& known) {
    if (known.Proxy.empty()) {
        return {};
    }
    const std::string party = "the proxy " + known.Proxy;
    const bool secureTarget = splitUrl(known.Url).Scheme == "https";
    if (says(cause, kTunnelRefused)) {
        const std::string status = cause.substr(cause.rfind(' ') + 1);
        return party + (status == "407" ? " asks for a login" : " did not connect to the server") + ": it answered " +
               status;
    }
    if (says(cause, "Proxy CONNECT aborted")) {
        return party + (says(cause, "timeout") ? " did not connect to the server in time" : " closed the connection");
    }
    if (says(cause, "SOCKS")) {
        return party + ": " + cause;
    }
    if (kind == ErrorKind::Name && known.Proxy.find(argumentText(message, 0)) != std::string::npos) {
        return "no such host: " + party;
    }
    // A connection is one to the proxy, until a tunnel through it has been made.
    const bool itsConnection = !secureTarget || !known.Sent || known.Tunnelling;
    if (kind == ErrorKind::Connect && itsConnection) {
        return connectText(cause, party, known);
    }
    if (kind == ErrorKind::Timeout && itsConnection) {
        return timeoutText(message, party, known);
    }
    // A handshake before anything has gone out is with the proxy; one with the server needs a tunnel. A file of
    // certificates that cannot be used has nothing to do with either.
    if (kind == ErrorKind::Tls && (!secureTarget || !known.Sent) && !says(cause, "error setting certificate")) {
        return tlsText(cause, party);
    }
    return {};
}

std::string textFor(const vantik::Message& message, ErrorKind kind, const std::string& cause,
                    const Circumstances& known) {
    switch (kind) {
    case ErrorKind::Content:
        return message.identifier() == kCopyFailure ? connectText(cause, hostAndPort(known.Url), known) : message.Text;
    case ErrorKind::Connect:
        return connectText(cause.empty() ? message.Text : cause, hostAndPort(known.Url), known);
    case ErrorKind::Name:
        return "no such host: " + splitUrl(known.Url).Host;
    case ErrorKind::Tls:
        return tlsText(cause, hostAndPort(known.Url));
    case ErrorKind::Timeout:
        return timeoutText(message, hostAndPort(known.Url), known);
    default:
        return message.Text;
    }
}

std::vector<Error::Argument> argumentsOf(const vantik::Message& message) {
    std::vector<Error::Argument> arguments;
    for (const vantik::MessageArgument& argument : message.Arguments) {
        const auto* text = std::get_if<std::string>(&argument);
        arguments.push_back(text != nullptr ? Error::Argument(vantik::withoutSecrets(*text))
                                            : Error::Argument(std::get<std::int64_t>(argument)));
    }
    return arguments;
}

// One line that a terminal shows as it is.
std::string shown(const std::string& text) {
    return printable(maskUserInfo(vantik::withoutSecrets(text)));
}

// libcurl's words for a connection that ended early, in words that need no libcurl.
std::string cutText(const std::string& cause) {
    constexpr std::string_view before = "transfer closed with ";
    constexpr std::string_view after = " bytes remaining to read";
    const std::size_t start = cause.find(before);
    if (start == cause.npos) {
        return cause;
    }
    const std::size_t count = start + before.size();
    const std::size_t end = cause.find(after, count);
    return end == cause.npos
               ? "the connection was closed before the last chunk"
               : "the connection was closed " + cause.substr(count, end - count) + " bytes before the end";
}

Error incomplete(const vantik::Message& message, const Circumstances& known) {
    const std::string announced = argumentText(message, 1);
    const bool unknown = announced == "-1" || announced == "0";
    const std::string text = "the content from " + hostAndPort(known.Url) + " is incomplete: " + argumentText(message, 0) +
                             (unknown ? "" : " of " + announced) + " bytes came; " + cutText(causeIn(message));
    return {ErrorKind::Content, std::string(kCutOff), argumentsOf(message), shown(text)};
}

// In the words of the client.
Error described(const vantik::Message& message, ErrorKind kind, const Circumstances& known) {
    const std::string identifier = message.identifier();
    const std::string cause = causeIn(message);
    if (const std::string text = proxyText(message, kind, cause, known); !text.empty()) {
        return {ErrorKind::Proxy, identifier, argumentsOf(message), shown(text)};
    }
    if (identifier == kCutOff) {
        return incomplete(message, known);
    }
    return {kind, identifier, argumentsOf(message), shown(textFor(message, kind, cause, known))};
}

} // namespace

bool isTunnelRefused(const vantik::Message& message) {
    return says(causeIn(message), kTunnelRefused);
}

Error translated(const vantik::Message& original, const Circumstances& known) {
    const std::string identifier = original.identifier();
    const ErrorKind kind =
        identifier == kCopyFailure ? kindOfCopyFailure(argumentText(original, 0)) : kindOf(identifier);
    const vantik::Message message = kind == ErrorKind::Url ? withRefusedUrlMasked(original, known.Url) : original;
    if (known.TotalTimeOver) {
        return clientError(failure::kTotalTime, {}, "not complete within the limit `total`");
    }
    if (known.Interrupted || kind == ErrorKind::Interrupted) {
        return clientError(failure::kInterrupted, {}, "interrupted");
    }
    return described(message, kind, known).withHostText(maskUserInfo(vantik::withoutSecrets(message.Text)));
}

Error statusError(int status, const std::string& reason, const Circumstances& known) {
    const std::string shownUrl = maskUserInfo(known.Url);
    if (status == 407 && !known.Proxy.empty()) {
        return Error(ErrorKind::Proxy, "NETROVE:client:StatusError", {std::int64_t{status}, reason, shownUrl},
                     "the proxy " + known.Proxy + " asks for a login: it answered 407");
    }
    return clientError(failure::kStatusError, {std::int64_t{status}, reason, shownUrl},
                       "the server answered " + std::to_string(status) +
                           (reason.empty() ? "" : " " + printable(reason)) + " for " + shownUrl);
}

} // namespace netrove
