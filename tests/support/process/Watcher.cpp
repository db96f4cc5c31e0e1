#include "tests/support/process/Watcher.h"

#include "tests/support/process/BuiltFile.h"
#include "tests/support/process/WatcherWords.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace testsupport::watcher {
namespace {

void check(int result) {
    if (result != 0) {
        throw std::system_error(result, std::generic_category(), "cannot start the watcher of tests");
    }
}

// In a session of its own, so that what is typed at a terminal ends the test and not the watcher.
pid_t spawn(int socket) {
    posix_spawn_file_actions_t actions;
    check(::posix_spawn_file_actions_init(&actions));
    posix_spawnattr_t attributes;
    check(::posix_spawnattr_init(&attributes));
    // Whoever reads what the test prints waits until nobody can print any more.
    int result = ::posix_spawn_file_actions_adddup2(&actions, socket, STDIN_FILENO);
    for (const int output : {STDOUT_FILENO, STDERR_FILENO}) {
        if (result == 0) {
            result = ::posix_spawn_file_actions_addopen(&actions, output, "/dev/null", O_WRONLY, 0);
        }
    }
    if (result == 0) {
        result = ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    }
    pid_t process = -1;
    if (result == 0) {
        std::string name = builtFile("bin/netrove_test_watcher");
        const std::array<char*, 2> arguments = {name.data(), nullptr};
        result = ::posix_spawn(&process, name.data(), &actions, &attributes, arguments.data(), environ);
    }
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&actions);
    check(result);
    return process;
}

// The end of the socket here is never closed: the system does that when this process is gone.
int startWatcher() {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        throw std::system_error(errno, std::generic_category(), "socketpair");
    }
    const pid_t process = spawn(ends[1]);
    ::close(ends[1]);
    int status = 0;
    while (::waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    check(status == 0 ? 0 : ECHILD);
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
    for (std::size_t index = 0; index < length; ++index) {
        word[index + 2] = value[index];
    }
    return ::send(link(), word.data(), length + 2, MSG_NOSIGNAL) > 0;
}

// Without the heap, since a child says it between fork and exec.
bool tellGroup(char verb, pid_t group) noexcept {
    std::array<char, 20> digits{};
    std::size_t start = digits.size();
    for (pid_t rest = group; rest > 0; rest /= 10) {
        digits[--start] = static_cast<char>('0' + rest % 10);
    }
    return tell(verb, kGroup, digits.data() + start, digits.size() - start);
}

void require(bool told) {
    if (!told) {
        throw std::system_error(errno, std::generic_category(), "nobody watches over this test");
    }
}

} // namespace

void start() {
    link();
}

void watchGroup(pid_t group) {
    require(tellGroup(kWatch, group));
}

void watchPath(const std::string& path) {
    start();
    require(tell(kWatch, kPath, path.data(), path.size()));
}

void forgetGroup(pid_t group) noexcept {
    tellGroup(kForget, group);
}

void forgetPath(const std::string& path) noexcept {
    tell(kForget, kPath, path.data(), path.size());
}

} // namespace testsupport::watcher
