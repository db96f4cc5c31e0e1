#include "tests/model/Worker.h"

#include "tests/model/ModelServer.h"
#include "tests/model/Runner.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <type_traits>
#include <unistd.h>
#include <utility>

namespace model {
namespace {

using testsupport::SocketHandle;

static_assert(std::is_trivially_copyable_v<Command>);

[[noreturn]] void fail(const char* call) {
    throw std::system_error(errno, std::generic_category(), call);
}

SocketHandle memoryFile(const char* name) {
    SocketHandle file(::memfd_create(name, MFD_CLOEXEC));
    if (!file) {
        fail("memfd_create");
    }
    return file;
}

// False where the other side has gone.
bool sendAll(int channel, const void* data, std::size_t size) {
    const char* next = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t sent = ::send(channel, next, size, MSG_NOSIGNAL);
        if (sent < 0 && errno != EINTR) {
            return false;
        }
        next += std::max<ssize_t>(sent, 0);
        size -= static_cast<std::size_t>(std::max<ssize_t>(sent, 0));
    }
    return true;
}

bool receiveAll(int channel, void* data, std::size_t size) {
    char* next = static_cast<char*>(data);
    while (size > 0) {
        const ssize_t received = ::recv(channel, next, size, 0);
        if (received == 0 || (received < 0 && errno != EINTR)) {
            return false;
        }
        next += std::max<ssize_t>(received, 0);
        size -= static_cast<std::size_t>(std::max<ssize_t>(received, 0));
    }
    return true;
}

template <class Elements>
bool sendElements(int channel, const Elements& elements) {
    const std::uint32_t count = static_cast<std::uint32_t>(elements.size());
    return sendAll(channel, &count, sizeof count) &&
           sendAll(channel, elements.data(), count * sizeof(typename Elements::value_type));
}

template <class Elements>
bool receiveElements(int channel, Elements& elements) {
    std::uint32_t count = 0;
    if (!receiveAll(channel, &count, sizeof count)) {
        return false;
    }
    elements.resize(count);
    return receiveAll(channel, elements.data(), count * sizeof(typename Elements::value_type));
}

// What has been written to standard output, by the library or by libcurl in its place.
std::string takeOutput(int file) {
    std::cout.flush();
    std::fflush(stdout);
    const off_t size = ::lseek(file, 0, SEEK_END);
    if (size == 0) {
        return {};
    }
    return std::to_string(size) + " bytes on standard output\n";
}

// The other process, until its channel is closed.
void work(int channel, std::chrono::seconds patience) {
    const SocketHandle output = memoryFile("output");
    const std::array files{memoryFile("saved"), memoryFile("saved from within")};
    if (::dup2(output.get(), STDOUT_FILENO) < 0) {
        fail("dup2");
    }
    ModelServer server;
    for (Sequence sequence; receiveElements(channel, sequence);) {
        std::string problem;
        try {
            problem = Runner(server, {files[0].get(), files[1].get()}, patience).run(sequence);
        } catch (const std::exception& failure) {
            problem = std::string("the test itself failed: ") + failure.what() + '\n';
        }
        sendElements(channel, problem + takeOutput(output.get()));
    }
}

} // namespace

Worker::Worker() : Errors(memoryFile("errors")) {}

Worker::~Worker() {
    kill();
}

void Worker::start() {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        fail("socketpair");
    }
    SocketHandle ours(ends[0]);
    SocketHandle theirs(ends[1]);
    if (::ftruncate(Errors.get(), 0) != 0 || ::lseek(Errors.get(), 0, SEEK_SET) != 0) {
        fail("the file of errors");
    }
    std::fflush(nullptr); // or both processes would write what waits
    const pid_t parent = ::getpid();
    Process = ::fork();
    if (Process < 0) {
        fail("fork");
    }
    if (Process == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent) {
            std::_Exit(1);
        }
        ours.reset();
        ::dup2(Errors.get(), STDERR_FILENO);
        try {
            work(theirs.get(), Patience);
        } catch (const std::exception& failure) {
            std::cerr << failure.what() << '\n';
            std::_Exit(1);
        }
        std::exit(0); // with what sanitizers do at the end
    }
    Channel = std::move(ours);
}

std::string Worker::complaints() const {
    constexpr off_t most = 6000;
    const off_t size = ::lseek(Errors.get(), 0, SEEK_END);
    std::string text(static_cast<std::size_t>(std::min(size, most)), '\0');
    // A sanitizer says first what matters most.
    const ssize_t length = ::pread(Errors.get(), text.data(), text.size(), 0);
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    return text;
}

std::string Worker::play(const Sequence& sequence) {
    if (Process < 0) {
        start();
    }
    std::string problem;
    pollfd answer{Channel.get(), POLLIN, 0};
    if (!sendElements(Channel.get(), sequence)) {
        problem = "the process that plays sequences has gone before this one\n" + complaints();
    } else if (::poll(&answer, 1, static_cast<int>(std::chrono::milliseconds(4 * Patience).count())) <= 0) {
        problem = "takes unreasonably long\n" + complaints();
    } else if (!receiveElements(Channel.get(), problem)) {
        int status = 0;
        ::waitpid(std::exchange(Process, -1), &status, 0);
        problem = "ends its process, with the status " + std::to_string(status) + "\n" + complaints();
    }
    if (!problem.empty()) {
        kill();
    }
    return problem;
}

std::string Worker::end() {
    if (Process < 0) {
        return {};
    }
    Channel.reset();
    int status = 0;
    ::waitpid(std::exchange(Process, -1), &status, 0);
    return status == 0 ? std::string() : "ends with the status " + std::to_string(status) + "\n" + complaints();
}

void Worker::kill() noexcept {
    if (Process >= 0) {
        ::kill(Process, SIGKILL);
        ::waitpid(std::exchange(Process, -1), nullptr, 0);
    }
    Channel.reset();
}

} // namespace model
