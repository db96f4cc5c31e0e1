// What the journals of earlier runs say about the transfers of a manifest.
#pragma once

#include "cli/batch/journal/JournalRecord.h"
#include "cli/batch/manifest/BatchManifest.h"
#include "cli/batch/manifest/DigestStore.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace netrove::cli {

class BatchHistory {
public:
    struct Ended {
        int Status = 0; // of the response
        std::uint64_t Bytes = 0;
    };

    // Adds a journal; a later record overrides an earlier one. A missing file counts as an empty one. Returns how many
    // records could not be read. Raises NoJournal for a file that is something else, FileNotRead.
    std::size_t read(const std::string& file);

    // How the transfer ended, if it is done: by the same line of the manifest, and with its file still there. Nothing
    // if it must be done.
    std::optional<Ended> done(const BatchLine& line);

    // Removes the temporary files of transfers that never ended, as the journal says that was read last. Only where
    // its run is certainly over.
    void removeLeftovers() const;
    // The same for those that could go on, of lines that `done` has not been asked for: nobody will. Returns how many.
    std::size_t removeUnlisted() const;

private:
    struct Entry {
        std::uint64_t Line = 0;
        std::uint64_t Bytes = 0;
        std::uint64_t Inode = 0; // zero: of any file
        int Status = 0;
    };
    bool takeLine(std::string_view text);
    void take(JournalRecord record);
    void takeKept();
    void setAside();
    void forget(std::uint64_t key);
    static bool isThere(const JournalRecord& begun); // the very file

    // All by the keys of records.
    DigestStore<Entry> Done;
    DigestStore<Entry> Unfinished; // written, and perhaps with their names; those that no longer count have no line
    std::unordered_map<std::uint64_t, JournalRecord> Written; // since the last `kept`
    std::unordered_map<std::uint64_t, JournalRecord> Begun;   // in the journal that is read last
    bool Damaged = false;                                     // a record since the last `kept`
};

} // namespace netrove::cli
