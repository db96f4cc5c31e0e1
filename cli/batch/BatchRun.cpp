#include "cli/batch/BatchRun.h"

#include "cli/batch/BatchDisplay.h"
#include "cli/exchange/RequestOf.h"
#include "cli/system/Signals.h"

#include <chrono>
#include <memory>
#include <optional>
#include <utility>

namespace netrove::cli {

BatchRun::BatchRun(const Settings& settings, const Console& console, LineSource& lines, BatchJournal* journal,
                   BatchReport& report)
    : TheSettings(settings), TheConsole(console), Lines(lines), Journal(journal), Report(report),
      Workers({.jobs = settings.Batch.Jobs, .perHost = settings.Batch.Jobs}, {},
              [&] { return netrove::networkTransport(networkSettings(settings), warningsTo(console)); }) {}

void BatchRun::run() {
    BatchDisplay display(TheSettings, TheConsole, Report, Live);
    std::vector<std::future<void>> workers;
    for (int i = TheSettings.Batch.Jobs; i > 0; --i) {
        // Also if there is no client for it, and it never runs.
        const std::shared_ptr<void> onEnd(nullptr, [this](void*) { WorkerLeft.raise(); });
        workers.push_back(Workers.submit("", [this, onEnd](netrove::Client& client) { work(client); }));
    }
    while (someLeft(workers)) {
        if (waitReadable(WorkerLeft.descriptor(), display.next()) == Waited::Interrupted) {
            stop(nullptr);
            break;
        }
        WorkerLeft.clear();
        display.draw();
    }
    for (const std::future<void>& worker : workers) { // of an interrupted run
        worker.wait();
    }
    display.finish();
    if (FirstFailure && signalSeen() == 0) {
        std::rethrow_exception(FirstFailure);
    }
}

void BatchRun::work(netrove::Client& client) {
    const BatchTools tools{TheSettings, Journal, Live, Stopped};
    while (!Stopped && signalSeen() == 0) {
        const std::optional<BatchLine> line = takeLine();
        if (!line) {
            return;
        }
        const BatchOutcome outcome = transferLine(client, *line, tools);
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

} // namespace netrove::cli
