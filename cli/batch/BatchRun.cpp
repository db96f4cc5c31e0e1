#include "cli/batch/BatchRun.h"

#include "cli/exchange/RequestOf.h"
#include "cli/system/Signals.h"
#include "cli/terminal/Progress.h"

#include <chrono>
#include <memory>
#include <optional>
#include <unistd.h>
#include <utility>

namespace netrove::cli {

BatchRun::BatchRun(const Settings& settings, const Console& console, LineSource& lines, BatchJournal* journal,
                   BatchReport& report)
    : TheSettings(settings), TheConsole(console), Lines(lines), Journal(journal), Report(report),
      Workers({.jobs = settings.Batch.Jobs, .perHost = settings.Batch.Jobs}, {},
              [&] { return netrove::networkTransport(networkSettings(settings), warningsTo(console)); }) {}

void BatchRun::run() {
    // On a terminal the lines on standard output say enough.
    const bool shown = TheSettings.Progress.value_or(TheConsole.errIsTerminal() && !TheConsole.outIsTerminal());
    const auto interval = progressInterval(TheConsole.errIsTerminal());
    std::vector<std::future<void>> workers;
    for (int i = TheSettings.Batch.Jobs; i > 0; --i) {
        // Also if there is no client for it, and it never runs.
        const std::shared_ptr<void> onEnd(nullptr, [this](void*) { WorkerLeft.raise(); });
        workers.push_back(Workers.submit("", [this, onEnd](netrove::Client& client) { work(client); }));
    }
    while (someLeft(workers)) {
        const auto next = shown ? std::optional(Clock::now() + interval) : std::nullopt;
        if (waitReadable(WorkerLeft.descriptor(), next) == Waited::Interrupted) {
            stop(nullptr);
            break;
        }
        WorkerLeft.clear();
        if (shown) {
            draw(false);
        }
    }
    for (const std::future<void>& worker : workers) { // of an interrupted run
        worker.wait();
    }
    if (shown) {
        draw(true);
    }
    if (FirstFailure && signalSeen() == 0) {
        std::rethrow_exception(FirstFailure);
    }
}

void BatchRun::work(netrove::Client& client) {
    const BatchTools tools{TheSettings, Journal, LiveBytes, Stopped};
    while (!Stopped && signalSeen() == 0) {
        const std::optional<BatchLine> line = takeLine();
        if (!line) {
            return;
        }
        ++RunningTransfers;
        const BatchOutcome outcome = transferLine(client, *line, tools);
        --RunningTransfers;
        if (outcome.Abandoned) {
            return;
        }
        Report.ended(*line, outcome);
    }
}

std::optional<BatchLine> BatchRun::takeLine() {
    const std::lock_guard lock(TakingLine);
    return Lines.next();
}

bool BatchRun::someLeft(std::vector<std::future<void>>& workers) {
    std::erase_if(workers, [this](std::future<void>& worker) {
        if (worker.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
            return false;
        }
        try {
            worker.get();
        } catch (...) { // where there is another reason to stop, one that has not begun
            stop(std::current_exception());
        }
        return true;
    });
    return !workers.empty();
}

void BatchRun::stop(std::exception_ptr reason) {
    if (!FirstFailure) {
        FirstFailure = std::move(reason);
    }
    Stopped = true;
    Workers.interrupt();
}

void BatchRun::draw(bool last) {
    BatchTotals totals = Report.totals();
    totals.Bytes += LiveBytes;
    const bool terminal = TheConsole.errIsTerminal();
    const std::size_t width = progressWidth(terminal);
    const std::string text = batchProgressText(totals, RunningTransfers.load(), width);
    const std::string drawn = terminal ? "\r" + text + "\033[K" + (last ? "\n" : "") : text + "\n";
    [[maybe_unused]] const bool written = writeAll(STDERR_FILENO, drawn);
}

} // namespace netrove::cli
