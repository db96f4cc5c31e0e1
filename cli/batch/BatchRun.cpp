#include "cli/batch/BatchRun.h"

#include "cli/exchange/RequestOf.h"
#include "cli/system/Signals.h"
#include "cli/terminal/Progress.h"

#include <algorithm>
#include <optional>
#include <unistd.h>
#include <utility>

namespace netrove::cli {

namespace {

int workerCount(const Settings& settings, const std::vector<BatchLine>& lines) {
    return static_cast<int>(std::min(lines.size(), static_cast<std::size_t>(settings.Batch.Jobs)));
}

} // namespace

BatchRun::BatchRun(const Settings& settings, const Console& console, const std::vector<BatchLine>& lines,
                   BatchJournal* journal, BatchReport& report)
    : TheSettings(settings), TheConsole(console), Lines(lines), Journal(journal), Report(report),
      Workers({.jobs = workerCount(settings, lines), .perHost = settings.Batch.Jobs}, {},
              [&] { return netrove::networkTransport(networkSettings(settings), warningsTo(console)); }) {}

void BatchRun::run() {
    // On a terminal the lines on standard output say enough.
    const bool shown = TheSettings.Progress.value_or(TheConsole.errIsTerminal() && !TheConsole.outIsTerminal());
    const auto interval = progressInterval(TheConsole.errIsTerminal());
    WorkersLeft = static_cast<std::size_t>(workerCount(TheSettings, Lines));
    std::vector<std::future<void>> workers;
    for (std::size_t i = WorkersLeft; i > 0; --i) {
        workers.push_back(Workers.submit("", [this](netrove::Client& client) { work(client); }));
    }
    while (WorkersLeft != 0) {
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
    for (std::future<void>& worker : workers) {
        try {
            worker.get();
        } catch (...) { // a client that cannot be made; with another reason to stop, one that has been dropped
            stop(std::current_exception());
        }
    }
    if (shown) {
        draw(true);
    }
    if (FirstFailure && signalSeen() == 0) {
        std::rethrow_exception(FirstFailure);
    }
}

void BatchRun::work(netrove::Client& client) {
    try {
        const BatchTools tools{TheSettings, Journal, LiveBytes, Stopped};
        while (!Stopped && signalSeen() == 0) {
            const std::size_t place = NextLine++;
            if (place >= Lines.size()) {
                break;
            }
            ++RunningTransfers;
            const BatchOutcome outcome = transferLine(client, Lines[place], tools);
            --RunningTransfers;
            if (outcome.Abandoned) {
                break;
            }
            Report.ended(Lines[place], outcome);
        }
    } catch (...) {
        stop(std::current_exception());
    }
    --WorkersLeft;
    WorkerLeft.raise();
}

void BatchRun::stop(std::exception_ptr reason) {
    {
        const std::lock_guard lock(Guard);
        if (!FirstFailure) {
            FirstFailure = std::move(reason);
        }
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
