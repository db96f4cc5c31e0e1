// More than one URL in a call.
#include "cli/options/table/OptionGroups.h"
#include "cli/options/table/OptionValues.h"

#include <algorithm>

namespace netrove::cli {

namespace {

constexpr int kMostParallel = 300;
constexpr int kMostJobs = 64; // of batch

// clang-format off
const OptionRow kSeveralOptions[] = {
    {"url", 0, "URL", kSingle, "one more URL; those of this option come before the others. Repeatable with get and save",
     [](S& s, V v) { s.Urls.push_back(v); }},
    {"remote-name", 'O', "", kGet | kSave, "write the content of a URL to a file with the name that is in the URL, replacing an existing one; with -o and -O, the first is for the first URL, and so on. No effect with save, which does that anyway",
     [](S& s, V) { s.Outputs.emplace_back(std::nullopt); }},
    {"remote-name-all", 0, "", kGet | kSave, "the same for every URL that has no -o",
     [](S& s, V) { s.RemoteNames = true; }},
    {"parallel", 'Z', "", kGet | kSave, "do the transfers of several URLs at the same time. What goes to standard output comes one after the other",
     [](S& s, V) { s.Parallel = true; }, {.Common = kGet | kSave}},
    {"parallel-max", 0, "N", kGet | kSave | kBatch, "transfers at a time with --parallel, 1 to 300 (default 50); with batch the same as --jobs, and 64 at most",
     [](S& s, V v) { s.ParallelMax = number<int>("parallel-max", v, 1, kMostParallel); s.Batch.Jobs = std::min(s.ParallelMax, kMostJobs); }},
    {"parallel-max-host", 0, "N", kGet | kSave | kBatch, "transfers at a time with one host and port (default 8 with batch, otherwise no limit of its own)",
     [](S& s, V v) { s.ParallelMaxHost = s.Batch.MostOfHost = number<int>("parallel-max-host", v, 1, kMostParallel); }},
    {"fail-early", 0, "", kGet | kSave, "of several URLs, stop at the first that fails",
     [](S& s, V) { s.FailEarly = true; }},
};
// clang-format on

} // namespace

std::span<const OptionRow> severalOptions() {
    return kSeveralOptions;
}

} // namespace netrove::cli
