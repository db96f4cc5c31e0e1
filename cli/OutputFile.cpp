#include "cli/OutputFile.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cli/CliFailure.h"

namespace netrove::cli {

namespace {

constexpr std::size_t kLongestPrefix = 200; // of the target's name in the temporary one
constexpr int kAttempts = 16;

std::string randomText() {
    constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyz012345";
    std::array<unsigned char, 16> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        failSystem(failure::kFileNotWritten, "temporary file", errno);
    std::string text;
    for (const unsigned char byte : bytes)
        text += kLetters[byte % kLetters.size()];
    return text;
}

// Follows links, so that the file behind a link is replaced and not the link.
std::string realTarget(const std::string& target) {
    const std::unique_ptr<char, decltype(&std::free)> real(realpath(target.c_str(), nullptr), &std::free);
    return real ? std::string(real.get()) : target;
}

[[noreturn]] void failExists(const std::string& target) {
    fail(failure::kFileExists, {target}, target + " exists; use --force to replace it");
}

} // namespace

OutputFile::OutputFile(const std::string& target, bool replace)
    : Target(replace ? realTarget(target) : target), Replace(replace) {
    if (isFolder(Target))
        failSystem(failure::kFileNotWritten, target, EISDIR);
    // By the name as it was given: a pipe that is known only by its descriptor has no other.
    if (isSpecialFile(target))
        fail(failure::kFileNotWritten, {target, "no regular file"}, target + ": no regular file");
    struct stat old {};
    const bool exists = lstat(Target.c_str(), &old) == 0;
    if (exists && !replace)
        failExists(target);
    const auto slash = Target.rfind('/');
    const std::string folder = slash == Target.npos ? "" : Target.substr(0, slash + 1);
    const std::string name = Target.substr(folder.size());
    if (name.empty())
        failSystem(failure::kFileNotWritten, target, ENOENT);
    // Set-user-ID and its like do not stay: the content comes from elsewhere, and the owner may be another one.
    if (exists && S_ISREG(old.st_mode))
        Permissions = old.st_mode & 0777;
    // Nobody opens meanwhile what the permissions of the file that is replaced will not let them read.
    const mode_t mode = Permissions ? 0600 : 0666;
    for (int attempt = 0; Descriptor < 0; ++attempt) {
        Temporary = folder + "." + name.substr(0, kLongestPrefix) + "." + randomText() + ".part";
        Descriptor = open(Temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
        if (Descriptor < 0 && (errno != EEXIST || attempt == kAttempts))
            failSystem(failure::kFileNotWritten, target, errno);
    }
}

OutputFile::~OutputFile() {
    if (Descriptor >= 0)
        close(Descriptor);
    if (!Temporary.empty())
        unlink(Temporary.c_str());
}

std::uint64_t OutputFile::size() const {
    struct stat facts {};
    return fstat(Descriptor, &facts) == 0 ? static_cast<std::uint64_t>(facts.st_size) : 0;
}

// A name that is on the disk before the content would stand for an empty file after a power cut.
void OutputFile::sync() const {
    int result = 0;
    do
        result = fdatasync(Descriptor);
    while (result != 0 && errno == EINTR);
    if (result != 0 && errno != EINVAL) // a file system that knows no such operation
        failSystem(failure::kFileNotWritten, Target, errno);
}

void OutputFile::keep() {
    // A file that is replaced keeps its permissions, as far as we may set them. Only now: the content may have been
    // written by name, which permissions to read alone would not allow.
    if (Permissions) [[maybe_unused]]
        const int result = fchmod(Descriptor, *Permissions);
    sync();
    // Some file systems report a failed write only here.
    const int closed = close(Descriptor);
    Descriptor = -1;
    if (closed != 0 && errno != EINTR)
        failSystem(failure::kFileNotWritten, Target, errno);
    rename();
    Temporary.clear();
}

void OutputFile::rename() {
    if (Replace) {
        if (std::rename(Temporary.c_str(), Target.c_str()) != 0)
            failSystem(failure::kFileNotWritten, Target, errno);
        return;
    }
    if (renameat2(AT_FDCWD, Temporary.c_str(), AT_FDCWD, Target.c_str(), RENAME_NOREPLACE) == 0)
        return;
    if (errno == EINVAL || errno == ENOSYS) {
        // A file system without that operation: a link never replaces anything either.
        if (link(Temporary.c_str(), Target.c_str()) == 0) {
            unlink(Temporary.c_str());
            return;
        }
    }
    if (errno == EEXIST)
        failExists(Target);
    failSystem(failure::kFileNotWritten, Target, errno);
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

} // namespace netrove::cli
