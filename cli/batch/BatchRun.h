// Does a list of transfers, several at a time.
#pragma once

#include "cli/batch/BatchJournal.h"
#include "cli/batch/BatchManifest.h"
#include "cli/batch/BatchReport.h"
#include "cli/batch/BatchTransfer.h"
#include "cli/batch/LineSource.h"
#include "cli/batch/LiveTransfers.h"
#include "cli/options/Settings.h"
#include "cli/terminal/Output.h"

#include <netrove/descriptor.h>
#include <netrove/pool.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <future>
#include <mutex>
#include <optional>
#include <vector>

namespace netrove::cli {

class BatchRun {
public:
    // What is given outlives this object; `journal` may be null.
    BatchRun(const Settings& settings, const Console& console, LineSource& lines, BatchJournal* journal,
             BatchReport& report);

    // Returns once every line has been dealt with or a signal has come, which interrupts every running transfer; those
    // leave no files. Raises what ended the run early: output or journal that cannot be written.
    void run();

private:
    void work(netrove::Client& client);
    std::optional<BatchLine> takeLine();
    // True if workers are left. A failure of one that has ended stops the others.
    bool someLeft(std::vector<std::future<void>>& workers);
    void stop(std::exception_ptr reason);

    const Settings& TheSettings;
    const Console& TheConsole;
    LineSource& Lines;
    std::mutex TakingLine;
    BatchJournal* Journal;
    BatchReport& Report;
    std::atomic<bool> Stopped = false;
    LiveTransfers Live;
    WakeEvent WorkerLeft;
    std::exception_ptr FirstFailure;
    netrove::Pool Workers; // last: it ends before what its threads use
};

} // namespace netrove::cli
