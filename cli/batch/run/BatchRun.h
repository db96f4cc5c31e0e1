// Does a list of transfers, several at a time.
#pragma once

#include "cli/batch/journal/BatchJournal.h"
#include "cli/batch/manifest/BatchManifest.h"
#include "cli/batch/manifest/LineSource.h"
#include "cli/batch/results/BatchReport.h"
#include "cli/batch/results/LiveTransfers.h"
#include "cli/batch/run/BatchCommit.h"
#include "cli/batch/run/BatchSchedule.h"
#include "cli/batch/run/BatchTransfer.h"
#include "cli/options/Settings.h"
#include "cli/terminal/Output.h"

#include <netrove/descriptor.h>
#include <netrove/pool.h>

#include <atomic>
#include <condition_variable>
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
    void read();
    void work(netrove::Client& client);
    // The next to do, as soon as there is one; nothing at the end.
    std::optional<BatchJob> nextJob();
    bool isThere(const BatchJob& job) const; // its file, where that is enough
    void end(BatchJob job, BatchAttempt attempt, Clock::duration taken);
    void report(BatchJob& job, BatchAttempt& attempt);
    // True if workers are left. A failure of one that has ended stops the others.
    bool someLeft(std::vector<std::future<void>>& workers);
    void stop(std::exception_ptr reason);
    void raise(std::exception_ptr reason); // from another thread
    bool enoughFailed() const;
    void startNoMore();

    const Settings& TheSettings;
    const Console& TheConsole;
    LineSource& Lines;
    BatchJournal* Journal;
    BatchReport& Report;
    std::atomic<bool> Stopped = false;
    LiveTransfers Live;
    WakeEvent Woken; // a worker has left, or another thread has failed
    std::exception_ptr FirstFailure;
    std::mutex Guard; // of what follows
    std::condition_variable JobsCame;
    std::condition_variable RoomCame;
    BatchSchedule Schedule;
    bool AllRead = false;
    bool NoMore = false; // is read or begun
    std::exception_ptr Raised;
    std::optional<BatchCommit> Commit;
    netrove::Pool Workers; // last: it ends before what its threads use
};

} // namespace netrove::cli
