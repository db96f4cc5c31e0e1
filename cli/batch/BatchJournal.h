// What a run has done, kept beside the manifest so that a killed run can be resumed: one JSON line when a transfer
// begins to write, one when it has written everything and one when it has ended. Lines are only ever appended.
#pragma once

#include "cli/batch/BatchManifest.h"
#include "vantik/Failure.h"

#include <netrove/descriptor.h>
#include <netrove/outputfile.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace netrove::cli {

// What earlier runs say about the transfers of a manifest.
class BatchHistory {
public:
    struct Ended {
        int Status = 0; // of the response
        std::uint64_t Bytes = 0;
    };

    // Adds a journal; a later line overrides an earlier one. A missing file counts as an empty one. Returns how many
    // lines could not be read. Raises NoJournal for a file that is something else, FileNotRead.
    std::size_t read(const std::string& file);

    // How the transfer ended, if it is done: by the same line of the manifest, and with its file still there. Nothing
    // if it must be done.
    std::optional<Ended> done(const BatchLine& line) const;

    // Removes the temporary files of transfers that never ended. Only for the journal of a run that is certainly over.
    void removeLeftovers() const;

private:
    struct Begun {
        std::string Digest;
        std::string Temporary;
        std::uint64_t Device = 0;
        std::uint64_t Inode = 0;
        std::optional<std::uint64_t> Bytes{}; // once all is written
    };
    struct Entry {
        std::string DoneDigest; // empty: not done
        Ended Result;
        std::optional<Begun> Unfinished;
    };
    bool takeLine(std::string_view text);

    std::unordered_map<std::string, Entry> Entries; // by target, or by id if there is none
};

// Appends. Callable from any thread.
class BatchJournal {
public:
    // Opens the file, and cuts off an incomplete last line. Raises JournalInUse if another run has it open, NoJournal
    // for a file that is something else, FileNotRead, FileNotWritten.
    explicit BatchJournal(const std::string& file);
    BatchJournal(const BatchJournal&) = delete;
    BatchJournal& operator=(const BatchJournal&) = delete;

    // Each raises FileNotWritten.
    void started(const BatchLine& line, const OutputFile& file);
    void written(const BatchLine& line, const OutputFile& file); // before the file gets its name
    void done(const BatchLine& line, int status, std::uint64_t bytes);
    void failed(const BatchLine& line, const vantik::Message& message);
    void sync(); // to the disk

private:
    void append(const std::string& text);
    void mend();

    std::string Name;
    Descriptor File;
    std::mutex Guard; // of what follows, and of the order of lines
    std::chrono::steady_clock::time_point NextSync;
};

} // namespace netrove::cli
