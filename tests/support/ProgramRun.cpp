#include "tests/support/ProgramRun.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace testsupport {

namespace {

void check(int result, const char* what) {
    if (result != 0)
        throw std::system_error(result, std::generic_category(), what);
}

void checkErrno(bool good, const char* what) {
    if (!good)
        check(errno, what);
}

struct Pipe {
    int Read = -1;
    int Write = -1;
    Pipe() {
        int ends[2];
        checkErrno(pipe2(ends, O_CLOEXEC) == 0, "pipe");
        Read = ends[0];
        Write = ends[1];
    }
};

// The master end of a new terminal, and the name of the other.
std::pair<int, std::string> openTerminal() {
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    checkErrno(master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0, "terminal");
    char name[64];
    check(ptsname_r(master, name, sizeof name), "ptsname_r");
    winsize size{};
    size.ws_row = 24;
    size.ws_col = 100;
    checkErrno(ioctl(master, TIOCSWINSZ, &size) == 0, "TIOCSWINSZ");
    return {master, name};
}

std::vector<std::string> environment(const Surroundings& around) {
    std::map<std::string, std::string> values = {
        {"PATH", "/usr/bin:/bin"}, {"HOME", "/nonexistent"}, {"LANG", "C.UTF-8"}, {"TERM", "xterm"}};
    for (const char* name :
         {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS", "LD_LIBRARY_PATH", "TMPDIR"})
        if (const char* value = std::getenv(name))
            values[name] = value;
    for (const auto& [name, value] : around.Environment)
        values[name] = value;
    values["ASAN_OPTIONS"] += ":quarantine_size_mb=1"; // freed memory that is kept back would count as used
    std::vector<std::string> result;
    for (const auto& [name, value] : values)
        result.push_back(name + "=" + value);
    return result;
}

std::vector<char*> pointers(std::vector<std::string>& words) {
    std::vector<char*> result;
    for (std::string& word : words)
        result.push_back(word.data());
    result.push_back(nullptr);
    return result;
}

class FileActions {
public:
    FileActions() { check(posix_spawn_file_actions_init(&Actions), "file actions"); }
    ~FileActions() { posix_spawn_file_actions_destroy(&Actions); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;
    posix_spawn_file_actions_t* get() { return &Actions; }
    void duplicate(int from, int to) { check(posix_spawn_file_actions_adddup2(&Actions, from, to), "dup2"); }

private:
    posix_spawn_file_actions_t Actions{};
};

} // namespace

Program::Program(std::vector<std::string> arguments, const Surroundings& around) {
    ::signal(SIGPIPE, SIG_IGN); // a program that has ended takes no input
    const std::string executable = around.Executable.empty() ? programFile() : around.Executable;
    arguments.insert(arguments.begin(), executable);
    std::vector<std::string> variables = environment(around);
    FileActions actions;
    const Pipe input;
    actions.duplicate(input.Read, 0);
    int out = -1;
    int err = -1;
    int typed = -1;
    std::vector<int> childEnds = {input.Read};
    if (around.Terminal) {
        const auto [master, name] = openTerminal();
        const int slave = open(name.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        checkErrno(slave >= 0, "terminal");
        actions.duplicate(slave, 1);
        actions.duplicate(slave, 2);
        childEnds.push_back(slave);
        out = master;
        if (around.TerminalInput) {
            // The leader of a session opens a terminal: it becomes the session's own, which is where passwords are
            // asked for and where Ctrl-C comes from.
            check(posix_spawn_file_actions_addopen(actions.get(), 0, name.c_str(), O_RDWR, 0), "open");
            typed = dup(master);
        }
    } else {
        const Pipe errors;
        actions.duplicate(errors.Write, 2);
        childEnds.push_back(errors.Write);
        err = errors.Read;
        if (around.OutDescriptor >= 0) {
            actions.duplicate(around.OutDescriptor, 1);
        } else {
            const Pipe output;
            actions.duplicate(output.Write, 1);
            childEnds.push_back(output.Write);
            out = output.Read;
        }
    }
    if (!around.Folder.empty())
        check(posix_spawn_file_actions_addchdir_np(actions.get(), around.Folder.c_str()), "chdir");
    posix_spawnattr_t attributes;
    check(posix_spawnattr_init(&attributes), "attributes");
    sigset_t defaults;
    sigemptyset(&defaults);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE})
        sigaddset(&defaults, number);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(
        &attributes, static_cast<short>(POSIX_SPAWN_SETSIGDEF | (around.TerminalInput ? POSIX_SPAWN_SETSID : 0)));
    const int result = posix_spawn(&Process, executable.c_str(), actions.get(), &attributes, pointers(arguments).data(),
                                   pointers(variables).data());
    posix_spawnattr_destroy(&attributes);
    for (const int end : childEnds)
        close(end);
    Input = input.Write;
    if (typed >= 0)
        close(std::exchange(Input, typed));
    if (out >= 0)
        OutReader = std::thread([this, out] { readToEnd(out, Out); });
    if (err >= 0)
        ErrReader = std::thread([this, err] { readToEnd(err, Err); });
    check(result, "cannot start the program");
    if (around.Input) {
        type(*around.Input);
        closeInput();
    }
}

void Program::readToEnd(int descriptor, std::string& text) {
    char buffer[4096];
    for (;;) {
        const ssize_t count = read(descriptor, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR)
            continue;
        const std::lock_guard lock(Guard);
        Changed.notify_all();
        if (count <= 0) { // a terminal ends with an error
            OutEnded = OutEnded || &text == &Out;
            break;
        }
        text.append(buffer, static_cast<std::size_t>(count));
    }
    close(descriptor);
}

void Program::waitForOutput(const std::string& text) {
    std::unique_lock lock(Guard);
    Changed.wait(lock, [&] { return OutEnded || Out.find(text) != std::string::npos; });
    if (Out.find(text) == std::string::npos)
        throw std::runtime_error("no such output: " + text + "\n" + Out);
}

Program::~Program() {
    if (Process > 0) {
        kill(Process, SIGKILL);
        wait();
    }
}

void Program::signal(int number) const {
    checkErrno(kill(Process, number) == 0, "kill");
}

void Program::type(const std::string& text) const {
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = write(Input, text.data() + written, text.size() - written);
        if (count < 0 && errno == EPIPE)
            return;
        checkErrno(count > 0, "write");
        written += static_cast<std::size_t>(count);
    }
}

void Program::closeInput() {
    if (Input >= 0)
        close(Input);
    Input = -1;
}

Outcome Program::wait() {
    int status = 0;
    while (waitpid(Process, &status, 0) < 0 && errno == EINTR) {
    }
    Process = -1;
    closeInput();
    for (std::thread* reader : {&OutReader, &ErrReader})
        if (reader->joinable())
            reader->join();
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Out, Err};
}

Outcome Program::waitAtMost(std::chrono::milliseconds limit) {
    pollfd ended{static_cast<int>(syscall(SYS_pidfd_open, Process, 0)), POLLIN, 0};
    checkErrno(ended.fd >= 0, "pidfd_open");
    int count = 0;
    while ((count = poll(&ended, 1, static_cast<int>(limit.count()))) < 0 && errno == EINTR) {
    }
    close(ended.fd);
    if (count == 0)
        signal(SIGKILL);
    return wait();
}

long Program::peakKiB() const {
    std::ifstream status("/proc/" + std::to_string(Process) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmHWM:"))
            return std::strtol(line.c_str() + 6, nullptr, 10);
    throw std::runtime_error("the program has ended");
}

std::string Program::commandLine() const {
    std::ifstream words("/proc/" + std::to_string(Process) + "/cmdline", std::ios::binary);
    return {std::istreambuf_iterator<char>(words), {}};
}

Outcome run(std::vector<std::string> arguments, const Surroundings& around) {
    return Program(std::move(arguments), around).wait();
}

std::string programFile() {
    return NETROVE_PROGRAM;
}

std::string lastLine(const std::string& text) {
    const std::string trimmed = text.substr(0, text.find_last_not_of('\n') + 1);
    return trimmed.substr(trimmed.rfind('\n') + 1);
}

} // namespace testsupport
