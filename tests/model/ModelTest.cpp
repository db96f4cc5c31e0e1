// Random sequences of calls through the class, over one to three objects that share a scope, with host objects that
// fail, stop and call back. Whatever the order: nothing cut passes for whole, nothing of one object reaches the server
// of another, nothing is read that has been freed, and each object can be closed, opened and used.
//
// A few hundred sequences by default, always the same. More, and others:
//   NETROVE_MODEL_SEQUENCES=20000 NETROVE_MODEL_SEED=7 netrove_model_tests
#include "tests/model/Commands.h"
#include "tests/model/ModelServer.h"
#include "tests/model/Runner.h"
#include "tests/support/server/SocketHandle.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <poll.h>
#include <string>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <type_traits>
#include <unistd.h>
#include <utility>

namespace {

using model::Sequence;
using testsupport::SocketHandle;

int require(int result, const char* call) {
    return result >= 0 ? result : throw std::system_error(errno, std::generic_category(), call);
}

SocketHandle memoryFile(const char* name) {
    return SocketHandle(require(::memfd_create(name, MFD_CLOEXEC), "memfd_create"));
}

constexpr std::size_t kLargestPacket = 64000; // which any socket takes

// One message, of plain data, is one packet. False where the other side has gone.
template <class Elements>
bool sendPacket(const SocketHandle& channel, const Elements& elements) {
    static_assert(std::is_trivially_copyable_v<typename Elements::value_type>);
    const std::size_t size = std::min(kLargestPacket, elements.size() * sizeof(elements[0]));
    return ::send(channel.get(), elements.data(), size, MSG_NOSIGNAL) == static_cast<ssize_t>(size);
}

template <class Elements>
bool receivePacket(const SocketHandle& channel, Elements& elements) {
    elements.resize(kLargestPacket / sizeof(elements[0]));
    const ssize_t size = ::recv(channel.get(), elements.data(), kLargestPacket, 0);
    elements.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)) / sizeof(elements[0]));
    return size > 0;
}

// The other process, until its channel is closed.
void work(const SocketHandle& channel, std::chrono::seconds patience) {
    const SocketHandle output = memoryFile("output"); // what the library writes there, or libcurl in its place
    const std::array files{memoryFile("saved"), memoryFile("saved from within")};
    const auto nameOf = [](const SocketHandle& file) { return "/proc/self/fd/" + std::to_string(file.get()); };
    require(::dup2(output.get(), STDOUT_FILENO), "dup2");
    model::ModelServer server;
    for (Sequence sequence; receivePacket(channel, sequence);) {
        std::string problem;
        try {
            problem = model::Runner(server, {nameOf(files[0]), nameOf(files[1])}, patience).run(sequence);
        } catch (const std::exception& failure) {
            problem = std::string("the test itself failed: ") + failure.what() + '\n';
        }
        std::cout.flush();
        std::fflush(stdout);
        if (const off_t size = ::lseek(output.get(), 0, SEEK_END); size != 0) {
            problem += std::to_string(size) + " bytes on standard output\n";
        }
        sendPacket(channel, problem + '\n'); // an empty packet would be taken for the end
    }
}

// Another process that plays the sequences, so that one that ends its process is found, shown and made smaller like any
// other.
class Worker {
public:
    Worker() = default;
    ~Worker() { kill(); }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // What was wrong; empty where nothing was. After anything wrong the next sequence has a new process.
    std::string play(const Sequence& sequence) {
        if (sequence.empty()) {
            return {};
        }
        if (Process < 0) {
            start();
        }
        std::string problem;
        pollfd answer{Channel.get(), POLLIN, 0};
        if (!sendPacket(Channel, sequence)) {
            problem = "the process that plays sequences has gone before this one\n" + complaints();
        } else if (::poll(&answer, 1, static_cast<int>(std::chrono::milliseconds(4 * Patience).count())) <= 0) {
            problem = "takes unreasonably long\n" + complaints();
        } else if (receivePacket(Channel, problem)) {
            problem.pop_back();
        } else {
            problem = "ends its process, with the status " + std::to_string(await()) + "\n" + complaints();
        }
        if (!problem.empty()) {
            kill();
        }
        return problem;
    }

    // From the next process on. A sequence that hangs is made smaller in far less time, at the price that on a very
    // slow machine one that does not may be taken for it then.
    void losePatience() { Patience = std::chrono::seconds(4); }

    // Lets the process end by itself, and says what it then complains of: a sanitizer reports leaks.
    std::string end() {
        Channel.reset();
        const int status = await();
        return status == 0 ? std::string() : "ends with the status " + std::to_string(status) + "\n" + complaints();
    }

private:
    void start() {
        int ends[2];
        require(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), "socketpair");
        SocketHandle ours(ends[0]);
        const SocketHandle theirs(ends[1]);
        Errors = memoryFile("errors");
        std::fflush(nullptr); // or both processes would write what waits
        const pid_t parent = ::getpid();
        Process = require(::fork(), "fork");
        if (Process == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (::getppid() != parent) {
                std::_Exit(1);
            }
            ours.reset();
            ::dup2(Errors.get(), STDERR_FILENO);
            try {
                work(theirs, Patience);
            } catch (const std::exception& failure) {
                std::cerr << failure.what() << '\n';
                std::_Exit(1);
            }
            std::exit(0); // with what sanitizers do at the end
        }
        Channel = std::move(ours);
    }

    void kill() noexcept {
        if (Process >= 0) {
            ::kill(Process, SIGKILL);
            await();
        }
        Channel.reset();
    }

    // The status with which the process ended; 0 for none.
    int await() noexcept {
        int status = 0;
        if (Process >= 0) {
            ::waitpid(std::exchange(Process, -1), &status, 0);
        }
        return status;
    }

    // The beginning of what it wrote to standard error: a sanitizer says first what matters most.
    std::string complaints() const {
        std::string text(6000, '\0');
        const ssize_t length = ::pread(Errors.get(), text.data(), text.size(), 0);
        text.resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
        return text;
    }

    std::chrono::seconds Patience{45}; // for one sequence
    SocketHandle Errors;               // its standard error, a file
    SocketHandle Channel;
    pid_t Process = -1;
};

std::uint64_t setting(const char* variable, std::uint64_t otherwise) {
    const char* text = std::getenv(variable);
    return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

class Sequences : public ::testing::TestWithParam<int> {};

TEST_P(Sequences, HoldTheirPromises) {
    Worker worker;
    rc::detail::TestParams params;
    params.seed = setting("NETROVE_MODEL_SEED", 1) * 1000 + static_cast<std::uint64_t>(GetParam());
    params.maxSuccess = static_cast<int>(setting("NETROVE_MODEL_SEQUENCES", 300) / 4);
    std::string smallest; // what failed last while it was made smaller
    const auto result = rc::detail::checkTestable(
        [&] {
            const Sequence sequence = *model::sequences();
            const std::string problem = worker.play(sequence);
            if (!problem.empty()) {
                smallest = problem + model::describe(sequence);
                worker.losePatience();
                RC_FAIL("a sequence");
            }
        },
        rc::detail::TestMetadata{}, params);
    EXPECT_TRUE(result.is<rc::detail::SuccessResult>()) << smallest;
    EXPECT_EQ(worker.end(), "") << "after the last sequence";
}

INSTANTIATE_TEST_SUITE_P(Part, Sequences, ::testing::Range(1, 5));

} // namespace
