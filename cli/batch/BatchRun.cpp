#include "cli/batch/BatchRun.h"

#include "cli/exchange/Session.h"
#include "cli/system/Signals.h"

#include <algorithm>
#include <optional>
#include <random>
#include <unistd.h>
#include <utility>

namespace netrove::cli {

namespace {

using namespace std::chrono_literals;

RetrySettings retrySettings(const BatchSettings& batch) {
    return {batch.Retries, batch.RetryWait, batch.LongestRetryWait, batch.RetryUnsafe};
}

double randomShare() {
    thread_local std::minstd_rand engine(std::random_device{}());
    return std::uniform_real_distribution<double>(0, 1)(engine);
}

} // namespace

BatchRun::BatchRun(const Settings& settings, const Console& console, const std::vector<BatchLine>& lines,
                   BatchJournal* journal, BatchReport& report)
    : TheSettings(settings), TheConsole(console), Lines(lines), Journal(journal), Report(report),
      Policy(retrySettings(settings.Batch), randomShare, [] { return WallClock::now(); }),
      LiveBytes(std::min(lines.size(), static_cast<std::size_t>(settings.Batch.Jobs))) {}

BatchRun::~BatchRun() {
    stop(nullptr);
    for (std::thread& thread : Threads) {
        thread.join();
    }
}

void BatchRun::run() {
    // On a terminal the lines on standard output say enough.
    const bool shown = TheSettings.Progress.value_or(TheConsole.errIsTerminal() && !TheConsole.outIsTerminal());
    const auto interval = progressInterval(TheConsole.errIsTerminal());
    WorkerCount = LiveBytes.size();
    for (std::atomic<std::uint64_t>& liveBytes : LiveBytes) {
        try {
            Threads.emplace_back([this, &liveBytes] { work(liveBytes); });
        } catch (const std::system_error&) {
            // Fewer threads than wanted do the same work; without any, nobody does.
            const std::lock_guard lock(Guard);
            WorkerCount -= LiveBytes.size() - Threads.size();
            if (Threads.empty()) {
                throw;
            }
            break;
        }
    }
    const auto over = [this] {
        const std::lock_guard lock(Guard);
        return WorkerCount == 0;
    };
    while (!over()) {
        const auto next = shown ? std::optional(Clock::now() + interval) : std::nullopt;
        if (waitReadable(WorkerLeft.descriptor(), next) == Waited::Interrupted) {
            break;
        }
        WorkerLeft.clear();
        if (shown) {
            draw(false);
        }
    }
    if (signalSeen() != 0) {
        stop(nullptr);
    }
    for (std::thread& thread : Threads) {
        thread.join();
    }
    Threads.clear();
    if (shown) {
        draw(true);
    }
    if (FirstFailure) {
        std::rethrow_exception(FirstFailure);
    }
}

void BatchRun::work(std::atomic<std::uint64_t>& liveBytes) {
    std::unique_ptr<Session> session;
    try {
        session = std::make_unique<Session>();
        {
            const std::lock_guard lock(Guard);
            Hosts.insert(&session->Host);
        }
        session->load();
        session->reportWarnings(TheConsole);
        workThrough(*session, liveBytes);
    } catch (...) {
        stop(std::current_exception());
    }
    if (session) {
        const std::lock_guard lock(Guard);
        Hosts.erase(&session->Host);
    }
    session.reset();
    leave();
}

void BatchRun::workThrough(Session& session, std::atomic<std::uint64_t>& liveBytes) {
    BatchTransfer transfer(session, TheSettings, TheConsole, Policy, Stop, Journal, liveBytes);
    while (!Stop.raised()) {
        const std::size_t place = NextLine++;
        if (place >= Lines.size()) {
            return;
        }
        ++RunningTransfers;
        const BatchOutcome outcome = transfer.run(Lines[place]);
        --RunningTransfers;
        if (outcome.Abandoned) {
            return;
        }
        Report.ended(Lines[place], outcome);
    }
}

void BatchRun::leave() {
    const std::lock_guard lock(Guard);
    --WorkerCount;
    WorkerLeft.raise();
}

// The flag is raised first, so that a thread that clears its interrupt between two transfers sees it.
void BatchRun::stop(std::exception_ptr reason) {
    Stop.raise();
    const std::lock_guard lock(Guard);
    if (!FirstFailure) {
        FirstFailure = std::move(reason);
    }
    for (vantik::Host* host : Hosts) {
        host->interrupt();
    }
}

void BatchRun::draw(bool last) {
    BatchTotals totals = Report.totals();
    for (const std::atomic<std::uint64_t>& liveBytes : LiveBytes) {
        totals.Bytes += liveBytes.load();
    }
    const bool terminal = TheConsole.errIsTerminal();
    const std::size_t width = progressWidth(terminal);
    const std::string text = batchProgressText(totals, RunningTransfers.load(), width);
    const std::string drawn = terminal ? "\r" + text + "\033[K" + (last ? "\n" : "") : text + "\n";
    [[maybe_unused]] const bool written = writeAll(STDERR_FILENO, drawn);
}

} // namespace netrove::cli
