// One line of a manifest, with its retries, in one scope.
#pragma once

#include "cli/batch/BatchJournal.h"
#include "cli/batch/BatchManifest.h"
#include "cli/batch/BatchRetry.h"
#include "cli/exchange/Exchange.h"
#include "cli/exchange/Session.h"
#include "cli/failures/ExitStatus.h"
#include "cli/system/WakeEvent.h"
#include "cli/terminal/Output.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace netrove::cli {

// How a transfer ended.
struct BatchOutcome {
    bool Abandoned = false; // the run was stopped before the transfer ended; the other members mean nothing then
    std::optional<Verdict> Failed;
    int Status = 0; // of the last response; 0 for none
    std::uint64_t Bytes = 0;
    int Attempts = 0;
    std::chrono::duration<double> Time{}; // waits included
};

// Says that the whole run must end: a signal came, or its results cannot be written.
class BatchStop {
public:
    void raise() noexcept {
        Raised = true;
        Wake.raise();
    }
    bool raised() const noexcept { return Raised.load() || signalSeen() != 0; }
    // True once the time has come; false if the run must end first.
    bool sleepUntil(Clock::time_point moment) const;

private:
    std::atomic<bool> Raised = false;
    WakeEvent Wake;
};

class BatchTransfer {
public:
    // All arguments must outlive this object. `liveBytes` gets the bytes of the running attempt; `journal` may be null.
    BatchTransfer(Session& session, const Settings& settings, const Console& console, const RetryPolicy& policy,
                  const BatchStop& stop, BatchJournal* journal, std::atomic<std::uint64_t>& liveBytes);

    // Raises only what ends the run: a journal that cannot be written, or no memory.
    BatchOutcome run(const BatchLine& line);

private:
    struct Attempt;
    void attempt(const BatchLine& line, const Settings& lineSettings, Attempt& current);
    void send(Attempt& current, const std::string& method);
    void deliver(const BatchLine& line, Attempt& current);
    void settle(Attempt& current, const vantik::Message& message, Circumstances circumstances);
    void tidy();

    Session& TheSession;
    const Settings& TheSettings;
    const Console& TheConsole;
    const RetryPolicy& Policy;
    const BatchStop& Stop;
    BatchJournal* Journal;
    std::atomic<std::uint64_t>& LiveBytes;
};

// The settings for one line: those of the command line, overridden by the line's own.
Settings batchSettings(const Settings& settings, const BatchLine& line);

} // namespace netrove::cli
