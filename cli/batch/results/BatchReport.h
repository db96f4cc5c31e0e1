// What a run reports: one JSON line for each transfer on standard output, progress and a summary for people.
#pragma once

#include "cli/batch/journal/BatchHistory.h"
#include "cli/batch/manifest/BatchManifest.h"
#include "cli/batch/results/BatchOutcome.h"
#include "cli/batch/results/FailureList.h"
#include "cli/exchange/BodySink.h"
#include "cli/report/ReportFile.h"
#include "cli/report/RunReport.h"
#include "cli/terminal/Output.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace netrove::cli {

struct BatchTotals {
    std::size_t All = 0; // of this shard
    std::size_t Done = 0;
    std::size_t Failed = 0;
    std::size_t Skipped = 0; // done by an earlier run
    std::uint64_t Bytes = 0; // received and kept by this run
    std::chrono::duration<double> Elapsed{};
    bool Open = false; // All is what is known so far: more lines may come

    std::size_t left() const { return All - Done - Failed - Skipped; }
};

// "98 done, 1 failed, 1 done before; 12.3 MiB in 3 s".
std::string summaryText(const BatchTotals& totals);
// One line for a log.
std::string batchProgressText(const BatchTotals& totals, std::size_t running);
struct EndedTransfer {
    const BatchLine& Line;
    const BatchOutcome& Outcome;
};

// Callable from any thread.
class BatchReport {
public:
    // Raises FileNotWritten if one of the files that the settings name could not be written. `shard`: "2/8", or empty.
    BatchReport(const Settings& settings, const Console& console, std::size_t all, const std::string& shard);

    // Whether results are lines on standard output, as programs want them; otherwise people see failures only.
    bool printsLines() const { return Lines; }

    // There is one more to do than was known.
    void expectOneMore();
    // An attempt after which the line is to be tried again.
    void tried(const BatchLine& line, const BatchOutcome& outcome);
    // Each counts the line, prints it where lines are wanted, and a failure on standard error as well. They raise
    // FileNotWritten if standard output can no longer be written.
    void ended(std::span<const EndedTransfer> transfers);
    void ended(const BatchLine& line, const BatchOutcome& outcome) { ended({{{line, outcome}}}); }
    void skipped(const BatchLine& line, const BatchHistory::Ended& ended);
    void planned(const BatchLine& line);

    BatchTotals totals() const;
    // "2 x the server answered 404 Not Found, 1 x connection refused by HOST:PORT"; empty without a failure.
    std::string causes() const;
    // When the reports that are of use during a run are to be written again; nothing: never.
    std::optional<std::chrono::steady_clock::time_point> nextLive() const;
    void writeLive(std::size_t running);
    // Writes what the settings name. Raises FileNotWritten.
    void finish(const std::string& stopped);
    // 0 without a failure; the exit status that all failures share; otherwise that of "any other failure".
    int exitStatus() const;

private:
    void take(const BatchLine& line, const BatchOutcome& outcome);
    void print(const std::vector<std::string>& lines);
    void print(const std::string& text);
    RunFacts facts() const;
    double secondsAt(Clock::time_point time) const { return std::chrono::duration<double>(time - Start).count(); }
    void tell(const BatchLine& line, const vantik::Message& message, std::size_t count) const;

    const Console& TheConsole;
    bool Lines;
    bool TellsFailures;
    BodySink OutputSink;
    std::chrono::steady_clock::time_point Start;
    mutable std::mutex Guard; // of what follows, and of the order of lines
    BatchTotals Totals;
    std::map<int, std::size_t> FailuresByStatus; // exit status
    RunFacts Facts;                              // its counts are those of Totals
    std::optional<FailureList> Failures;
    std::vector<ReportFile> Reports;
    std::chrono::steady_clock::time_point NextLive;
};

} // namespace netrove::cli
