#include "cli/batch/results/BatchReport.h"

#include "cli/batch/results/ResultLine.h"
#include "cli/failures/CliFailure.h"
#include "cli/terminal/Progress.h"

#include <netrove/url.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <poll.h>
#include <unistd.h>
#include <utility>

namespace netrove::cli {

namespace {

constexpr std::size_t kBarWidth = 20;
constexpr std::chrono::seconds kLiveInterval{15}; // as often as such files are read
constexpr std::size_t kNamedCauses = 5;           // in the summary
constexpr std::size_t kToldOfEachCause = 10;      // on a terminal, where more would scroll everything else away

// What the time went to, of a line of which Start and End are known.
void addTimes(EndedLine& line, const BatchOutcome& outcome) {
    const std::chrono::duration<double> attempt = outcome.Ended.value_or(outcome.Began) - outcome.Began;
    line.LastStart = line.End - attempt.count();
    const double request = outcome.Request.count();
    const double head = outcome.UntilHead.count() > 0 ? outcome.UntilHead.count() : request;
    line.Spent[std::size_t(Phase::Before)] = std::max(outcome.Time.count() - request, 0.0);
    line.Spent[std::size_t(Phase::Head)] = head;
    line.Spent[std::size_t(Phase::Content)] = request - head;
}

std::string count(std::size_t number, const char* what) {
    return std::to_string(number) + " " + what;
}

} // namespace

std::string summaryText(const BatchTotals& totals) {
    std::string text = count(totals.Done, "done");
    if (totals.Failed != 0) {
        text += ", " + count(totals.Failed, "failed");
    }
    if (totals.Skipped != 0) {
        text += ", " + count(totals.Skipped, "done before");
    }
    if (totals.left() != 0) {
        text += ", " + count(totals.left(), "left");
    }
    return text + "; " + sizeText(totals.Bytes) + " in " + durationText(totals.Elapsed);
}

std::string batchProgressText(const BatchTotals& totals, std::size_t running) {
    const std::size_t over = totals.All - totals.left();
    const std::size_t filled = totals.All == 0 ? kBarWidth : kBarWidth * over / totals.All;
    std::string text = "[" + std::string(filled, '#') + std::string(kBarWidth - filled, '.') + "] " +
                       std::to_string(over) + " of " + std::to_string(totals.All);
    if (totals.Failed != 0) {
        text += ", " + count(totals.Failed, "failed");
    }
    text += ", " + count(running, "running") + ", " + sizeText(totals.Bytes);
    const double rate = totals.Elapsed.count() > 0 ? static_cast<double>(totals.Bytes) / totals.Elapsed.count() : 0;
    if (rate >= 1) {
        text += ", " + sizeText(static_cast<std::uint64_t>(rate)) + "/s";
    }
    return text + ", " + durationText(totals.Elapsed);
}

BatchReport::BatchReport(const Settings& settings, const Console& console, std::size_t all, const std::string& shard)
    : TheConsole(console),
      // The parts of a run may share a terminal, which Open MPI makes for each: one display would draw over another.
      Lines(settings.Batch.DryRun || settings.json() ||
            (settings.Format != OutputFormat::Text && !(console.outIsTerminal() && shard.empty()))),
      TellsFailures(!settings.JsonErrors && !settings.json() && !settings.hidesFailures()),
      OutputSink(STDOUT_FILENO, "standard output", false, std::nullopt), Start(std::chrono::steady_clock::now()) {
    Totals.All = all;
    const BatchSettings& batch = settings.Batch;
    if (batch.DryRun) {
        return;
    }
    Facts.Version = NETROVE_VERSION;
    Facts.Command = console.masked(batch.CommandLine);
    Facts.Manifest = batch.Manifest == "-" ? "standard input" : batch.Manifest;
    Facts.Shard = shard;
    Facts.Jobs = batch.Jobs;
    Facts.MostOfHost = std::min(batch.Jobs, batch.MostOfHost);
    Facts.Start = std::chrono::system_clock::now();
    if (!batch.Failures.empty()) {
        Failures.emplace(batch.Failures);
    }
    for (const std::string& name : batch.Reports) {
        Reports.emplace_back(name);
    }
    writeLive(0);
}

void BatchReport::expectOneMore() {
    const std::lock_guard lock(Guard);
    ++Totals.All;
    Totals.Open = true;
}

void BatchReport::tried(const BatchLine& line, const BatchOutcome& outcome) {
    if (Reports.empty()) {
        return;
    }
    const std::string url = TheConsole.masked(line.Url);
    const std::lock_guard lock(Guard);
    Facts.Figures.addAttempt(url, secondsAt(outcome.Began), secondsAt(outcome.Ended.value_or(outcome.Began)));
}

void BatchReport::ended(std::span<const EndedTransfer> transfers) {
    std::vector<std::string> texts;
    for (const EndedTransfer& transfer : transfers) {
        if (Lines) {
            texts.push_back(resultLine(transfer.Line, transfer.Outcome, TheConsole) + "\n");
        }
    }
    const std::lock_guard lock(Guard);
    for (const auto& [line, outcome] : transfers) {
        take(line, outcome);
    }
    print(texts);
}

void BatchReport::take(const BatchLine& line, const BatchOutcome& outcome) {
    std::size_t alike = 0;
    std::string cause;
    if (outcome.Failed || !Reports.empty()) { // nobody asks for the figures of the others
        EndedLine figures{.Number = line.Number,
                          .Url = TheConsole.masked(line.Url),
                          .Status = outcome.Status,
                          .Bytes = outcome.Bytes,
                          .Attempts = outcome.Attempts};
        figures.End = std::chrono::duration<double>(outcome.Ended.value_or(Clock::now()) - Start).count();
        figures.Start = figures.End - outcome.Time.count();
        if (outcome.Failed) {
            figures.Failed = causeOf(outcome.Failed->Message, line.Url);
            cause = figures.Failed->text();
        }
        addTimes(figures, outcome);
        alike = Facts.Figures.add(figures);
    }
    if (!outcome.Failed) {
        ++Totals.Done;
        Totals.Bytes += outcome.Bytes;
        return;
    }
    ++Totals.Failed;
    ++FailuresByStatus[outcome.Failed->Status];
    tell(line, outcome.Failed->Message, alike);
    if (Failures) {
        Failures->add(line, cause, outcome.Failed->Status != kExitUsage);
    }
}

void BatchReport::skipped(const BatchLine& line, const BatchHistory::Ended& ended) {
    std::vector<std::string> texts;
    if (Lines) {
        texts.push_back(plainLine(line, "skipped", &ended) + "\n");
    }
    const std::lock_guard lock(Guard);
    ++Totals.Skipped;
    print(texts);
}

void BatchReport::planned(const BatchLine& line) {
    const std::lock_guard lock(Guard);
    print(std::vector{plainLine(line, "planned", nullptr) + "\n"});
}

// As many lines at a time as a pipe takes at once, so that none is cut in two.
void BatchReport::print(const std::vector<std::string>& lines) {
    std::string piece;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        piece += lines[i];
        if (i + 1 == lines.size() || piece.size() + lines[i + 1].size() > PIPE_BUF) {
            print(std::exchange(piece, {}));
        }
    }
}

void BatchReport::print(const std::string& text) {
    const std::string_view first = TheConsole.outIsTerminal() ? TheConsole.removesDisplay() : "";
    // The next lines may come on another thread.
    const std::shared_ptr<void> turn(nullptr, [this](void*) { OutputSink.endTurn(); });
    try {
        OutputSink.write(std::string(first) + text);
    } catch (const vantik::Interrupted&) {
        // After a signal nobody is waited for; where lines are lost, the journal has the transfers.
        pollfd entry{STDOUT_FILENO, POLLOUT, 0};
        if (text.size() <= PIPE_BUF && poll(&entry, 1, 0) > 0) {
            [[maybe_unused]] const bool written = writeAll(STDOUT_FILENO, text);
        }
    }
}

void BatchReport::tell(const BatchLine& line, const vantik::Message& message, std::size_t count) const {
    if (!TellsFailures) {
        return;
    }
    if (Lines || count <= kToldOfEachCause) {
        consoleFor(line, TheConsole).failureOf("line " + std::to_string(line.Number), message);
    }
    if (!Lines && count == kToldOfEachCause) {
        TheConsole.note("further failures like these are counted only");
    }
}

std::string BatchReport::causes() const {
    const std::lock_guard lock(Guard);
    return causesText(Facts.Figures.causes().sorted(), kNamedCauses);
}

RunFacts BatchReport::facts() const {
    const BatchTotals now = totals();
    const std::lock_guard lock(Guard);
    RunFacts result = Facts;
    result.Seconds = now.Elapsed.count();
    result.All = now.All;
    result.Done = now.Done;
    result.Failed = now.Failed;
    result.Skipped = now.Skipped;
    result.Bytes = now.Bytes;
    return result;
}

std::optional<std::chrono::steady_clock::time_point> BatchReport::nextLive() const {
    const bool any = std::any_of(Reports.begin(), Reports.end(), [](const ReportFile& file) { return file.isLive(); });
    return any ? std::optional(NextLive) : std::nullopt;
}

void BatchReport::writeLive(std::size_t running) {
    NextLive = std::chrono::steady_clock::now() + kLiveInterval;
    if (!nextLive()) {
        return;
    }
    RunFacts now = facts();
    now.Over = false;
    now.Running = running;
    for (const ReportFile& file : Reports) {
        if (file.isLive()) {
            file.write(now);
        }
    }
}

void BatchReport::finish(const std::string& stopped) {
    if (Failures) {
        Failures->keep();
    }
    if (Reports.empty()) {
        return;
    }
    RunFacts now = facts();
    now.Stopped = stopped;
    for (const ReportFile& file : Reports) {
        file.write(now);
    }
}

BatchTotals BatchReport::totals() const {
    const std::lock_guard lock(Guard);
    BatchTotals result = Totals;
    result.Elapsed = std::chrono::steady_clock::now() - Start;
    return result;
}

int BatchReport::exitStatus() const {
    const std::lock_guard lock(Guard);
    if (FailuresByStatus.empty()) {
        return kExitDone;
    }
    return FailuresByStatus.size() == 1 ? FailuresByStatus.begin()->first : int{kExitFailure};
}

} // namespace netrove::cli
