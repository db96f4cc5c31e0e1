// Finishes files in groups: their content goes to the disk, then they get their names, then the journal's records
// follow. So there is never a record without its file, and no file under its name without its content, whatever ends
// the program or the machine; and the disk is waited for once, not for each file.
#pragma once

#include "cli/batch/journal/BatchJournal.h"
#include "cli/batch/results/BatchReport.h"
#include "cli/batch/run/BatchTransfer.h"

#include <netrove/client.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace netrove::cli {

// A file that has come.
struct ReceivedLine {
    BatchLine Line{};
    BatchOutcome Outcome{};
    netrove::ReceivedFile File{};
    struct stat Facts {}; // once all of the file is there; no mode: not known
};

// How many files to finish together the next time, after `files` of them kept the disk busy for so long. Few where it
// is fast: they are still in the processor's cache then, and have their names sooner.
std::size_t nextGroup(std::size_t files, std::chrono::nanoseconds disk, std::size_t most);

class BatchCommit {
public:
    // What is given outlives this object; `journal` may be null. `onFailure` is called on another thread with what ends
    // the run: a journal or standard output that cannot be written.
    BatchCommit(BatchJournal* journal, BatchReport& report, std::function<void(std::exception_ptr)> onFailure);
    ~BatchCommit(); // finishes what is there
    BatchCommit(const BatchCommit&) = delete;
    BatchCommit& operator=(const BatchCommit&) = delete;

    // From any thread. Waits while as many as there may be are being finished.
    void add(ReceivedLine line);
    // Nothing else runs, so there is nothing to wait for.
    void hurry();

private:
    using Group = std::vector<ReceivedLine>;
    void work();
    std::size_t finish(Group& group); // returns how many there are to be the next time
    static void settle(Group& group);
    static void syncFolders(const Group& group);
    void record(Group& group);

    BatchJournal* Journal;
    BatchReport& Report;
    std::function<void(std::exception_ptr)> OnFailure;
    const std::size_t Most; // files that wait
    std::mutex Guard;       // of what follows
    std::condition_variable Changed;
    std::size_t Enough; // files of a group
    Group Open;
    std::chrono::steady_clock::time_point Due; // of the group
    bool Hurried = false;
    bool Ended = false;
    bool Broken = false;
    std::thread Thread;
};

} // namespace netrove::cli
