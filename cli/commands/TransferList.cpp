#include "cli/commands/TransferList.h"

#include "cli/commands/Commands.h"
#include "cli/commands/VerdictOf.h"
#include "cli/exchange/FileTransfer.h"
#include "cli/exchange/RequestOf.h"
#include "cli/exchange/WriteOut.h"
#include "cli/failures/CliFailure.h"
#include "cli/system/Signals.h"
#include "cli/terminal/WireTrace.h"

#include <netrove/descriptor.h>
#include <netrove/outputfile.h>
#include <netrove/pool.h>
#include <netrove/text.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>

namespace netrove::cli {

namespace {

// The file that a transfer makes; empty for none.
std::string fileOf(const Settings& settings) {
    if (settings.Command == Command::Save) {
        return saveTarget(settings);
    }
    return settings.OutputFile == "-" || isSpecialFile(settings.OutputFile) ? "" : settings.OutputFile;
}

void refuseSharedFiles(const std::vector<Settings>& transfers) {
    std::map<std::string, const Settings*> writers;
    for (const Settings& settings : transfers) {
        const std::string file = fileOf(settings);
        if (file.empty()) {
            continue;
        }
        std::error_code error;
        const std::filesystem::path path = std::filesystem::weakly_canonical(std::filesystem::absolute(file), error);
        const auto [known, isNew] = writers.emplace(error ? file : path.string(), &settings);
        if (!isNew) {
            failUsage(printable(known->second->Url) + " and " + printable(settings.Url) + " would both be written to " +
                      printable(file) + "; nothing was sent");
        }
    }
}

// curl's users expect one -o or -O for each URL, or all content in the first file.
void noteShownContent(const std::vector<Settings>& transfers, const Console& console) {
    const auto isShown = [](const Settings& settings) { return settings.OutputFile.empty(); };
    const bool some = std::any_of(transfers.begin(), transfers.end(), isShown);
    const bool all = std::all_of(transfers.begin(), transfers.end(), isShown);
    if (transfers.front().Command == Command::Get && some && !all && console.outIsTerminal()) {
        console.note("content without --output goes to standard output; --remote-name-all names a file for each URL");
    }
}

// The heads of all transfers follow one another in one file.
void emptyHeadFile(const std::string& name) {
    if (name.empty() || name == "-" || isSpecialFile(name)) {
        return;
    }
    const Descriptor file(
        retried([&] { return open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, 0666); }));
    if (file.Number < 0) {
        failSystem(failure::kFileNotWritten, name, errno);
    }
}

// What can be known before anything is sent.
void begin(const std::vector<Settings>& transfers, const Console& console) {
    const Settings& first = transfers.front();
    checkWriteOut(first.WriteOut);
    if (transfers.size() == 1) {
        return emptyHeadFile(first.HeadFile);
    }
    if (first.Command == Command::Save && !first.Target.empty() && !isTargetFolder(first)) {
        failUsage("several URLs are saved into a folder, and '" + printable(first.Target) + "' is not one");
    }
    refuseSharedFiles(transfers);
    noteShownContent(transfers, console);
    emptyHeadFile(first.HeadFile);
}

class TransferList {
public:
    TransferList(const std::vector<Settings>& transfers, const Console& console)
        : Transfers(transfers), TheConsole(console) {}

    // True: the others may follow.
    bool run(netrove::Client& client, const Settings& settings) {
        const auto start = Clock::now();
        std::optional<Clock::time_point> deadline;
        if (settings.MaxTime) {
            deadline =
                start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*settings.MaxTime));
        }
        netrove::Response response;
        std::optional<Verdict> failed = verdictOf(
            circumstancesOf(settings), [&] { runTransfer(client, settings, TheConsole, deadline, response); },
            &response);
        if (failed && Ending && signalSeen() == 0) {
            return false; // only because another one has failed
        }
        const std::lock_guard lock(Guard);
        if (failed) {
            report(*failed, settings);
        }
        if (!settings.WriteOut.empty()) {
            writeOut(settings.WriteOut,
                     {.Asked = settings,
                      .File = fileOf(settings),
                      .Response = response,
                      .ExitStatus = failed ? failed->Status : int{kExitDone},
                      .Failure = failed ? failed->Message.Text : "",
                      .Time = Clock::now() - start},
                     TheConsole);
        }
        return !failed || (!settings.FailEarly && signalSeen() == 0);
    }

    void endEarly() { Ending = true; }

    // As for batch: what the failures agree on.
    int exitStatus() const {
        const std::lock_guard lock(Guard);
        return Statuses.empty() ? int{kExitDone} : Statuses.size() == 1 ? *Statuses.begin() : int{kExitFailure};
    }

private:
    // Of several, which one failed.
    void report(Verdict verdict, const Settings& settings) {
        const bool stopped = signalSeen() != 0;
        if (stopped && Statuses.contains(verdict.Status)) {
            return; // the same signal for all of them
        }
        if (stopped) {
            Statuses.clear();
        }
        Statuses.insert(verdict.Status);
        std::string& text = verdict.Message.Text;
        if (Transfers.size() > 1 && !stopped && text.find(settings.Url) == text.npos) {
            text = printable(settings.Url) + ": " + text;
        }
        TheConsole.failure(verdict);
    }

    const std::vector<Settings>& Transfers;
    const Console& TheConsole;
    mutable std::mutex Guard;
    std::set<int> Statuses;
    std::atomic<bool> Ending = false;
};

} // namespace

int runTransfers(netrove::Client& client, const std::vector<Settings>& transfers, const Console& console) {
    begin(transfers, console);
    TransferList list(transfers, console);
    for (const Settings& settings : transfers) {
        if (!list.run(client, settings)) {
            break;
        }
    }
    return list.exitStatus();
}

int runParallel(const std::vector<Settings>& transfers, const Console& console, WireTrace* trace) {
    begin(transfers, console);
    const Settings& first = transfers.front();
    const int jobs =
        static_cast<int>(std::min<std::size_t>(transfers.size(), static_cast<std::size_t>(first.ParallelMax)));
    TransferList list(transfers, console);
    WakeEvent ended;
    std::atomic<std::size_t> left = transfers.size();
    std::atomic<bool> failed = false;
    netrove::Pool pool({.jobs = jobs, .perHost = first.ParallelMaxHost == 0 ? jobs : first.ParallelMaxHost},
                       tracedBy(trace),
                       [&] { return netrove::networkTransport(networkSettings(first), warningsTo(console)); });
    std::vector<std::future<void>> futures;
    for (const Settings& settings : transfers) {
        // Also of a task that never runs.
        const std::shared_ptr<void> onEnd(nullptr, [&](void*) {
            --left;
            ended.raise();
        });
        futures.push_back(pool.submit(settings.Url, [&, onEnd](netrove::Client& client) {
            Settings own = settings;
            own.Progress = false; // bars of several would run into one another
            std::optional<WireTrace::Transfer> marked;
            if (trace != nullptr) {
                marked.emplace(*trace, own.UrlNumber + 1, own.Url);
            }
            failed = !list.run(client, own) || failed;
        }));
    }
    while (left != 0) {
        if (waitReadable(ended.descriptor(), std::nullopt) == Waited::Interrupted) {
            pool.interrupt();
            break;
        }
        ended.clear();
        if (failed) {
            list.endEarly();
            pool.interrupt();
            break;
        }
    }
    for (std::future<void>& future : futures) {
        try {
            future.get();
        } catch (const netrove::Error&) { // dropped before it began
            if (!failed && signalSeen() == 0) {
                throw;
            }
        }
    }
    return signalSeen() != 0 ? 128 + signalSeen() : list.exitStatus();
}

} // namespace netrove::cli
