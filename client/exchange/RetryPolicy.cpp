#include "client/exchange/RetryPolicy.h"

#include "client/failures/ClientFailure.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <string>
#include <vector>

namespace netrove {

namespace {

constexpr std::string_view kIdempotentMethods[] = {"GET", "HEAD", "PUT", "DELETE", "OPTIONS", "TRACE"};

// A server that is too busy says how long for; without that, too much content is too much forever.
constexpr int kOnlyWithRetryAfter = 413;

bool isTransientStatus(int status, const Response& response, const Request& requested) {
    const std::vector<int>& statuses = *requested.retry.statuses;
    return std::find(statuses.begin(), statuses.end(), status) != statuses.end() ||
           (status == kOnlyWithRetryAfter && response.fields.contains("Retry-After"));
}

// Another attempt would end in the same way.
bool isFinal(const Error& failed) {
    switch (failed.kind()) {
    case ErrorKind::Url:
    case ErrorKind::Interrupted:
    case ErrorKind::File:
    case ErrorKind::Usage:
        return true;
    case ErrorKind::Timeout:
        return failed.identifier() == "NETROVE:client:TotalTime";
    case ErrorKind::Content:
        return failed.identifier() == "NETROVE:client:ContentTooLarge";
    default:
        return false;
    }
}

// An unknown host may be one whose name server did not answer: the library cannot tell the difference.
bool mayPass(const Error& failed, const Request& requested) {
    switch (failed.kind()) {
    case ErrorKind::Status:
        return isTransientStatus(failed.response().status, failed.response(), requested);
    case ErrorKind::Name:
    case ErrorKind::Connect:
        return true;
    case ErrorKind::Proxy:
        return failed.response().status == 0 ||
               isTransientStatus(failed.response().status, failed.response(), requested);
    case ErrorKind::Timeout:
        return failed.identifier() != "NETROVE:client:TotalTime";
    case ErrorKind::Content:
        return failed.identifier() == "NETROVE:client:Incomplete" ||
               failed.identifier() == "VANTIK:webservices:PartialFileWarning";
    default:
        return false;
    }
}

} // namespace

bool isIdempotent(std::string_view method) {
    return std::find(std::begin(kIdempotentMethods), std::end(kIdempotentMethods), method) !=
           std::end(kIdempotentMethods);
}

std::optional<Limit> RetryPolicy::waitAfter(int attempts, const Request& requested, const Error& failed,
                                            Limit left) const {
    const Retry& retry = requested.retry;
    if (attempts >= *retry.attempts || !(*retry.any ? !isFinal(failed) : mayPass(failed, requested))) {
        return std::nullopt;
    }
    if (!*retry.unsafe && failed.sent() && !isIdempotent(requested.method)) {
        return std::nullopt;
    }
    if (requested.body && !requested.body.repeatable()) {
        return std::nullopt;
    }
    const double longest = std::chrono::duration<double>(*retry.longestWait).count();
    double seconds = 0;
    if (const auto asked = parseRetryAfter(failed.response().fields["Retry-After"], Now())) {
        if (*asked > longest || (left >= Limit::zero() && *asked > std::chrono::duration<double>(left).count())) {
            const std::string shown = std::to_string(std::llround(*asked));
            throw clientError(failure::kRetryTooLate, {static_cast<std::int64_t>(std::llround(*asked))},
                              std::string(failed.what()) + "; it asks to be left alone for " + shown + " s")
                .with(failed.response(), failed.sent());
        }
        seconds = *asked;
    } else {
        // Many clients that failed at once must not come back at once.
        const double first = std::chrono::duration<double>(*retry.wait).count();
        seconds = std::min(std::ldexp(first, std::min(attempts - 1, 60)), longest) * Random();
    }
    return Limit(std::llround(seconds * 1000));
}

} // namespace netrove
