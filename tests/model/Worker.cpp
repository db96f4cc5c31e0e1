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

constexpr std::size_t kLargestPacket = 64000; // which any socket takes

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

// One message is one packet. False where the other side has gone.
template <class Elements>
bool sendPacket(int channel, const Elements& elements) {
    const std::size_t size = std::min(kLargestPacket, elements.size() * sizeof(typename Elements::value_type));
    return ::send(channel, elements.data(), size, MSG_NOSIGNAL) == static_cast<ssize_t>(size);
}

template <class Elements>
bool receivePacket(int channel, Elements& elements) {
    elements.resize(kLargestPacket / sizeof(typename Elements::value_type));
    const ssize_t size = ::recv(channel, elements.data(), kLargestPacket, 0);
    elements.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)) / sizeof(typename Elements::value_type));
    return size > 0;
}

// What has been written to standard output, by the library or by libcurl in its place.
std::string takeOutput(int file) {
    std::cout.flush();
    std::fflush(stdout);
    const off_t size = ::lseek(file, 0, SEEK_END);
    return size == 0 ? std::string() : std::to_string(size) + " bytes on standard output\n";
}

// The other process, until its channel is closed.
void work(int channel, std::chrono::seconds patience) {
    const SocketHandle output = memoryFile("output");
    const std::array files{memoryFile("saved"), memoryFile("saved from within")};
    if (::dup2(output.get(), STDOUT_FILENO) < 0) {
        fail("dup2");
    }
    ModelServer server;
    for (Sequence sequence; receivePacket(channel, sequence);) {
        std::string problem;
        try {
            problem = Runner(server, {files[0].get(), files[1].get()}, patience).run(sequence);
        } catch (const std::exception& failure) {
            problem = std::string("the test itself failed: ") + failure.what() + '\n';
        }
        // An empty packet would be taken for the end.
        sendPacket(channel, problem + takeOutput(output.get()) + '\n');
    }
}

} // namespace

Worker::Worker() : Errors(memoryFile("errors")) {}

Worker::~Worker() {
    kill();
}

void Worker::start() {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
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
    if (sequence.empty()) {
        return {};
    }
    if (Process < 0) {
        start();
    }
    std::string problem;
    pollfd answer{Channel.get(), POLLIN, 0};
    if (!sendPacket(Channel.get(), sequence)) {
        problem = "the process that plays sequences has gone before this one\n" + complaints();
    } else if (::poll(&answer, 1, static_cast<int>(std::chrono::milliseconds(4 * Patience).count())) <= 0) {
        problem = "takes unreasonably long\n" + complaints();
    } else if (receivePacket(Channel.get(), problem)) {
        problem.pop_back();
    } else {
        problem = "ends its process, with the status " + std::to_string(await()) + "\n" + complaints();
    }
    if (!problem.empty()) {
        kill();
    }
    return problem;
}

std::string Worker::end() {
    Channel.reset();
    const int status = await();
    return status == 0 ? std::string() : "ends with the status " + std::to_string(status) + "\n" + complaints();
}

void Worker::kill() noexcept {
    if (Process >= 0) {
        ::kill(Process, SIGKILL);
        await();
    }
    Channel.reset();
}

int Worker::await() noexcept {
    int status = 0;
    if (Process >= 0) {
        ::waitpid(std::exchange(Process, -1), &status, 0);
    }
    return status;
}

} // namespace model
