#include "tests/support/process/ProgramRun.h"

#include "tests/support/process/Await.h"
#include "tests/support/process/BuiltFile.h"
#include "tests/support/process/ProcessState.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <poll.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace testsupport {

namespace {

void check(int result, const char* what) {
    if (result != 0) {
        throw std::system_error(result, std::generic_category(), what);
    }
}

void checkErrno(bool good, const char* what) {
    if (!good) {
        check(errno, what);
    }
}

struct Pipe {
    SocketHandle Read;
    SocketHandle Write;
};

Pipe makePipe() {
    int ends[2];
    checkErrno(pipe2(ends, O_CLOEXEC) == 0, "pipe");
    return {SocketHandle(ends[0]), SocketHandle(ends[1])};
}

struct Terminal {
    SocketHandle Master;
    SocketHandle Slave;
    std::string Name; // of the slave
};

void setSize(int terminal, int columns) {
    const winsize size{.ws_row = 24, .ws_col = static_cast<unsigned short>(columns), .ws_xpixel = 0, .ws_ypixel = 0};
    checkErrno(ioctl(terminal, TIOCSWINSZ, &size) == 0, "TIOCSWINSZ");
}

Terminal openTerminal(int columns) {
    SocketHandle master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    checkErrno(master && grantpt(master.get()) == 0 && unlockpt(master.get()) == 0, "terminal");
    char name[64];
    check(ptsname_r(master.get(), name, sizeof name), "ptsname_r");
    setSize(master.get(), columns);
    SocketHandle slave(open(name, O_RDWR | O_NOCTTY | O_CLOEXEC));
    checkErrno(static_cast<bool>(slave), "terminal");
    return {std::move(master), std::move(slave), name};
}

std::vector<std::string> environment(const Surroundings& around) {
    std::map<std::string, std::string> values = {
        {"PATH", "/usr/bin:/bin"}, {"HOME", "/nonexistent"}, {"LANG", "C.UTF-8"}, {"TERM", "xterm"}};
    for (const char* name :
         {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS", "LD_LIBRARY_PATH", "TMPDIR"}) {
        if (const char* value = std::getenv(name)) {
            values[name] = value;
        }
    }
    for (const auto& [name, value] : around.Environment) {
        values[name] = value;
    }
    values["ASAN_OPTIONS"] += ":quarantine_size_mb=1"; // freed memory that is kept back would count as used
    std::vector<std::string> result;
    for (const auto& [name, value] : values) {
        result.push_back(name + "=" + value);
    }
    return result;
}

} // namespace

Program::Program(std::vector<std::string> arguments, const Surroundings& around) {
    ::signal(SIGPIPE, SIG_IGN); // a program that has ended takes no input
    const std::string executable = around.Executable.empty() ? programFile() : around.Executable;
    arguments.insert(arguments.begin(), executable);
    Pipe input = makePipe();
    Pipe out;
    Pipe err;
    ProcessStart start{.File = executable,
                       .Arguments = std::move(arguments),
                       .Environment = environment(around),
                       .Folder = around.Folder,
                       .Streams = {input.Read.get(), -1, -1}};
    if (around.Terminal) {
        Terminal terminal = openTerminal(around.Columns);
        out = {std::move(terminal.Master), std::move(terminal.Slave)};
        start.Streams[1] = start.Streams[2] = out.Write.get();
        Screen = SocketHandle(fcntl(out.Read.get(), F_DUPFD_CLOEXEC, 0));
        if (around.TerminalInput) {
            start.Terminal = terminal.Name;
            input.Write = SocketHandle(fcntl(out.Read.get(), F_DUPFD_CLOEXEC, 0));
        }
    } else {
        err = makePipe();
        if (around.OutDescriptor < 0) {
            out = makePipe();
        }
        start.Streams[1] = around.OutDescriptor < 0 ? out.Write.get() : around.OutDescriptor;
        start.Streams[2] = err.Write.get();
    }
    Process.emplace(start);
    for (SocketHandle* childEnd : {&input.Read, &out.Write, &err.Write}) {
        childEnd->reset();
    }
    Input = std::move(input.Write);
    if (out.Read) {
        OutReader = std::thread([this, from = std::move(out.Read)] { readToEnd(from, Out); });
    }
    if (err.Read) {
        ErrReader = std::thread([this, from = std::move(err.Read)] { readToEnd(from, Err); });
    }
    if (around.Input) {
        type(*around.Input);
        closeInput();
    }
}

void Program::readToEnd(const SocketHandle& from, std::string& text) {
    char buffer[4096];
    bool leftByAll = false; // by the last program of a terminal
    for (;;) {
        const ssize_t count = read(from.get(), buffer, sizeof buffer);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        // A terminal reports its end with this error, now and then before the last words have been read: the kernel
        // looks for words first and for the end then. After it no more are written, so the next read has them.
        if (count < 0 && errno == EIO && !std::exchange(leftByAll, true)) {
            continue;
        }
        const std::lock_guard lock(Guard);
        Changed.notify_all();
        if (count <= 0) {
            OutEnded = OutEnded || &text == &Out;
            break;
        }
        text.append(buffer, static_cast<std::size_t>(count));
    }
}

void Program::waitForOutput(const std::string& text) {
    std::unique_lock lock(Guard);
    Changed.wait(lock, [&] { return OutEnded || Out.find(text) != std::string::npos; });
    if (Out.find(text) == std::string::npos) {
        throw std::runtime_error("no such output: " + text + "\n" + Out);
    }
}

void Program::awaitCondition(const std::function<bool()>& condition, const std::string& what) {
    awaitOrRaise(
        "the program", condition, what, [this] { return Process->hasEnded(); },
        [this] {
            const std::lock_guard lock(Guard);
            return Out + Err;
        });
}

Program::~Program() {
    if (Process->id() > 0) {
        Process->killGroup();
        wait();
    }
}

void Program::signal(int number) const {
    checkErrno(Process->signal(number), "kill");
}

void Program::freeze() const {
    signal(SIGSTOP);
    const auto stopped = [this] { return stateOf(std::to_string(Process->id())).State == 'T'; };
    awaitOrRaise(
        "the program", stopped, "it has stopped", [this] { return Process->hasEnded(); }, [] { return std::string(); });
}

void Program::type(const std::string& text) const {
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = write(Input.get(), text.data() + written, text.size() - written);
        if (count < 0 && errno == EPIPE) {
            return;
        }
        checkErrno(count > 0, "write");
        written += static_cast<std::size_t>(count);
    }
}

void Program::resize(int columns) const {
    setSize(Screen.get(), columns);
}

void Program::closeInput() {
    Input.reset();
}

Outcome Program::wait() {
    Process->awaitEnd();
    closeInput();
    for (std::thread* reader : {&OutReader, &ErrReader}) {
        if (reader->joinable()) {
            reader->join();
        }
    }
    const int status = Process->collect();
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Out, Err};
}

Outcome Program::waitAtMost(std::chrono::milliseconds limit) {
    const SocketHandle process(static_cast<int>(syscall(SYS_pidfd_open, Process->id(), 0)));
    checkErrno(static_cast<bool>(process), "pidfd_open");
    pollfd ended{process.get(), POLLIN, 0};
    // In short waits, so that a machine that stands still for a while takes one of them from the program and not all.
    constexpr std::chrono::milliseconds once{10};
    int count = 0;
    for (std::chrono::milliseconds waited{0}; count <= 0 && waited < limit; waited += once) {
        count = poll(&ended, 1, static_cast<int>(once.count()));
    }
    if (count <= 0) {
        signal(SIGKILL);
    }
    return wait();
}

std::string Program::commandLine() const {
    std::ifstream words("/proc/" + std::to_string(Process->id()) + "/cmdline", std::ios::binary);
    return {std::istreambuf_iterator<char>(words), {}};
}

Outcome run(std::vector<std::string> arguments, const Surroundings& around) {
    return Program(std::move(arguments), around).wait();
}

std::string programFile() {
    return builtFile("bin/netrove");
}

bool isFull(int writeEnd) {
    pollfd room{writeEnd, POLLOUT, 0};
    return poll(&room, 1, 0) == 0;
}

std::string lastLine(const std::string& text) {
    const std::string trimmed = text.substr(0, text.find_last_not_of('\n') + 1);
    return trimmed.substr(trimmed.rfind('\n') + 1);
}

} // namespace testsupport
