#include "tests/support/process/WatchedProcess.h"

#include "tests/support/process/ProcessState.h"
#include "tests/support/process/Watcher.h"

#include <linux/close_range.h>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace testsupport {
namespace {

// In the child, which has only what is safe between fork and exec. Returns where something fails.
void become(const ProcessStart& start, char* const* arguments, char* const* variables) {
    ::setsid();
    // Said before anything runs, and this end of the watcher's socket is held until the exec: the test may be killed at
    // any moment.
    watcher::watchGroup(::getpid());
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
        ::signal(number, SIG_DFL);
    }
    // libcurl's connections are not closed by an exec; a program that inherited one would keep it open.
    if (::close_range(3, ~0U, CLOSE_RANGE_CLOEXEC) != 0) {
        return;
    }
    for (int stream = 0; stream < 3; ++stream) {
        int source = start.Streams[static_cast<std::size_t>(stream)];
        if (stream == 0 && !start.Terminal.empty()) {
            // The leader of a session opens a terminal: it becomes the session's own, which is where passwords are
            // asked for and where Ctrl-C comes from.
            source = ::open(start.Terminal.c_str(), O_RDWR | O_CLOEXEC);
        }
        if (source < 0 || ::dup2(source, stream) < 0) {
            return;
        }
    }
    if (start.Folder.empty() || ::chdir(start.Folder.c_str()) == 0) {
        ::execve(start.File.c_str(), arguments, variables);
    }
}

int waitFor(pid_t process) noexcept {
    int status = 0;
    while (::waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

} // namespace

std::vector<char*> pointers(std::vector<std::string>& words) {
    std::vector<char*> result;
    result.reserve(words.size() + 1);
    for (std::string& word : words) {
        result.push_back(word.data());
    }
    result.push_back(nullptr);
    return result;
}

WatchedProcess::WatchedProcess(const ProcessStart& start) {
    watcher::start();
    ProcessStart own = start;
    const std::vector<char*> arguments = pointers(own.Arguments);
    const std::vector<char*> variables = pointers(own.Environment);
    std::array<int, 2> failure{}; // closed by the exec, or written to: why there was none
    if (::pipe2(failure.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    const pid_t process = ::fork();
    if (process == 0) {
        try {
            become(own, arguments.data(), variables.data());
        } catch (const std::system_error& unwatched) {
            errno = unwatched.code().value();
        }
        const int reason = errno;
        [[maybe_unused]] const ssize_t written = ::write(failure[1], &reason, sizeof reason);
        ::_exit(127);
    }
    int reason = process < 0 ? errno : 0;
    ::close(failure[1]);
    while (process > 0 && ::read(failure[0], &reason, sizeof reason) < 0 && errno == EINTR) {
    }
    ::close(failure[0]);
    if (reason != 0) {
        if (process > 0) {
            watcher::forgetGroup(process);
            waitFor(process);
        }
        throw std::system_error(reason, std::generic_category(), "cannot start " + start.File);
    }
    Process = process;
}

WatchedProcess::~WatchedProcess() {
    killGroup();
    collect();
}

bool WatchedProcess::hasEnded() const noexcept {
    siginfo_t state{};
    return Process < 0 || ::waitid(P_PID, static_cast<id_t>(Process), &state, WEXITED | WNOHANG | WNOWAIT) != 0 ||
           state.si_pid != 0;
}

void WatchedProcess::awaitEnd() const noexcept {
    siginfo_t state{};
    while (Process > 0 && ::waitid(P_PID, static_cast<id_t>(Process), &state, WEXITED | WNOWAIT) != 0 &&
           errno == EINTR) {
    }
}

bool WatchedProcess::signal(int number) const noexcept {
    return Process > 0 && ::kill(Process, number) == 0;
}

void WatchedProcess::killGroup() const noexcept {
    if (Process > 0) {
        ::kill(-Process, SIGKILL);
    }
}

int WatchedProcess::collect() noexcept {
    if (Process < 0) {
        return 0;
    }
    awaitEnd();
    killGroup();
    watcher::forgetGroup(Process);
    const int status = waitFor(Process);
    Process = -1;
    return status;
}

bool processHasEnded(pid_t process) {
    return stateOf(std::to_string(process)).hasEnded();
}

} // namespace testsupport
