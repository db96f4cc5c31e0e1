#include "tests/support/process/Watcher.h"

#include "tests/support/process/BuiltFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace testsupport::watcher {
namespace {

void check(bool good, const char* what) {
    if (!good) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

// In a session of its own, so that what is typed at a terminal ends the test and not the watcher.
pid_t spawn(int socket) {
    const std::string name = builtFile("bin/netrove_test_watcher");
    const pid_t process = ::fork();
    if (process == 0) {
        ::setsid();
        // Whoever reads what the test prints waits until nobody can print any more.
        const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (::dup2(socket, STDIN_FILENO) >= 0 && ::dup2(nowhere, STDOUT_FILENO) >= 0 &&
            ::dup2(nowhere, STDERR_FILENO) >= 0) {
            ::execl(name.c_str(), name.c_str(), nullptr);
        }
        ::_exit(127);
    }
    return process;
}

// The end of the socket here is never closed: the system does that when this process is gone.
int startWatcher() {
    std::array<int, 2> ends{};
    check(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) == 0, "socketpair");
    const pid_t process = spawn(ends[1]);
    ::close(ends[1]);
    int status = 0;
    while (process > 0 && ::waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    errno = process > 0 ? ECHILD : errno;
    check(process > 0 && status == 0, "cannot start the watcher of tests");
    return ends[0];
}

int link() {
    static const int descriptor = startWatcher();
    return descriptor;
}

bool tell(char verb, char kind, const char* value, std::size_t length) noexcept {
    std::array<char, kMaximumWord> word{verb, kind};
    if (length + 2 > word.size()) {
        errno = ENAMETOOLONG;
        return false;
    }
    std::copy_n(value, length, word.data() + 2);
    return ::send(link(), word.data(), length + 2, MSG_NOSIGNAL) > 0;
}

// Without the heap, since a child says it between fork and exec.
bool tellGroup(char verb, pid_t group) noexcept {
    std::array<char, 20> digits;
    const char* end = std::to_chars(digits.begin(), digits.end(), group).ptr;
    return tell(verb, kGroup, digits.data(), static_cast<std::size_t>(end - digits.data()));
}

constexpr const char* kUnwatched = "nobody watches over this test";

} // namespace

void start() {
    link();
}

void watchGroup(pid_t group) {
    check(tellGroup(kWatch, group), kUnwatched);
}

void watchPath(const std::string& path) {
    start();
    check(tell(kWatch, kPath, path.data(), path.size()), kUnwatched);
}

void forgetGroup(pid_t group) noexcept {
    tellGroup(kForget, group);
}

void forgetPath(const std::string& path) noexcept {
    tell(kForget, kPath, path.data(), path.size());
}

} // namespace testsupport::watcher
