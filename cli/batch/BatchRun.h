// Does a list of transfers on several threads, each with a scope of its own.
#pragma once

#include "cli/batch/BatchJournal.h"
#include "cli/batch/BatchManifest.h"
#include "cli/batch/BatchReport.h"
#include "cli/batch/BatchTransfer.h"
#include "cli/options/Settings.h"
#include "cli/system/WakeEvent.h"
#include "cli/terminal/Output.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace netrove::cli {

class BatchRun {
public:
    // What is given outlives this object; `journal` may be null.
    BatchRun(const Settings& settings, const Console& console, const std::vector<BatchLine>& lines,
             BatchJournal* journal, BatchReport& report);
    ~BatchRun();
    BatchRun(const BatchRun&) = delete;
    BatchRun& operator=(const BatchRun&) = delete;

    // Returns once every line has been dealt with or a signal has come, which interrupts every running transfer; those
    // leave no files. Raises what ended the run early: output or journal that cannot be written.
    void run();

private:
    void work(std::atomic<std::uint64_t>& liveBytes);
    void workThrough(Session& session, std::atomic<std::uint64_t>& liveBytes);
    void leave();
    void stop(std::exception_ptr reason);
    void draw(bool last);

    const Settings& TheSettings;
    const Console& TheConsole;
    const std::vector<BatchLine>& Lines;
    BatchJournal* Journal;
    BatchReport& Report;
    RetryPolicy Policy;
    BatchStop Stop;
    std::atomic<std::size_t> NextLine = 0;
    std::vector<std::atomic<std::uint64_t>> LiveBytes; // bytes of the running transfers, one for each thread
    std::atomic<std::size_t> RunningTransfers = 0;

    std::mutex Guard; // of what follows
    std::set<vantik::Host*> Hosts;
    std::size_t WorkerCount = 0;
    std::exception_ptr FirstFailure;
    WakeEvent WorkerLeft;
    std::vector<std::thread> Threads;
};

} // namespace netrove::cli
