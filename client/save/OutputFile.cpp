#include "client/failures/ClientFailure.h"
#include "client/save/FileParts.h"

#include <netrove/outputfile.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <string_view>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace netrove {

namespace {

constexpr std::size_t kLongestPrefix = 200; // of the target's name in the temporary one
constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyz012345";
constexpr std::size_t kRandomLetters = 16;
constexpr std::string_view kEnd = ".part";
constexpr int kMostNames = 8; // that are tried where others lock our files

std::string randomText() {
    std::array<unsigned char, kRandomLetters> bytes{};
    if (retried([&] { return getrandom(bytes.data(), bytes.size(), 0); }) != static_cast<ssize_t>(bytes.size())) {
        failSystem(failure::kFileNotWritten, "temporary file", errno);
    }
    std::string text;
    for (const unsigned char byte : bytes) {
        text += kLetters[byte % kLetters.size()];
    }
    return text;
}

// Follows links, so that the file that a link leads to is replaced, and not the link.
std::string realTarget(const std::string& target) {
    const std::unique_ptr<char, decltype(&std::free)> real(realpath(target.c_str(), nullptr), &std::free);
    return real ? std::string(real.get()) : target;
}

// With its slash; empty for the current folder.
std::string folderOf(const std::string& path) {
    return path.substr(0, path.rfind('/') + 1);
}

std::string nameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

std::string prefixFor(const std::string& name) {
    return "." + name.substr(0, kLongestPrefix) + ".";
}

std::string temporaryNameFor(const std::string& name) {
    return prefixFor(name) + randomText() + std::string(kEnd);
}

bool isTemporaryNameFor(const std::string& name, std::string_view entry) {
    const std::string prefix = prefixFor(name);
    return entry.size() == prefix.size() + kRandomLetters + kEnd.size() && entry.starts_with(prefix) &&
           isTemporaryName(std::string(entry));
}

// Needs only permission to search the folder.
int openFolder(const std::string& folder) {
    return retried([&] { return open(folder.empty() ? "." : folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC); });
}

std::string nameOfDescriptor(int descriptor) {
    return "/proc/self/fd/" + std::to_string(descriptor);
}

// False if another program has it, or removed it before it could be locked. A file system without locks is no reason to
// fail: nobody can take the file for a leftover then.
bool lockOwn(int descriptor) {
    struct stat facts {};
    return retried([&] { return flock(descriptor, LOCK_EX | LOCK_NB); }) == 0
               ? fstat(descriptor, &facts) != 0 || facts.st_nlink != 0
               : errno != EWOULDBLOCK;
}

// Only a regular file of this user.
void removeUnlessLocked(int folder, const char* name) {
    struct stat seen {};
    const auto isOwn = [&] {
        return fstatat(folder, name, &seen, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(seen.st_mode) &&
               seen.st_uid == geteuid();
    };
    if (!isOwn()) {
        return;
    }
    const auto openFor = [&](int access) {
        return retried([&] { return openat(folder, name, access | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); });
    };
    Descriptor file(openFor(O_RDWR)); // some file systems lock nothing that cannot be written
    if (file.Number < 0) {
        file.Number = openFor(O_RDONLY); // it may have the permissions of the file that it was to replace
    }
    struct stat own {};
    if (file.Number >= 0 && retried([&] { return flock(file.Number, LOCK_EX | LOCK_NB); }) == 0 &&
        fstat(file.Number, &own) == 0 && isOwn() && sameFile(own, seen)) {
        unlinkat(folder, name, 0);
    }
}

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

void removeLeftoversOf(int folder, const std::string& name, std::string_view own) {
    const int listing = retried([&] { return openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
    const std::unique_ptr<DIR, CloseFolder> entries(listing < 0 ? nullptr : fdopendir(listing));
    if (!entries) {
        const Descriptor unused(listing);
        return;
    }
    while (const dirent* entry = readdir(entries.get())) {
        if (isTemporaryNameFor(name, entry->d_name) && entry->d_name != own) {
            removeUnlessLocked(folder, entry->d_name);
        }
    }
}

[[noreturn]] void failExists(const std::string& target) {
    fail(failure::kFileExists, {target}, target + " exists");
}

} // namespace

OutputFile::OutputFile(const std::string& target, bool replace)
    : OutputFile(target, replace ? realTarget(target) : target, replace) {}

OutputFile::OutputFile(const std::string& target, const std::string& real, bool replace)
    : Target(target), Replace(replace), Folder(openFolder(folderOf(real))), Name(nameOf(real)),
      FolderPath(folderOf(real)), Temporary(Folder.Number, ""), File(-1) {
    if (Folder.Number < 0) {
        failNotWritten(errno);
    }
    if (Name.empty()) {
        failNotWritten(isFolder(real) ? EISDIR : ENOENT);
    }
    struct stat old {};
    const bool exists = fstatat(Folder.Number, Name.c_str(), &old, AT_SYMLINK_NOFOLLOW) == 0;
    if (!exists && errno != ENOENT) {
        failNotWritten(errno);
    }
    if (exists && S_ISDIR(old.st_mode)) {
        failNotWritten(EISDIR);
    }
    // Also by the name as given: a pipe known only by its descriptor has no other.
    const bool leadsOn = exists ? S_ISLNK(old.st_mode) : real != target;
    if ((exists && !S_ISREG(old.st_mode) && !leadsOn) || (leadsOn && isSpecialFile(target))) {
        fail(failure::kFileNotWritten, {target, "not a regular file"}, target + ": not a regular file");
    }
    if (exists && !replace) {
        failExists(target);
    }
    // Set-user-ID and the like are dropped: the content comes from elsewhere, and the owner may be another one.
    if (exists && S_ISREG(old.st_mode)) {
        Permissions = old.st_mode & 0777;
    }
    // Until the permissions are settled, nobody may open what the replaced file would not let them read.
    const mode_t mode = Permissions ? 0600 : 0666;
    if (openWithoutName(mode)) {
        return;
    }
    Named = openNamed(mode);
    if (!Named) {
        failNotWritten(errno);
    }
}

// Locked, so that nobody takes it for the leftover of a killed program. Between the two calls somebody may, and then
// there is another one.
bool OutputFile::openNamed(unsigned mode) {
    const auto make = [&] {
        File.Number = retried([&] {
            return openat(Folder.Number, Temporary.name(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
        });
        return File.Number;
    };
    renewTemporary();
    for (int names = 1; Temporary.make(make) >= 0; ++names) {
        if (lockOwn(File.Number) || names == kMostNames) {
            return true;
        }
        close(std::exchange(File.Number, -1));
        renewTemporary();
    }
    return false;
}

void OutputFile::renewTemporary() {
    Temporary.renew(temporaryNameFor(Name));
    TemporaryPath = FolderPath + Temporary.name();
}

// Where the file system makes files without a name, only one that replaces another ever has a temporary one.
void OutputFile::removeLeftovers() const {
    if (Named || Permissions) {
        removeLeftoversOf(Folder.Number, Name, Temporary.name());
    }
}

// A file that nobody else can open or replace, and that disappears with the program. False if the file system cannot
// make one, or if it could not be given a name later because /proc is missing.
bool OutputFile::openWithoutName(unsigned mode) {
    static std::atomic<bool> canBeNamed = false; // what works for one file works for all
    Descriptor file(retried([&] { return openat(Folder.Number, ".", O_RDWR | O_TMPFILE | O_CLOEXEC, mode); }));
    if (file.Number < 0) {
        return false;
    }
    if (!canBeNamed) {
        struct stat own {};
        struct stat seen {};
        if (fstat(file.Number, &own) != 0 || stat(nameOfDescriptor(file.Number).c_str(), &seen) != 0 ||
            !sameFile(own, seen)) {
            return false;
        }
        canBeNamed = true;
    }
    std::swap(File.Number, file.Number);
    return true;
}

void OutputFile::write(std::span<const std::byte> bytes) {
    writeAll(File.Number, bytes, Target);
    Written += bytes.size();
}

void OutputFile::restart() {
    if (std::exchange(Written, 0) != 0) {
        netrove::restart(File.Number, Target);
    }
}

void OutputFile::keep() {
    settle();
    name();
}

void OutputFile::settle(bool flushed) {
    settlePermissions();
    if (const int error = flushed ? 0 : syncContent(File.Number)) {
        failNotWritten(error);
    }
    checkClose();
}

void OutputFile::name() {
    if (Named) {
        checkTemporary();
    } else {
        if (link(Name.c_str()) == 0) {
            return;
        }
        if (errno == EEXIST && !Replace) {
            failExists(Target);
        }
        if (errno != EEXIST) {
            failNotWritten(errno);
        }
        // Only a rename replaces a file, and it needs a name to start from. Nobody else can have locked it.
        renewTemporary();
        retried([&] { return flock(File.Number, LOCK_EX | LOCK_NB); });
        if (Temporary.make([&] { return link(Temporary.name()); }) != 0) {
            failNotWritten(errno);
        }
    }
    rename();
}

// A replaced file keeps its permissions, if the file system has any.
void OutputFile::settlePermissions() const {
    if (Permissions && retried([&] { return fchmod(File.Number, *Permissions); }) != 0 && errno != EPERM &&
        errno != EOPNOTSUPP && errno != ENOSYS) {
        failNotWritten(errno);
    }
}

// Some file systems report a failed write only at a close, and each close of the file is one. It is done by hand: an
// owner could not report it.
void OutputFile::checkClose() const {
    const int copy = fcntl(File.Number, F_DUPFD_CLOEXEC, 0);
    if (copy < 0 || (close(copy) != 0 && errno != EINTR)) {
        failNotWritten(errno);
    }
}

// If somebody has replaced the temporary file, it is not what was received.
void OutputFile::checkTemporary() const {
    struct stat own {};
    struct stat there {};
    if (fstat(File.Number, &own) != 0 || fstatat(Folder.Number, Temporary.name(), &there, AT_SYMLINK_NOFOLLOW) != 0) {
        failNotWritten(errno);
    }
    if (!sameFile(own, there)) {
        fail(failure::kFileNotWritten, {Target, "somebody replaced its temporary file"},
             Target + ": somebody replaced its temporary file");
    }
}

// By the descriptor itself where the system allows that; else by its name in /proc.
int OutputFile::link(const char* name) const {
    static std::atomic<bool> byDescriptor = true; // what works for one file works for all
    if (byDescriptor) {
        const int linked = retried([&] { return linkat(File.Number, "", Folder.Number, name, AT_EMPTY_PATH); });
        if (linked == 0 || (errno != ENOENT && errno != EINVAL && errno != EPERM)) {
            return linked;
        }
    }
    const std::string own = nameOfDescriptor(File.Number);
    const int linked = retried([&] { return linkat(AT_FDCWD, own.c_str(), Folder.Number, name, AT_SYMLINK_FOLLOW); });
    if (linked == 0) {
        byDescriptor = false;
    }
    return linked;
}

void OutputFile::rename() {
    const int moved = Temporary.take([&] {
        return retried([&] {
            return renameat2(Folder.Number, Temporary.name(), Folder.Number, Name.c_str(),
                             Replace ? 0 : RENAME_NOREPLACE);
        });
    });
    if (moved == 0) {
        return;
    }
    // For a file system without that operation: a link never replaces anything either. The temporary name is removed at
    // the end.
    if (!Replace && (errno == EINVAL || errno == ENOSYS) &&
        retried([&] { return linkat(Folder.Number, Temporary.name(), Folder.Number, Name.c_str(), 0); }) == 0) {
        return;
    }
    if (errno == EEXIST && !Replace) {
        failExists(Target);
    }
    failNotWritten(errno);
}

void OutputFile::failNotWritten(int errorNumber) const {
    failSystem(failure::kFileNotWritten, Target, errorNumber);
}

void removeLeftovers(const std::string& target) {
    const std::string real = realTarget(target);
    const Descriptor folder(openFolder(folderOf(real)));
    removeLeftoversOf(folder.Number, nameOf(real), {});
}

bool isTemporaryName(const std::string& path) {
    const std::string name = nameOf(path);
    if (!name.starts_with('.') || !name.ends_with(kEnd) || name.size() < 2 + kRandomLetters + kEnd.size()) {
        return false;
    }
    const std::string_view random =
        std::string_view(name).substr(name.size() - kEnd.size() - kRandomLetters, kRandomLetters);
    return random.find_first_not_of(kLetters) == random.npos &&
           name[name.size() - kEnd.size() - kRandomLetters - 1] == '.';
}

bool isSpecialFile(const std::string& path) {
    struct stat facts {};
    return stat(path.c_str(), &facts) == 0 && !S_ISREG(facts.st_mode) && !S_ISDIR(facts.st_mode);
}

bool isFolder(const std::string& path) {
    struct stat facts {};
    return stat(path.c_str(), &facts) == 0 && S_ISDIR(facts.st_mode);
}

bool fileExists(const std::string& path) {
    struct stat facts {};
    return lstat(path.c_str(), &facts) == 0;
}

} // namespace netrove
