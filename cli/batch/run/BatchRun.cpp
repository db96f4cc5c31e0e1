#include "cli/batch/run/BatchRun.h"

#include "cli/batch/results/BatchDisplay.h"
#include "cli/exchange/RequestOf.h"
#include "cli/system/Signals.h"

#include <netrove/outputfile.h>

#include <chrono>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

namespace netrove::cli {

BatchRun::BatchRun(const Settings& settings, const Console& console, LineSource& lines, BatchJournal* journal,
                   BatchReport& report)
    : TheSettings(settings), TheConsole(console), Lines(lines), Journal(journal), Report(report),
      Schedule(settings.Batch.MostOfHost, {}),
      Workers({.jobs = settings.Batch.Jobs, .perHost = settings.Batch.Jobs}, {},
              [&] { return netrove::networkTransport(networkSettings(settings), warningsTo(console)); }) {}

void BatchRun::run() {
    BatchDisplay display(TheSettings, TheConsole, Report, Live);
    Commit.emplace(Journal, Report, [this](std::exception_ptr reason) { raise(std::move(reason)); });
    std::thread reader([this] { read(); });
    {
        const std::shared_ptr<void> joined(nullptr, [&](void*) {
            startNoMore();
            reader.join();
        });
        std::vector<std::future<void>> workers;
        for (int i = TheSettings.Batch.Jobs; i > 0; --i) {
            // Also of a task that never runs, for want of a client.
            const std::shared_ptr<void> onEnd(nullptr, [this](void*) { Woken.raise(); });
            workers.push_back(Workers.submit("", [this, onEnd](netrove::Client& client) { work(client); }));
        }
        while (someLeft(workers)) {
            if (waitReadable(Woken.descriptor(), display.next()) == Waited::Interrupted) {
                stop(nullptr);
                break;
            }
            Woken.clear();
            display.draw();
        }
        for (const std::future<void>& worker : workers) { // of an interrupted run
            worker.wait();
        }
    }
    Commit.reset(); // what has come whole gets its name, whatever has ended the run
    display.finish();
    if (!FirstFailure) {
        FirstFailure = Raised;
    }
    if (FirstFailure && signalSeen() == 0) {
        std::rethrow_exception(FirstFailure);
    }
}

void BatchRun::read() {
    try {
        for (;;) {
            {
                std::unique_lock lock(Guard);
                RoomCame.wait(lock, [this] { return NoMore || Schedule.wantsMore(); });
                if (NoMore) {
                    return;
                }
            }
            std::optional<BatchLine> line = Lines.next();
            const std::lock_guard lock(Guard);
            if (!line) {
                AllRead = true;
                JobsCame.notify_all();
                return;
            }
            Schedule.add(std::move(*line));
            JobsCame.notify_one();
        }
    } catch (...) {
        raise(std::current_exception());
    }
}

void BatchRun::work(netrove::Client& client) {
    Settings plain = batchSettings(TheSettings, {});
    const BatchTools tools{TheSettings, plain, Journal, Live, Stopped};
    while (std::optional<BatchJob> job = nextJob()) {
        const auto start = Clock::now();
        if (job->Attempts == 0) {
            job->Begun = start;
        }
        BatchAttempt attempt;
        if (isThere(*job)) {
            attempt.Outcome.Abandoned = true;
            Report.skipped(job->Line, {});
        } else {
            attempt = transferLine(client, *job, tools);
        }
        end(std::move(*job), std::move(attempt), Clock::now() - start);
    }
}

std::optional<BatchJob> BatchRun::nextJob() {
    if (enoughFailed()) {
        startNoMore();
    }
    std::unique_lock lock(Guard);
    for (;;) {
        if (NoMore || signalSeen() != 0) {
            return std::nullopt;
        }
        if (std::optional<BatchJob> job = Schedule.take(Clock::now())) {
            if (Schedule.wantsMany()) {
                RoomCame.notify_one();
            }
            return job;
        }
        if (AllRead && Schedule.empty()) {
            JobsCame.notify_all();
            return std::nullopt;
        }
        if (Schedule.running() == 0) {
            Commit->hurry();
        }
        RoomCame.notify_one(); // to look further for a line of another origin
        if (const auto due = Schedule.nextDue()) {
            JobsCame.wait_until(lock, *due);
        } else {
            JobsCame.wait(lock);
        }
    }
}

bool BatchRun::isThere(const BatchJob& job) const {
    return TheSettings.File.SkipExisting && job.Line.Target && job.Attempts == 0 &&
           netrove::fileExists(*job.Line.Target);
}

void BatchRun::end(BatchJob job, BatchAttempt attempt, Clock::duration taken) {
    const bool again = attempt.Again && !attempt.Outcome.Abandoned;
    const std::string origin = job.Origin;
    if (again) {
        Report.tried(job.Line, attempt.Outcome);
    } else {
        report(job, attempt);
    }
    const std::lock_guard lock(Guard);
    if (again) {
        job.Attempts = attempt.Outcome.Attempts;
        Schedule.again(std::move(job), taken, *attempt.Again);
    } else {
        Schedule.ended(origin, taken);
    }
    JobsCame.notify_all();
}

// Of a line whose last attempt has ended. A file is finished with others.
void BatchRun::report(BatchJob& job, BatchAttempt& attempt) {
    const BatchOutcome& outcome = attempt.Outcome;
    if (outcome.Abandoned) {
        return;
    }
    if (!outcome.Failed && attempt.File) {
        return Commit->add({std::move(job.Line), outcome, std::move(attempt.File)});
    }
    if (Journal != nullptr) {
        if (outcome.Failed) {
            Journal->failed(job.Line, outcome.Failed->Message);
        } else {
            Journal->done(job.Line, outcome.Status, outcome.Bytes);
        }
        Journal->flush();
    }
    Report.ended(job.Line, outcome);
}

// Also files that could not be finished count.
bool BatchRun::enoughFailed() const {
    const auto most = TheSettings.Batch.MostFailures;
    return most && Report.totals().Failed >= *most;
}

bool BatchRun::someLeft(std::vector<std::future<void>>& workers) {
    std::exception_ptr raised;
    {
        const std::lock_guard lock(Guard);
        raised = Raised;
    }
    if (raised && !Stopped) {
        stop(raised);
    }
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
    startNoMore();
    Workers.interrupt();
}

void BatchRun::raise(std::exception_ptr reason) {
    {
        const std::lock_guard lock(Guard);
        if (!Raised) {
            Raised = std::move(reason);
        }
    }
    Woken.raise();
}

void BatchRun::startNoMore() {
    const std::lock_guard lock(Guard);
    NoMore = true;
    JobsCame.notify_all();
    RoomCame.notify_all();
    Lines.stop();
}

} // namespace netrove::cli
