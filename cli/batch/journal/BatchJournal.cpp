#include "cli/batch/journal/BatchJournal.h"

#include "cli/batch/manifest/JournalNames.h"
#include "cli/failures/CliFailure.h"
#include "cli/terminal/Output.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace netrove::cli {

namespace {

constexpr std::size_t kTailPiece = std::size_t{1} << 16; // read at a time
constexpr std::size_t kLongestIdentifier = 46;           // which makes a record of 100 bytes
// The work of the last moments before a power cut is done again; avoiding that is not worth waiting for the disk.
constexpr auto kSyncInterval = std::chrono::seconds(1);

// Identifiers are words; what a failure of somebody else has in its place need not be.
std::string wordOf(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c <= ' ' || c > '~'; }, '_');
    return text.substr(0, kLongestIdentifier);
}

} // namespace

BatchJournal::BatchJournal(const std::string& file)
    : Name(file),
      File(retried([&] { return open(file.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, 0666); })) {
    if (File.Number < 0) {
        const std::string reason = systemText(errno);
        fail(failure::kFileNotWritten, {file, reason},
             file + ": " + reason + "; use --journal FILE for another place, or --no-journal");
    }
    // On a file system without locks, nobody is kept out.
    if (retried([&] { return flock(File.Number, LOCK_EX | LOCK_NB); }) != 0 && errno == EWOULDBLOCK) {
        fail(failure::kJournalInUse, {file}, "another run is using " + file);
    }
    mend();
    NextSync = std::chrono::steady_clock::now() + kSyncInterval;
}

// A run that was killed may have left half a line. What follows the last line end is cut off, so that the next line
// stands alone.
void BatchJournal::mend() {
    struct stat facts {};
    if (fstat(File.Number, &facts) != 0) {
        failSystem(failure::kFileNotRead, Name, errno);
    }
    if (!S_ISREG(facts.st_mode)) {
        failNoJournal(Name);
    }
    const auto readAt = [this](char* to, std::size_t length, off_t place) {
        while (length > 0) {
            const ssize_t count = retried([&] { return pread(File.Number, to, length, place); });
            if (count <= 0) {
                failSystem(failure::kFileNotRead, Name, count < 0 ? errno : EIO);
            }
            to += count;
            place += count;
            length -= static_cast<std::size_t>(count);
        }
    };
    // A file that is not ours is left as it is.
    std::string head(std::min<std::size_t>(static_cast<std::size_t>(facts.st_size), kJsonJournalHeader.size() + 1),
                     '\0');
    readAt(head.data(), head.size(), 0);
    if (!beginsJournal(head)) {
        failNoJournal(Name);
    }
    off_t end = facts.st_size;
    std::string piece;
    while (end > 0) {
        piece.resize(std::min<std::size_t>(static_cast<std::size_t>(end), kTailPiece));
        readAt(piece.data(), piece.size(), end - static_cast<off_t>(piece.size()));
        const auto last = piece.rfind('\n');
        end -= static_cast<off_t>(last == piece.npos ? piece.size() : piece.size() - last - 1);
        if (last != piece.npos) {
            break;
        }
    }
    if (end != facts.st_size && retried([&] { return ftruncate(File.Number, end); }) != 0) {
        failSystem(failure::kFileNotWritten, Name, errno);
    }
    if (end == 0) {
        Waiting = std::string(kJournalHeader) + "\n";
        write();
    }
}

void BatchJournal::begun(const BatchLine& line, const std::string& temporary, int descriptor) {
    struct stat facts {};
    if (fstat(descriptor, &facts) != 0) {
        failSystem(failure::kFileNotWritten, temporary, errno);
    }
    add({.State = JournalState::Begun,
         .Line = line.Content,
         .Key = journalKey(line),
         .Device = facts.st_dev,
         .Inode = facts.st_ino,
         .Name = temporary});
}

void BatchJournal::written(const BatchLine& line, int status, std::uint64_t bytes, std::uint64_t inode) {
    add({.State = JournalState::Written,
         .Line = line.Content,
         .Key = journalKey(line),
         .Status = status,
         .Bytes = bytes,
         .Inode = inode});
}

void BatchJournal::kept() {
    add({.State = JournalState::Kept});
}

void BatchJournal::done(const BatchLine& line, int status, std::uint64_t bytes) {
    add({.State = JournalState::Done, .Line = line.Content, .Key = journalKey(line), .Status = status, .Bytes = bytes});
}

void BatchJournal::failed(const BatchLine& line, const vantik::Message& message) {
    add({.State = JournalState::Failed,
         .Line = line.Content,
         .Key = journalKey(line),
         .Name = wordOf(message.identifier())});
}

void BatchJournal::add(const JournalRecord& record) {
    const std::string text = recordText(record);
    const std::lock_guard lock(Guard);
    Waiting += text;
}

void BatchJournal::flush() {
    const std::lock_guard lock(Guard);
    write();
    const auto now = std::chrono::steady_clock::now();
    if (now >= NextSync) {
        NextSync = now + kSyncInterval;
        syncFile();
    }
}

void BatchJournal::sync() {
    const std::lock_guard lock(Guard);
    write();
    syncFile();
}

void BatchJournal::write() {
    if (!writeAll(File.Number, std::exchange(Waiting, {}))) {
        failSystem(failure::kFileNotWritten, Name, errno);
    }
}

// The system reports a failed write once, to whoever asks first.
void BatchJournal::syncFile() {
    const int error = syncContent(File.Number);
    if (error != 0 && error != EROFS) {
        failSystem(failure::kFileNotWritten, Name, error);
    }
}

} // namespace netrove::cli
