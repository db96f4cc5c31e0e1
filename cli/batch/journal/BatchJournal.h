// Writes what a run has done beside the manifest, so that a killed run can be resumed. Records are only ever appended;
// what they look like: JournalRecord.h.
#pragma once

#include "cli/batch/journal/JournalRecord.h"
#include "cli/batch/manifest/BatchManifest.h"
#include "vantik/Failure.h"

#include <netrove/descriptor.h>

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

namespace netrove::cli {

// Callable from any thread. Records wait in memory until `flush` or `sync`, so that those of a group go out together:
//
//     for each file, its content on the disk: written
//     flush                                   what has its name after a kill is known by its inode number
//     for each file: its name; for one that did not get it: failed
//     kept, sync
class BatchJournal {
public:
    // Opens the file, and cuts off an incomplete last line. Raises JournalInUse if another run has it open, NoJournal
    // for a file that is something else, FileNotRead, FileNotWritten.
    explicit BatchJournal(const std::string& file);
    BatchJournal(const BatchJournal&) = delete;
    BatchJournal& operator=(const BatchJournal&) = delete;

    void begun(const BatchLine& line, const std::string& temporary, int descriptor); // raises FileNotWritten
    void written(const BatchLine& line, int status, std::uint64_t bytes, std::uint64_t inode);
    void kept();
    void done(const BatchLine& line, int status, std::uint64_t bytes);
    void failed(const BatchLine& line, const vantik::Message& message);

    // Both raise FileNotWritten. The first passes records on to the disk too if that was not done for a second.
    void flush();
    void sync();

private:
    void add(const JournalRecord& record);
    void write();
    void syncFile();
    void mend();

    std::string Name;
    Descriptor File;
    std::mutex Guard; // of what follows
    std::string Waiting;
    std::chrono::steady_clock::time_point NextSync;
};

} // namespace netrove::cli
