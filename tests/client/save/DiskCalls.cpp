#include "tests/client/save/DiskCalls.h"

#include <cerrno>
#include <cstdarg>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace diskcalls {

std::function<int(int descriptor)> Sync;
std::function<int(int descriptor)> Lock;
bool FilesWithoutNames = true;

} // namespace diskcalls

extern "C" int fdatasync(int descriptor) {
    if (!diskcalls::Sync) {
        return static_cast<int>(syscall(SYS_fdatasync, descriptor));
    }
    errno = diskcalls::Sync(descriptor);
    return errno == 0 ? 0 : -1;
}

extern "C" int flock(int descriptor, int operation) noexcept {
    if (!diskcalls::Lock) {
        return static_cast<int>(syscall(SYS_flock, descriptor, operation));
    }
    errno = diskcalls::Lock(descriptor);
    return errno == 0 ? 0 : -1;
}

namespace {

int openAt(int folder, const char* path, int flags, std::va_list rest) {
    if ((flags & O_TMPFILE) == O_TMPFILE && !diskcalls::FilesWithoutNames) {
        errno = EOPNOTSUPP;
        return -1;
    }
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0;
    return static_cast<int>(syscall(SYS_openat, folder, path, flags, mode));
}

} // namespace

// Under both names: which one a source means depends on the size of its off_t.
extern "C" int openat(int folder, const char* path, int flags, ...) {
    std::va_list rest;
    va_start(rest, flags);
    const int result = openAt(folder, path, flags, rest);
    va_end(rest);
    return result;
}

extern "C" int openat64(int folder, const char* path, int flags, ...) {
    std::va_list rest;
    va_start(rest, flags);
    const int result = openAt(folder, path, flags, rest);
    va_end(rest);
    return result;
}
