// One line of a manifest.
#pragma once

#include "cli/batch/BatchJournal.h"
#include "cli/batch/BatchManifest.h"
#include "cli/batch/BatchSchedule.h"
#include "cli/batch/LiveTransfers.h"
#include "cli/failures/ExitStatus.h"
#include "cli/system/Signals.h"

#include <netrove/client.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <optional>

namespace netrove::cli {

// How a transfer ended.
struct BatchOutcome {
    bool Abandoned = false; // the run was stopped before the transfer ended; the other members mean nothing then
    std::optional<Verdict> Failed;
    int Status = 0; // of the last response; 0 for none
    std::uint64_t Bytes = 0;
    int Attempts = 0;
    std::chrono::duration<double> Time{};     // waits included
    std::optional<Clock::time_point> Ended{}; // before its file got its name, together with others
};

// What the transfers of a run share. All of it outlives them.
struct BatchTools {
    const Settings& TheSettings;
    BatchJournal* Journal; // may be null
    LiveTransfers& Live;
    const std::atomic<bool>& Stopped;
};

// What an attempt has come to.
struct BatchAttempt {
    BatchOutcome Outcome;
    netrove::ReceivedFile File{};             // of a line with a target that did not fail
    std::optional<Clock::time_point> Again{}; // when to try once more; the outcome is not the last one then
};

// One attempt by this client. Raises only what ends the run: a journal that cannot be written, or no memory.
BatchAttempt transferLine(netrove::Client& client, const BatchJob& job, const BatchTools& tools);

// The settings for one line: those of the command line, overridden by the line's own.
Settings batchSettings(const Settings& settings, const BatchLine& line);

} // namespace netrove::cli
