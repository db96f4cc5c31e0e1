#include "cli/options/table/OptionGroups.h"
#include "cli/options/table/OptionValues.h"

namespace netrove::cli {

namespace {

// clang-format off
const OptionRow kOptions[] = {
    {"retry", 0, "N", kBatch, "retry up to N times if the cause may pass: timeouts, failed connections, incomplete content, status 408, 429, 500, 502, 503 and 504 (default 0)",
     [](S& s, V v) { s.Batch.Retries = number<int>("retry", v, 0, 1000); }, {.Common = kTransfers}},
    {"retry-wait", 0, "S", kBatch, "most seconds before the first retry, doubled for each further one; the wait is a random part of that, or what a server's Retry-After says (default 1)",
     [](S& s, V v) { s.Batch.RetryWait = seconds("retry-wait", v, 0, kLongestSeconds); }},
    {"retry-max-wait", 0, "S", kBatch, "longest wait before a retry in seconds; a Retry-After beyond it ends the retries (default 300)",
     [](S& s, V v) { s.Batch.LongestRetryWait = seconds("retry-max-wait", v, 0, kLongestSeconds); }},
    {"retry-unsafe", 0, "", kBatch, "also retry what may then be done twice: methods such as POST and PATCH once the request has gone out",
     [](S& s, V) { s.Batch.RetryUnsafe = true; }},
};
// clang-format on

} // namespace

std::span<const OptionRow> retryOptions() {
    return kOptions;
}

} // namespace netrove::cli
