#include "client/failures/ClientFailure.h"
#include "client/request/RequestChecks.h"
#include "client/save/ContentStore.h"
#include "client/save/FileParts.h"
#include "client/text/HttpDate.h"

#include <netrove/descriptor.h>
#include <netrove/outputfile.h>
#include <nlohmann/json.hpp>

#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace netrove {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLargestNote = 4096;                       // bytes
constexpr std::uint64_t kSyncedAtOnce = std::uint64_t{64} << 20; // bytes; lost at most when the machine fails

// The link itself stays, as with a file that is received anew.
fs::path withoutLink(const fs::path& target, bool replace) {
    std::error_code none;
    const fs::path real = replace && fs::is_symlink(target, none) ? fs::canonical(target, none) : fs::path();
    return real.empty() ? target : real;
}

} // namespace

fs::path partNameFor(const fs::path& target, bool replace) {
    return withoutLink(target, replace).string() + ".part";
}

fs::path noteNameFor(const fs::path& part) {
    return part.string() + ".json";
}

namespace {

// A file that nobody but this user has made.
bool isOwn(const struct stat& facts) {
    return S_ISREG(facts.st_mode) && facts.st_uid == geteuid() && facts.st_nlink == 1;
}

// One run of the machine. What a program has written is there until the run ends, on the disk or not.
std::string bootId() {
    const Descriptor file(retried([] { return open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC); }));
    std::string text(36, '\0'); // its length
    const ssize_t count = file.Number < 0 ? -1 : retried([&] { return read(file.Number, text.data(), text.size()); });
    text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return text;
}

// What stands beside the part.
struct Note {
    ContentState State;
    std::string Boot;
    std::uint64_t Synced = 0; // bytes that are on the disk for certain
};

std::string textOf(const Note& note) {
    nlohmann::ordered_json object = {{"validator", note.State.Validator},
                                     {"lastModified", note.State.Modified},
                                     {"coding", note.State.Coding},
                                     {"boot", note.Boot},
                                     {"synced", note.Synced}};
    if (note.State.Length) {
        object["length"] = *note.State.Length;
    }
    return object.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace) + '\n';
}

// Nothing for a text that is not a note. Other users may have written what is in it.
std::optional<Note> noteIn(const std::string& text) {
    const nlohmann::json object = nlohmann::json::parse(text, nullptr, false);
    const auto word = [&](const char* name) {
        const auto found = object.find(name);
        return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
    };
    const auto number = [&](const char* name) {
        const auto found = object.find(name);
        return found != object.end() && found->is_number_unsigned() ? std::optional(found->get<std::uint64_t>())
                                                                    : std::nullopt;
    };
    if (!object.is_object() || !object.contains("validator") || !object["validator"].is_string() ||
        !isFieldValue(word("validator"))) {
        return std::nullopt;
    }
    return Note{{word("validator"), word("lastModified"), word("coding"), number("length")},
                word("boot"),
                number("synced").value_or(0)};
}

std::optional<Note> noteAt(const fs::path& path) {
    const Descriptor file(
        retried([&] { return open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
    struct stat facts {};
    if (file.Number < 0 || fstat(file.Number, &facts) != 0 || !isOwn(facts)) {
        return std::nullopt;
    }
    std::string text(kLargestNote, '\0');
    const ssize_t count = retried([&] { return read(file.Number, text.data(), text.size()); });
    text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return noteIn(text);
}

class PartFile final : public ContentStore {
public:
    PartFile(const fs::path& target, bool replace, bool adopt)
        : Given(target), Target(withoutLink(target, replace)), Replace(replace), Part(Target.string() + ".part"),
          NoteFile(noteNameFor(Part)), NewPart(Part.string() + ".new"), File(-1), Newer(-1) {
        checkTarget();
        if (adopt && replace && adoptTarget()) {
            return;
        }
        openPart();
        readNote();
    }

    ~PartFile() override {
        if (Newer.Number >= 0) {
            unlink(NewPart.c_str()); // it has less than the other one
        }
        // Nothing has come, so there is nothing to go on from. An error is of no interest: the file is empty.
        struct stat facts {};
        if (!Adopted && fstat(File.Number, &facts) == 0 && facts.st_size == 0 && isAt(Part)) {
            unlink(Part.c_str());
            unlink(NoteFile.c_str());
        }
    }
    PartFile(const PartFile&) = delete;
    PartFile& operator=(const PartFile&) = delete;

    std::uint64_t size() const override { return sizeOf(current()); }
    const std::optional<ContentState>& state() const override { return Known; }
    bool plain() const override { return true; }

    bool holds(std::uint64_t at, std::span<const std::byte> bytes) const override {
        return holdsBytes(current(), at, bytes, Part.string());
    }

    // What is there is the better part until the new one has more.
    bool restart(const Response& head) override {
        if (Adopted) {
            close(std::exchange(File.Number, -1)); // only read from
            Adopted = false;
            openPart();
        }
        Known = stateOf(head);
        if (Newer.Number >= 0) {
            netrove::restart(Newer.Number, NewPart.string());
        } else if (sizeOf(File.Number) != 0) {
            openNewer();
        } else {
            netrove::restart(File.Number, Part.string());
            writeNote(0);
        }
        return true;
    }

    bool goOn(std::uint64_t at, const Response& head, bool forced) override {
        if (Adopted) {
            if (!forced && isOlderThan(head)) {
                return false;
            }
            // It was no more than a part, whatever its name said.
            if (renameat2(AT_FDCWD, Target.c_str(), AT_FDCWD, Part.c_str(), RENAME_NOREPLACE) != 0) {
                failNotWritten(errno);
            }
            Adopted = false;
        }
        if (retried([&] { return ftruncate(current(), static_cast<off_t>(at)); }) != 0 ||
            lseek(current(), 0, SEEK_END) < 0) {
            failNotWritten(errno);
        }
        if (!Known || forced) {
            Known = stateOf(head);
            if (Newer.Number < 0) {
                writeNote(0);
            }
        }
        return true;
    }

    bool write(std::span<const std::byte> piece) override {
        writeAll(current(), piece, Part.string());
        Unsynced += piece.size();
        if (Newer.Number >= 0) {
            if (sizeOf(Newer.Number) > sizeOf(File.Number)) {
                takeNewer();
            }
        } else if (Unsynced >= kSyncedAtOnce) {
            if (const int error = syncContent(File.Number)) {
                failNotWritten(error);
            }
            writeNote(sizeOf(File.Number));
        }
        return true;
    }

    void discard() override {
        if (Adopted) {
            return; // it stays until there is better content
        }
        if (Newer.Number >= 0) {
            takeNewer();
        }
        netrove::restart(File.Number, Part.string());
        unlink(NoteFile.c_str());
        Known.reset();
    }

    void finish(const Request& request, const Response& response) override {
        if (Newer.Number >= 0) {
            takeNewer();
        }
        finishContent(File.Number, request, response, Target.string());
    }

    void settle(bool flushed) override {
        if (Adopted) {
            return; // as it was
        }
        struct stat old {};
        if (stat(Target.c_str(), &old) == 0 && S_ISREG(old.st_mode) && fchmod(File.Number, old.st_mode & 0777) != 0) {
            failNotWritten(errno);
        }
        if (const int error = flushed ? 0 : syncContent(File.Number)) {
            failNotWritten(error);
        }
    }

    void name() override {
        if (Adopted) {
            return; // it is where it belongs
        }
        if (!isAt(Part)) {
            fail(failure::kFileNotWritten, {Part.string(), "somebody replaced it"},
                 Part.string() + ": somebody replaced it");
        }
        const unsigned how = Replace ? 0 : RENAME_NOREPLACE;
        if (renameat2(AT_FDCWD, Part.c_str(), AT_FDCWD, Target.c_str(), how) != 0) {
            if (errno == EEXIST && !Replace) {
                failExists();
            }
            failNotWritten(errno);
        }
        unlink(NoteFile.c_str()); // without the other file it says nothing
    }

    // Of a killed program: it and what belongs to it.
    void remove() {
        for (const fs::path& name : {NewPart, newNote()}) {
            unlink(name.c_str());
        }
        discard(); // an empty part goes at the end
    }

    int descriptor() const override { return current(); }
    std::string temporaryName() const override { return Adopted ? std::string() : Part.string(); }
    fs::path target() const override { return Given; }

private:
    fs::path newNote() const { return NoteFile.string() + ".new"; }
    int current() const { return Newer.Number >= 0 ? Newer.Number : File.Number; }

    // As for a file that is received anew: a device is not replaced by a file.
    void checkTarget() const {
        if (isFolder(Target)) {
            failNotWritten(EISDIR);
        }
        if (isSpecialFile(Target)) {
            fail(failure::kFileNotWritten, {Target.string(), "not a regular file"},
                 Target.string() + ": not a regular file");
        }
        if (!Replace && fileExists(Target)) {
            failExists();
        }
    }

    // The file may be of anybody who may write in the folder, so only one of our own is taken. Nobody may read from it
    // what the file that it replaces would not let them read.
    void openPart() {
        struct stat old {};
        const mode_t mode = stat(Target.c_str(), &old) == 0 ? old.st_mode & 0666 : 0666;
        for (;;) {
            Descriptor file(retried([&] {
                return open(Part.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, mode);
            }));
            struct stat facts {};
            if (file.Number < 0 || fstat(file.Number, &facts) != 0) {
                failSystem(failure::kFileNotWritten, Part.string(), errno);
            }
            if (!isOwn(facts)) {
                fail(failure::kFileNotWritten, {Part.string(), "not a file of this user alone"},
                     Part.string() + ": not a file of this user alone");
            }
            lock(file.Number, Part);
            // Another program may have held the lock until just now, and given the file its final name.
            struct stat there {};
            if (lstat(Part.c_str(), &there) == 0 && sameFile(facts, there)) {
                std::swap(File.Number, file.Number);
                return;
            }
        }
    }

    static void lock(int descriptor, const fs::path& path) {
        if (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
            fail(failure::kFileNotWritten, {path.string(), "in use"},
                 path.string() + " is in use: another program is receiving the same file");
        }
    }

    // What another program has left under the final name. False if there is no such file that could go on, or a part.
    bool adoptTarget() {
        struct stat part {};
        if (lstat(Part.c_str(), &part) == 0 && part.st_size != 0) {
            return false;
        }
        Descriptor file(
            retried([&] { return open(Target.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
        struct stat facts {};
        if (file.Number < 0 || fstat(file.Number, &facts) != 0 || !isOwn(facts) || facts.st_size == 0) {
            return false;
        }
        lock(file.Number, Target);
        struct stat there {};
        if (lstat(Target.c_str(), &there) != 0 || !sameFile(facts, there)) {
            return false;
        }
        unlink(Part.c_str()); // empty
        std::swap(File.Number, file.Number);
        Adopted = true;
        return true;
    }

    // For what is written while the other part is still the better one.
    void openNewer() {
        unlink(NewPart.c_str()); // of a program that has ended: this one holds the lock
        struct stat old {};
        const mode_t mode = stat(Target.c_str(), &old) == 0 ? old.st_mode & 0666 : 0666;
        Newer.Number =
            retried([&] { return open(NewPart.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode); });
        if (Newer.Number < 0) {
            failSystem(failure::kFileNotWritten, NewPart.string(), errno);
        }
        lock(Newer.Number, NewPart);
    }

    // Without a note in between, so that none speaks of the other file.
    void takeNewer() {
        unlink(NoteFile.c_str());
        if (rename(NewPart.c_str(), Part.c_str()) != 0) {
            failNotWritten(errno);
        }
        std::swap(File.Number, Newer.Number);
        close(std::exchange(Newer.Number, -1));
        writeNote(0);
    }

    bool isAt(const fs::path& path) const {
        struct stat own {};
        struct stat there {};
        return fstat(File.Number, &own) == 0 && lstat(path.c_str(), &there) == 0 && sameFile(own, there);
    }

    // The server's content is of a later time than what is here.
    bool isOlderThan(const Response& head) const {
        struct stat facts {};
        const auto modified = parseHttpDate(head.fields["Last-Modified"], WallClock::now());
        return modified && fstat(File.Number, &facts) == 0 &&
               modified->time_since_epoch().count() > static_cast<std::int64_t>(facts.st_mtim.tv_sec);
    }

    // Nothing is known where there is none that can be used.
    void readNote() {
        const auto note = sizeOf(File.Number) == 0 ? std::nullopt : noteAt(NoteFile);
        if (!note) {
            return;
        }
        Known = note->State;
        // After a power cut a file may have its length and not its content.
        if (!note->Boot.empty() && note->Boot != bootId() && note->Synced < sizeOf(File.Number) &&
            retried([&] { return ftruncate(File.Number, static_cast<off_t>(note->Synced)); }) != 0) {
            failNotWritten(errno);
        }
    }

    // A new file in place of the old one, so that no link of somebody else leads the writing elsewhere.
    void writeNote(std::uint64_t synced) {
        Unsynced = 0;
        const std::string text = textOf({*Known, bootId(), synced});
        const std::string name = newNote().string();
        unlink(name.c_str());
        const Descriptor file(
            retried([&] { return open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600); }));
        if (file.Number < 0) {
            failSystem(failure::kFileNotWritten, name, errno);
        }
        writeAll(file.Number, std::as_bytes(std::span(text)), name);
        if (rename(name.c_str(), NoteFile.c_str()) != 0) {
            failSystem(failure::kFileNotWritten, NoteFile.string(), errno);
        }
    }

    std::uint64_t sizeOf(int descriptor) const {
        struct stat facts {};
        if (fstat(descriptor, &facts) != 0) {
            failNotWritten(errno);
        }
        return static_cast<std::uint64_t>(facts.st_size);
    }

    [[noreturn]] void failExists() const { fail(failure::kFileExists, {Target.string()}, Target.string() + " exists"); }
    [[noreturn]] void failNotWritten(int error) const { failSystem(failure::kFileNotWritten, Target.string(), error); }

    fs::path Given;
    fs::path Target; // the file itself
    bool Replace;
    fs::path Part;
    fs::path NoteFile;
    fs::path NewPart;     // the whole anew, as long as it has less than the part
    Descriptor File;      // the part; with Adopted the target
    Descriptor Newer;     // NewPart, or none
    bool Adopted = false; // the target itself is what goes on
    std::uint64_t Unsynced = 0;
    std::optional<ContentState> Known;
};

} // namespace

void removePart(const fs::path& target) {
    const fs::path note = noteNameFor(partNameFor(target, true));
    if (!fileExists(note.string()) || !noteAt(note)) {
        return; // without one it may be a file of the user's own
    }
    try {
        PartFile(target, true, false).remove();
    } catch (const Error&) { // in use, or not of this user alone
    }
}

std::unique_ptr<ContentStore> partFile(const fs::path& target, bool replace, bool adopt) {
    return std::make_unique<PartFile>(target, replace, adopt);
}

} // namespace netrove
