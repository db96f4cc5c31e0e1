// The lines of a journal. A journal begins with the line `kJournalHeader`, and ends each record with a checksum.
//
//     written LINE KEY STATUS BYTES INODE SUM   all content is there, and the file is about to get its name
//     kept SUM                                  every file that was written before has its name by now
//     done LINE KEY STATUS BYTES SUM            of a transfer without a file, or with one that has its name
//     failed LINE KEY IDENTIFIER SUM
//     begun LINE KEY DEVICE INODE NAME SUM      a file whose temporary name, NAME in hexadecimal digits, would stay
//
// LINE is the digest of what defines the transfer, KEY that of its target, or of its id if it has none. All numbers but
// status and bytes are hexadecimal. Journals of earlier versions have JSON objects instead, and go on with records.
#pragma once

#include "cli/batch/manifest/BatchManifest.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace netrove::cli {

inline constexpr std::string_view kJournalHeader = "netrove batch journal 2";
inline constexpr std::string_view kJsonJournalHeader = "{\"journal\":\"netrove batch\",\"version\":1}";

enum class JournalState : std::uint8_t { Begun, Written, Kept, Done, Failed };

struct JournalRecord {
    JournalState State = JournalState::Kept;
    std::uint64_t Line = 0;
    std::uint64_t Key = 0;
    int Status = 0; // of the response
    std::uint64_t Bytes = 0;
    std::uint64_t Device = 0;
    std::uint64_t Inode = 0;
    std::string Name{}; // temporary; of a failure: its identifier
};

bool isJournalHeader(std::string_view line);
// True also for the beginning of a header that is not complete.
bool beginsJournal(std::string_view text);
[[noreturn]] void failNoJournal(const std::string& file);

// The digest of a target or an id.
std::uint64_t journalKey(std::string_view text, bool isTarget);
std::uint64_t journalKey(const BatchLine& line);

std::string recordText(const JournalRecord& record); // with its line end
// Nothing for a line that is damaged, or of a kind that is not known.
std::optional<JournalRecord> parseRecord(std::string_view line);
// The same for a JSON object. A file that was written has no status yet, and gets the size that is recorded with it.
std::optional<JournalRecord> parseJsonRecord(std::string_view line);

} // namespace netrove::cli
