#include "cli/batch/BatchJournal.h"

#include "cli/failures/CliFailure.h"
#include "cli/terminal/Output.h"

#include <netrove/descriptor.h>
#include <netrove/text.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace netrove::cli {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::string_view kHeader = "{\"journal\":\"netrove batch\",\"version\":1}";
constexpr std::size_t kPiece = std::size_t{1} << 16; // read at a time
// The work of the last moments before a power cut is done again; avoiding that is not worth waiting for the disk.
constexpr auto kSyncInterval = std::chrono::seconds(1);

// JSON holds only text, and names of files need not be text.
std::string storable(const std::string& name) {
    if (isUtf8(name)) {
        return "=" + name;
    }
    constexpr char kDigits[] = "0123456789abcdef";
    std::string result = "#";
    for (const char c : name) {
        result += kDigits[static_cast<unsigned char>(c) >> 4];
        result += kDigits[static_cast<unsigned char>(c) & 0x0F];
    }
    return result;
}

// Nothing for what `storable` never returns.
std::optional<std::string> restored(const std::string& stored) {
    if (stored.starts_with('=')) {
        return stored.substr(1);
    }
    if (!stored.starts_with('#') || stored.size() % 2 == 0) {
        return std::nullopt;
    }
    std::string name;
    for (std::size_t i = 1; i < stored.size(); i += 2) {
        unsigned byte = 0;
        const char* const digits = stored.data() + i;
        const auto [end, error] = std::from_chars(digits, digits + 2, byte, 16);
        if (error != std::errc() || end != digits + 2) {
            return std::nullopt;
        }
        name += static_cast<char>(byte);
    }
    return name;
}

std::uint64_t wholeNumber(const Json& value) {
    return value.get_ref<const Json::number_unsigned_t&>(); // raises for a fraction or a negative one
}

std::string keyOf(const BatchLine& line) {
    return line.Target ? storable(*line.Target) : "@" + line.id();
}

[[noreturn]] void failNoJournal(const std::string& file) {
    fail(failure::kNoJournal, {file}, file + " exists and is not a journal; name another file with --journal");
}

// True for a first line that is the header, or the beginning of an incomplete one.
bool isHeader(std::string_view line, bool ended) {
    return ended ? line == kHeader : kHeader.starts_with(line);
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
    std::size_t unreadable = 0;
    bool first = true;
    const auto takeNext = [&](std::string_view line, bool ended) {
        if (first && !isHeader(line, ended)) {
            failNoJournal(file);
        }
        if (!first && ended && !takeLine(line)) {
            ++unreadable;
        }
        first = false;
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
            rest += bytes.substr(0, end);
            takeNext(rest, true);
            rest.clear();
            bytes.remove_prefix(end + 1);
        }
        rest += bytes;
        if (first && rest.size() > kHeader.size()) {
            failNoJournal(file);
        }
    }
    if (!rest.empty()) {
        takeNext(rest, false);
    }
    return unreadable;
}

bool BatchHistory::takeLine(std::string_view text) {
    const Json line = Json::parse(text, nullptr, false);
    try {
        Entry& entry = Entries[line.at("key").get<std::string>()];
        const std::string& state = line.at("state").get_ref<const std::string&>();
        if (state == "started") {
            const auto temporary = restored(line.at("temporary"));
            if (!temporary) {
                return false;
            }
            entry.Unfinished = {line.at("line"), *temporary, wholeNumber(line.at("device")),
                                wholeNumber(line.at("inode"))};
            return true;
        }
        if (state == "written") {
            if (entry.Unfinished && entry.Unfinished->Digest == line.at("line").get_ref<const std::string&>()) {
                entry.Unfinished->Bytes = wholeNumber(line.at("bytes"));
            }
            return true;
        }
        if (state == "done") {
            const Ended result{static_cast<int>(wholeNumber(line.at("status"))), wholeNumber(line.at("bytes"))};
            entry.DoneDigest = line.at("line");
            entry.Result = result;
        } else if (state != "failed") {
            return false;
        }
        entry.Unfinished.reset();
        return true;
    } catch (const Json::exception&) {
        return false;
    }
}

std::optional<BatchHistory::Ended> BatchHistory::done(const BatchLine& line) const {
    const auto found = Entries.find(keyOf(line));
    if (found == Entries.end()) {
        return std::nullopt;
    }
    const Entry& entry = found->second;
    struct stat facts {};
    const bool there = line.Target && stat(line.Target->c_str(), &facts) == 0;
    const auto size = static_cast<std::uint64_t>(facts.st_size);
    // A file gets its name when it is complete. A run killed between that and its last journal line has left a file
    // that can be recognised by its inode number and its size.
    const auto& unfinished = entry.Unfinished;
    if (unfinished && unfinished->Digest == line.digest() && there && facts.st_ino == unfinished->Inode &&
        facts.st_dev == unfinished->Device && size == unfinished->Bytes) {
        return Ended{0, size};
    }
    if (entry.DoneDigest != line.digest()) {
        return std::nullopt;
    }
    const bool intact = there && size == entry.Result.Bytes;
    return !line.Target || intact ? std::optional(entry.Result) : std::nullopt;
}

// Someone who can write the journal must not be able to make us remove other files: a file is removed only if its name
// is one that we make, and it is ours and the very file that was written.
void BatchHistory::removeLeftovers() const {
    for (const auto& [key, entry] : Entries) {
        if (!entry.Unfinished || !isTemporaryName(entry.Unfinished->Temporary)) {
            continue;
        }
        const std::string& name = entry.Unfinished->Temporary;
        struct stat facts {};
        if (lstat(name.c_str(), &facts) == 0 && S_ISREG(facts.st_mode) && facts.st_uid == geteuid() &&
            facts.st_ino == entry.Unfinished->Inode && facts.st_dev == entry.Unfinished->Device) {
            unlink(name.c_str());
        }
    }
}

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
    const std::string header = std::string(kHeader) + "\n";
    std::string head(std::min<std::size_t>(static_cast<std::size_t>(facts.st_size), header.size()), '\0');
    readAt(head.data(), head.size(), 0);
    if (!header.starts_with(head)) {
        failNoJournal(Name);
    }
    off_t end = facts.st_size;
    for (char last = 0; end > 0; --end) {
        readAt(&last, 1, end - 1);
        if (last == '\n') {
            break;
        }
    }
    if (end != facts.st_size && retried([&] { return ftruncate(File.Number, end); }) != 0) {
        failSystem(failure::kFileNotWritten, Name, errno);
    }
    if (end == 0) {
        append(std::string(kHeader));
    }
}

void BatchJournal::append(const std::string& text) {
    const std::lock_guard lock(Guard);
    if (!writeAll(File.Number, text + "\n")) {
        failSystem(failure::kFileNotWritten, Name, errno);
    }
    const auto now = std::chrono::steady_clock::now();
    if (now < NextSync) {
        return;
    }
    NextSync = now + kSyncInterval;
    sync();
}

// The system reports a failed write once, to whoever asks first.
void BatchJournal::sync() {
    const int error = syncContent(File.Number);
    if (error != 0 && error != EROFS) {
        failSystem(failure::kFileNotWritten, Name, error);
    }
}

namespace {

Json lineFor(const BatchLine& line, const char* state) {
    return {{"id", line.id()}, {"key", keyOf(line)}, {"line", line.digest()}, {"state", state}};
}

std::string dumped(const Json& object) {
    return object.dump(-1, ' ', true, Json::error_handler_t::replace);
}

} // namespace

void BatchJournal::started(const BatchLine& line, const OutputFile& file) {
    struct stat facts {};
    if (fstat(file.descriptor(), &facts) != 0) {
        failSystem(failure::kFileNotWritten, file.temporaryName(), errno);
    }
    Json object = lineFor(line, "started");
    object["temporary"] = storable(file.temporaryName());
    object["device"] = std::uint64_t{facts.st_dev};
    object["inode"] = std::uint64_t{facts.st_ino};
    append(dumped(object));
}

void BatchJournal::written(const BatchLine& line, const OutputFile& file) {
    Json object = lineFor(line, "written");
    object["bytes"] = file.size();
    append(dumped(object));
}

void BatchJournal::done(const BatchLine& line, int status, std::uint64_t bytes) {
    Json object = lineFor(line, "done");
    object["status"] = status;
    object["bytes"] = bytes;
    append(dumped(object));
}

void BatchJournal::failed(const BatchLine& line, const vantik::Message& message) {
    Json object = lineFor(line, "failed");
    object["identifier"] = message.identifier();
    append(dumped(object));
}

} // namespace netrove::cli
