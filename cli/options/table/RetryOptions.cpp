#include "cli/options/table/OptionGroups.h"
#include "cli/options/table/OptionValues.h"

namespace netrove::cli {

namespace {

// clang-format off
const OptionRow kRetryOptions[] = {
    {"retry", 0, "N", kTransfers, "retry up to N times if the cause may pass: timeouts, failed connections, incomplete content, status 408, 425, 429, 500, 502, 503, 504 and 520 to 524. Content that broke off goes on, where the server can prove that it is the same (default 0)",
     [](S& s, V v) { s.Retry.Count = number<int>("retry", v, 0, 1000); }, {.Common = kTransfers}},
    {"retry-wait", 0, "S", kTransfers, "most seconds before the first retry, doubled for each further one; the wait is a random part of that, or what a server's Retry-After says (default 1)",
     [](S& s, V v) { s.Retry.Wait = seconds("retry-wait", v, 0, kLongestSeconds); }, {.OtherNames = "retry-delay"}},
    {"retry-max-wait", 0, "S", kTransfers, "longest wait before a retry in seconds; a Retry-After beyond it ends the retries (default 300)",
     [](S& s, V v) { s.Retry.LongestWait = seconds("retry-max-wait", v, 0, kLongestSeconds); }},
    {"retry-max-time", 0, "S", kTransfers, "begin no retry later than so many seconds after the start (with batch, of its line), 0 for no limit (default 0)",
     [](S& s, V v) { s.Retry.MaxTime = seconds("retry-max-time", v, 0, kLongestSeconds); }},
    {"retry-unsafe", 0, "", kTransfers, "also retry what may then be done twice: methods such as POST and PATCH once the request has gone out",
     [](S& s, V) { s.Retry.Unsafe = true; }},
    {"retry-all-errors", 0, "", kTransfers, "retry whatever the failure of the server or of the way to it",
     [](S& s, V) { s.Retry.AllErrors = true; }},
};
// clang-format on

} // namespace

std::span<const OptionRow> retryOptions() {
    return kRetryOptions;
}

} // namespace netrove::cli
