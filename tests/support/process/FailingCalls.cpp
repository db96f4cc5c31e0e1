// A library that is loaded in front of the C library of another program: system calls on the files of one folder are
// recorded, and fail where the environment says so. See FailingCalls.h. Lock-free, since signal handlers make calls
// too.
#include <linux/limits.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <sstream>
#include <string>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::array kCalls = {"close",   "dup",       "fchmod",   "fdatasync", "flock",     "fstat",
                               "fstatat", "ftruncate", "linkat",   "listing",   "lstat",     "mkdir",
                               "open",    "openat",    "pread",    "read",      "renameat2", "stat",
                               "tmpfile", "unlink",    "unlinkat", "write"};

struct Rule {
    std::string Call;
    int Number; // of the call that fails, from 1; 0: each one
    int Error;  // 0: it does half of what it was to do
};

std::string textOf(const char* variable) {
    const char* value = std::getenv(variable);
    return value == nullptr ? "" : value;
}

struct Plan {
    std::string Folder = textOf("NETROVE_CALLS_FOLDER");
    std::string Record = textOf("NETROVE_CALLS_RECORD");
    std::vector<Rule> Rules;

    Plan() {
        std::istringstream words(textOf("NETROVE_CALLS_FAIL"));
        for (Rule rule; words >> rule.Call >> rule.Number >> rule.Error;) {
            Rules.push_back(rule);
        }
    }
};

const Plan& plan() {
    static const Plan instance;
    return instance;
}

bool isInside(std::string_view path) {
    const std::string_view folder = plan().Folder;
    return !folder.empty() && path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

bool linkIsInside(const char* link) {
    char target[PATH_MAX];
    const long length = syscall(SYS_readlinkat, AT_FDCWD, link, target, sizeof target);
    return length > 0 && isInside({target, static_cast<std::size_t>(length)});
}

bool isInside(int descriptor) {
    const int savedErrno = errno;
    const bool inside = descriptor == AT_FDCWD ? linkIsInside("/proc/self/cwd")
                                               : linkIsInside(("/proc/self/fd/" + std::to_string(descriptor)).c_str());
    errno = savedErrno;
    return inside;
}

bool isInside(int folder, const char* path) {
    return *path == '/' ? isInside(std::string_view(path)) : isInside(folder);
}

constexpr int kAsUsual = -1;

// The error number that this call is to fail with.
int verdict(std::string_view call, bool inside) {
    static std::array<std::atomic<int>, kCalls.size()> counts{};
    if (!inside) {
        return kAsUsual;
    }
    const auto place = static_cast<std::size_t>(std::find(kCalls.begin(), kCalls.end(), call) - kCalls.begin());
    const int number = ++counts.at(place);
    if (!plan().Record.empty()) {
        const std::string line = std::string(call) + "\n";
        const int savedErrno = errno;
        const long record = syscall(SYS_openat, AT_FDCWD, plan().Record.c_str(), O_WRONLY | O_APPEND | O_CREAT, 0600);
        syscall(SYS_write, record, line.data(), line.size());
        syscall(SYS_close, record);
        errno = savedErrno;
    }
    for (const Rule& rule : plan().Rules) {
        if (rule.Call == call && (rule.Number == 0 || rule.Number == number)) {
            return rule.Error;
        }
    }
    return kAsUsual;
}

// Half of the bytes, where no error number but that is wanted.
std::size_t amount(int error, std::size_t wanted) {
    return error == 0 ? (wanted + 1) / 2 : wanted;
}

int failed(int error) {
    errno = error;
    return -1;
}

mode_t modeOf(int flags, std::va_list rest) {
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0;
}

} // namespace

#define NETROVE_EXPORT extern "C" __attribute__((visibility("default")))
// The function of that name that this library stands in for.
#define NETROVE_NEXT(name) static const auto next = reinterpret_cast<decltype(&(name))>(::dlsym(RTLD_NEXT, #name))
// A function that fails as the plan says, and otherwise calls the next one.
#define NETROVE_CALL(result, name, call, inside, parameters, arguments)                                                \
    NETROVE_EXPORT result name parameters {                                                                            \
        NETROVE_NEXT(name);                                                                                            \
        const int error = verdict(call, inside);                                                                       \
        return error > 0 ? failed(error) : next arguments;                                                             \
    }

NETROVE_CALL(int, fdatasync, "fdatasync", isInside(fd), (int fd), (fd))
NETROVE_CALL(int, flock, "flock", isInside(fd), (int fd, int operation) noexcept, (fd, operation))
NETROVE_CALL(int, fchmod, "fchmod", isInside(fd), (int fd, mode_t mode) noexcept, (fd, mode))
NETROVE_CALL(int, ftruncate, "ftruncate", isInside(fd), (int fd, off_t length) noexcept, (fd, length))
NETROVE_CALL(int, ftruncate64, "ftruncate", isInside(fd), (int fd, off64_t length) noexcept, (fd, length))
NETROVE_CALL(int, fstat, "fstat", isInside(fd), (int fd, struct stat* facts) noexcept, (fd, facts))
NETROVE_CALL(int, fstat64, "fstat", isInside(fd), (int fd, struct stat64* facts) noexcept, (fd, facts))
NETROVE_CALL(int, stat, "stat", isInside(AT_FDCWD, path), (const char* path, struct stat* facts) noexcept,
             (path, facts))
NETROVE_CALL(int, stat64, "stat", isInside(AT_FDCWD, path), (const char* path, struct stat64* facts) noexcept,
             (path, facts))
NETROVE_CALL(int, lstat, "lstat", isInside(AT_FDCWD, path), (const char* path, struct stat* facts) noexcept,
             (path, facts))
NETROVE_CALL(int, lstat64, "lstat", isInside(AT_FDCWD, path), (const char* path, struct stat64* facts) noexcept,
             (path, facts))
NETROVE_CALL(int, fstatat, "fstatat", isInside(folder, path),
             (int folder, const char* path, struct stat* facts, int flags) noexcept, (folder, path, facts, flags))
NETROVE_CALL(int, fstatat64, "fstatat", isInside(folder, path),
             (int folder, const char* path, struct stat64* facts, int flags) noexcept, (folder, path, facts, flags))
NETROVE_CALL(int, mkdir, "mkdir", isInside(AT_FDCWD, path), (const char* path, mode_t mode) noexcept, (path, mode))
NETROVE_CALL(int, unlink, "unlink", isInside(AT_FDCWD, path), (const char* path) noexcept, (path))
NETROVE_CALL(int, unlinkat, "unlinkat", isInside(folder, path), (int folder, const char* path, int flags) noexcept,
             (folder, path, flags))
NETROVE_CALL(int, linkat, "linkat", isInside(toFolder, to),
             (int fromFolder, const char* from, int toFolder, const char* to, int flags) noexcept,
             (fromFolder, from, toFolder, to, flags))
NETROVE_CALL(int, renameat2, "renameat2", isInside(toFolder, to),
             (int fromFolder, const char* from, int toFolder, const char* to, unsigned flags) noexcept,
             (fromFolder, from, toFolder, to, flags))
NETROVE_CALL(ssize_t, write, "write", isInside(fd), (int fd, const void* bytes, std::size_t count),
             (fd, bytes, amount(error, count)))
NETROVE_CALL(ssize_t, read, "read", isInside(fd), (int fd, void* bytes, std::size_t count),
             (fd, bytes, amount(error, count)))
NETROVE_CALL(ssize_t, pread, "pread", isInside(fd), (int fd, void* bytes, std::size_t count, off_t place),
             (fd, bytes, amount(error, count), place))
NETROVE_CALL(ssize_t, pread64, "pread", isInside(fd), (int fd, void* bytes, std::size_t count, off64_t place),
             (fd, bytes, amount(error, count), place))

// Where a close fails, the descriptor is gone all the same.
NETROVE_EXPORT int close(int fd) {
    NETROVE_NEXT(close);
    const int error = verdict("close", isInside(fd));
    const int result = next(fd);
    return error > 0 ? failed(error) : result;
}

#define NETROVE_OPEN(name)                                                                                             \
    NETROVE_EXPORT int name(const char* path, int flags, ...) {                                                        \
        NETROVE_NEXT(name);                                                                                            \
        std::va_list rest;                                                                                             \
        va_start(rest, flags);                                                                                         \
        const mode_t mode = modeOf(flags, rest);                                                                       \
        va_end(rest);                                                                                                  \
        const int error = verdict("open", isInside(AT_FDCWD, path));                                                   \
        return error > 0 ? failed(error) : next(path, flags, mode);                                                    \
    }
NETROVE_OPEN(open)
NETROVE_OPEN(open64)

#define NETROVE_OPENAT(name)                                                                                           \
    NETROVE_EXPORT int name(int folder, const char* path, int flags, ...) {                                            \
        NETROVE_NEXT(name);                                                                                            \
        std::va_list rest;                                                                                             \
        va_start(rest, flags);                                                                                         \
        const mode_t mode = modeOf(flags, rest);                                                                       \
        va_end(rest);                                                                                                  \
        const char* const call = (flags & O_TMPFILE) == O_TMPFILE ? "tmpfile"                                          \
                                 : (flags & O_DIRECTORY) != 0     ? "listing"                                          \
                                                                  : "openat";                                              \
        const int error = verdict(call, isInside(folder, path));                                                       \
        return error > 0 ? failed(error) : next(folder, path, flags, mode);                                            \
    }
NETROVE_OPENAT(openat)
NETROVE_OPENAT(openat64)

#define NETROVE_FCNTL(name)                                                                                            \
    NETROVE_EXPORT int name(int fd, int command, ...) {                                                                \
        NETROVE_NEXT(name);                                                                                            \
        std::va_list rest;                                                                                             \
        va_start(rest, command);                                                                                       \
        void* const argument = va_arg(rest, void*);                                                                    \
        va_end(rest);                                                                                                  \
        const int error = verdict("dup", command == F_DUPFD_CLOEXEC && isInside(fd));                                  \
        return error > 0 ? failed(error) : next(fd, command, argument);                                                \
    }
NETROVE_FCNTL(fcntl)
NETROVE_FCNTL(fcntl64)
