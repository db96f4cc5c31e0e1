#include "cli/batch/journal/BatchHistory.h"

#include "cli/batch/manifest/JournalNames.h"
#include "cli/failures/CliFailure.h"

#include <netrove/descriptor.h>
#include <netrove/outputfile.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace netrove::cli {

namespace {

constexpr std::size_t kPiece = std::size_t{1} << 16;         // read at a time
constexpr std::size_t kLongestRecord = std::size_t{1} << 16; // holds a name twice as long as any
constexpr std::size_t kMostHeld = 10'000;                    // records; more than a group has

// A line that is longer than any is cut, which its checksum shows.
void addTo(std::string& line, std::string_view more) {
    line += more.substr(0, kLongestRecord - line.size());
}

// True for what a further attempt goes on with.
bool goesOn(const JournalRecord& begun) {
    return begun.Name.ends_with(".part") && !isTemporaryName(begun.Name);
}

} // namespace

std::size_t BatchHistory::read(const std::string& file) {
    // A pipe with that name would block us forever.
    const Descriptor source(retried([&] { return open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK); }));
    if (source.Number < 0) {
        const int error = errno;
        if (fileExists(file)) {
            failSystem(failure::kFileNotRead, file, error);
        }
        return 0;
    }
    struct stat facts {};
    if (fstat(source.Number, &facts) != 0) {
        failSystem(failure::kFileNotRead, file, errno);
    }
    if (!S_ISREG(facts.st_mode)) {
        failNoJournal(file);
    }
    Begun.clear();
    Damaged = false;
    std::size_t unreadable = 0;
    bool first = true;
    const auto takeNext = [&](std::string_view line) {
        if (std::exchange(first, false)) {
            if (!isJournalHeader(line)) {
                failNoJournal(file);
            }
        } else if (!takeLine(line)) {
            ++unreadable;
            Damaged = true;
        }
    };
    std::string rest; // the beginning of a line that is not complete yet
    std::vector<char> piece(kPiece);
    for (;;) {
        const ssize_t count = retried([&] { return ::read(source.Number, piece.data(), piece.size()); });
        if (count < 0) {
            failSystem(failure::kFileNotRead, file, errno);
        }
        if (count == 0) {
            break;
        }
        std::string_view bytes(piece.data(), static_cast<std::size_t>(count));
        for (auto end = bytes.find('\n'); end != bytes.npos; end = bytes.find('\n')) {
            addTo(rest, bytes.substr(0, end));
            takeNext(rest);
            rest.clear();
            bytes.remove_prefix(end + 1);
        }
        addTo(rest, bytes);
        if (first && !beginsJournal(rest)) {
            failNoJournal(file);
        }
    }
    setAside();
    return unreadable;
}

bool BatchHistory::takeLine(std::string_view text) {
    auto record = text.starts_with('{') ? parseJsonRecord(text) : parseRecord(text);
    if (!record) {
        return false;
    }
    take(std::move(*record));
    return true;
}

void BatchHistory::take(JournalRecord record) {
    const std::uint64_t key = record.Key;
    switch (record.State) {
    case JournalState::Kept:
        return takeKept();
    case JournalState::Begun:
        forget(key);
        if (Begun.size() < kMostHeld) {
            Begun[key] = std::move(record);
        }
        return;
    case JournalState::Written:
        if (record.Inode == 0) { // of an earlier version: it stands where the transfer began
            const auto begun = Begun.find(key);
            if (begun == Begun.end() || begun->second.Line != record.Line) {
                return;
            }
            record.Inode = begun->second.Inode;
        }
        Written[key] = std::move(record);
        if (Written.size() > kMostHeld) {
            setAside();
        }
        return;
    case JournalState::Done:
        Done.put(key, {record.Line, record.Bytes, 0, record.Status});
        return forget(key);
    case JournalState::Failed: {
        auto begun = Begun.extract(key);
        forget(key);
        if (begun && goesOn(begun.mapped())) { // the file stays for the next attempt
            Begun.insert(std::move(begun));
        }
        return;
    }
    }
}

// With a record missing, some of the files may have failed to get their names.
void BatchHistory::takeKept() {
    if (std::exchange(Damaged, false)) {
        return setAside();
    }
    const auto kept = std::exchange(Written, {});
    for (const auto& [key, record] : kept) {
        Done.put(key, {record.Line, record.Bytes, 0, record.Status});
        forget(key);
    }
}

void BatchHistory::setAside() {
    for (const auto& [key, record] : Written) {
        Unfinished.put(key, {record.Line, record.Bytes, record.Inode, record.Status});
    }
    Written.clear();
}

void BatchHistory::forget(std::uint64_t key) {
    Written.erase(key);
    Begun.erase(key);
    if (Unfinished.find(key)) {
        Unfinished.put(key, {});
    }
}

std::optional<BatchHistory::Ended> BatchHistory::done(const BatchLine& line) {
    if (!Begun.empty()) {
        Begun.erase(journalKey(line));
    }
    if (Done.empty() && Unfinished.empty()) {
        return std::nullopt;
    }
    const std::uint64_t key = journalKey(line);
    const auto unfinished = Unfinished.find(key);
    const auto done = Done.find(key);
    const bool couldHaveName = unfinished && unfinished->Line == line.Content && unfinished->Inode != 0;
    const bool isDone = done && done->Line == line.Content;
    if (!couldHaveName && !isDone) {
        return std::nullopt;
    }
    struct stat facts {};
    const bool there = line.Target && stat(line.Target->c_str(), &facts) == 0;
    const auto size = static_cast<std::uint64_t>(facts.st_size);
    // A file gets its name when it is complete. A run killed between that and its next record has left a file that can
    // be recognised by its inode number and its size.
    if (couldHaveName && there && facts.st_ino == unfinished->Inode && size == unfinished->Bytes) {
        return Ended{unfinished->Status, size};
    }
    const bool intact = !line.Target || (there && isDone && size == done->Bytes);
    return isDone && intact ? std::optional(Ended{done->Status, done->Bytes}) : std::nullopt;
}

// Someone who can write the journal must not be able to make us remove other files: a file is removed only if its name
// is one that we make, and it is ours and the very file that was written.
bool BatchHistory::isThere(const JournalRecord& begun) {
    struct stat facts {};
    return lstat(begun.Name.c_str(), &facts) == 0 && S_ISREG(facts.st_mode) && facts.st_uid == geteuid() &&
           facts.st_ino == begun.Inode && facts.st_dev == begun.Device;
}

void BatchHistory::removeLeftovers() const {
    for (const auto& [key, begun] : Begun) {
        if (isTemporaryName(begun.Name) && isThere(begun)) {
            unlink(begun.Name.c_str());
        }
    }
}

std::size_t BatchHistory::removeUnlisted() const {
    std::size_t count = 0;
    for (const auto& [key, begun] : Begun) {
        const std::string note = begun.Name + ".json";
        struct stat facts {};
        if (goesOn(begun) && isThere(begun) && lstat(note.c_str(), &facts) == 0 && facts.st_uid == geteuid() &&
            unlink(begun.Name.c_str()) == 0) {
            unlink(note.c_str());
            ++count;
        }
    }
    return count;
}

} // namespace netrove::cli
