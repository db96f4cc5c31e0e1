#include "cli/options/ReportName.h"
#include "cli/options/table/OptionGroups.h"
#include "cli/options/table/OptionValues.h"

namespace netrove::cli {

namespace {

constexpr int kMostJobs = 64;
constexpr std::uint64_t kMostFailures = 1'000'000'000;

// clang-format off
const OptionRow kBatchOptions[] = {
    {"jobs", 'j', "N", kBatch, "transfers at a time, 1 to 64 (default 4)",
     [](S& s, V v) { s.Batch.Jobs = number<int>("jobs", v, 1, kMostJobs); }, {.OtherNames = "max-threads max-concurrent-downloads", .Common = kBatch}},
    {"max-failures", 0, "N", kBatch, "begin no further transfer once N have failed",
     [](S& s, V v) { s.Batch.MostFailures = number<std::uint64_t>("max-failures", v, 1, kMostFailures); }},
    {"shard", 0, "I/N", kBatch, "do part I of N of the manifest, counted from 1; by default what Slurm, Open MPI or GNU parallel say, if anything. 1/1 does everything",
     [](S& s, V v) { s.Batch.Shard = nonEmpty("shard", v); }},
    {"journal", 0, "FILE", kBatch, "record in this file what is done, so that a stopped run can be resumed; shards add their number (default: MANIFEST.journal)",
     [](S& s, V v) { s.Batch.Journal = nonEmpty("journal", v); }, {.Common = kBatch}},
    {"no-journal", 0, "", kBatch, "keep no journal and do every line",
     [](S& s, V) { s.Batch.NoJournal = true; }},
    {"failures", 0, "FILE", kBatch, "write the lines that fail into a manifest of their own, with their causes as comments",
     [](S& s, V v) { s.Batch.Failures = nonEmpty("failures", v); }},
    {"report", 0, "FILE", kBatch, "write a report of the run: a page (.html), a summary (.json) or metrics for Prometheus (.prom), by the ending of the name. Repeatable",
     [](S& s, V v) { reportForm(v); s.Batch.Reports.push_back(v); }},
    {"dry-run", 0, "", kBatch, "check the manifest and print what would be done",
     [](S& s, V) { s.Batch.DryRun = true; }, {.Common = kBatch}},
};
// clang-format on

} // namespace

std::span<const OptionRow> batchOptions() {
    return kBatchOptions;
}

} // namespace netrove::cli
