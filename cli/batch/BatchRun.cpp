#include "cli/batch/BatchRun.h"

#include "cli/exchange/Session.h"
#include "cli/failures/CliFailure.h"
#include "cli/system/Signals.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <random>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

namespace netrove::cli {

namespace {

using namespace std::chrono_literals;

RetrySettings retrySettings(const BatchSettings& wanted) {
    return {wanted.Retries, wanted.RetryWait, wanted.LongestRetryWait, wanted.RetryUnsafe};
}

double randomShare() {
    thread_local std::minstd_rand engine(std::random_device{}());
    return std::uniform_real_distribution<double>(0, 1)(engine);
}

} // namespace

BatchRun::BatchRun(const Settings& settings, const Console& console, const std::vector<BatchLine>& lines,
                   BatchJournal* journal, BatchReport& report)
    : Wanted(settings), Screen(console), Lines(lines), Journal(journal), Report(report),
      Policy(retrySettings(settings.Batch), randomShare, [] { return WallClock::now(); }),
      Live(std::min(lines.size(), static_cast<std::size_t>(settings.Batch.Jobs))),
      Ended(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (Ended < 0) {
        failSystem(failure::kFailure, "eventfd", errno);
    }
}

BatchRun::~BatchRun() {
    stop(nullptr);
    for (std::thread& thread : Threads) {
        thread.join();
    }
    close(Ended);
}

void BatchRun::run() {
    // On a terminal the lines on standard output tell enough.
    const bool shown = Wanted.Progress.value_or(Screen.errIsTerminal() && !Screen.outIsTerminal());
    const auto interval = progressInterval(Screen.errIsTerminal());
    Workers = Live.size();
    for (std::atomic<std::uint64_t>& live : Live) {
        try {
            Threads.emplace_back([this, &live] { work(live); });
        } catch (const std::system_error&) {
            // Fewer threads than wanted do the same work; without any there is none to do it.
            const std::lock_guard lock(Guard);
            Workers -= Live.size() - Threads.size();
            if (Threads.empty()) {
                throw;
            }
            break;
        }
    }
    const auto over = [this] {
        const std::lock_guard lock(Guard);
        return Workers == 0;
    };
    while (!over()) {
        const auto next = shown ? std::optional(Clock::now() + interval) : std::nullopt;
        if (waitReadable(Ended, next) == Waited::Interrupted) {
            break;
        }
        std::uint64_t count = 0;
        [[maybe_unused]] const auto length = read(Ended, &count, sizeof count);
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
    if (Reason) {
        std::rethrow_exception(Reason);
    }
}

void BatchRun::work(std::atomic<std::uint64_t>& live) {
    std::unique_ptr<Session> session;
    try {
        session = std::make_unique<Session>();
        {
            const std::lock_guard lock(Guard);
            Hosts.insert(&session->Host);
        }
        session->load();
        session->reportWarnings(Screen);
        workThrough(*session, live);
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

void BatchRun::workThrough(Session& session, std::atomic<std::uint64_t>& live) {
    BatchTransfer transfer(session, Wanted, Screen, Policy, Stop, Journal, live);
    while (!Stop.raised()) {
        const std::size_t place = Next++;
        if (place >= Lines.size()) {
            return;
        }
        ++Running;
        const BatchOutcome outcome = transfer.run(Lines[place]);
        --Running;
        if (outcome.Abandoned) {
            return;
        }
        Report.ended(Lines[place], outcome);
    }
}

void BatchRun::leave() {
    const std::lock_guard lock(Guard);
    --Workers;
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = write(Ended, &one, sizeof one);
}

// The wish is raised first: a thread that clears its interrupt between two transfers sees it then.
void BatchRun::stop(std::exception_ptr reason) {
    Stop.raise();
    const std::lock_guard lock(Guard);
    if (!Reason) {
        Reason = std::move(reason);
    }
    for (vantik::Host* host : Hosts) {
        host->interrupt();
    }
}

void BatchRun::draw(bool last) {
    BatchTotals totals = Report.totals();
    for (const std::atomic<std::uint64_t>& live : Live) {
        totals.Bytes += live.load();
    }
    const bool terminal = Screen.errIsTerminal();
    const std::size_t width = progressWidth(terminal);
    const std::string text = batchProgressText(totals, Running.load(), width);
    const std::string drawn = terminal ? "\r" + text + "\033[K" + (last ? "\n" : "") : text + "\n";
    [[maybe_unused]] const bool written = writeAll(STDERR_FILENO, drawn);
}

} // namespace netrove::cli
