// One line of a manifest.
#pragma once

#include "cli/batch/journal/BatchJournal.h"
#include "cli/batch/manifest/BatchManifest.h"
#include "cli/batch/results/BatchOutcome.h"
#include "cli/batch/results/LiveTransfers.h"
#include "cli/batch/run/BatchSchedule.h"
#include "cli/system/Signals.h"

#include <netrove/client.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <optional>

namespace netrove::cli {

// What the transfers of a worker share. All of it outlives them.
struct BatchTools {
    const Settings& TheSettings;
    Settings& Plain;       // of this worker alone: batchSettings for a line with nothing but a URL, which changes
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
