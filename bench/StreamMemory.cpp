// Peak memory of streamed content, in either direction, for a short and a long body. It must not grow with the length;
// the exit status shows whether it does.
//
//     netrove_stream_memory [LONG_MIB]        default 1024
#include "bench/LoopbackServer.h"
#include "bench/ModuleClient.h"
#include "tests/support/server/SocketHandle.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace {

using bench::LoopbackServer;
using bench::ModuleClient;
using testsupport::SocketHandle;

constexpr std::uint64_t kMiB = std::uint64_t{1} << 20;
constexpr std::size_t kBlockSize = std::size_t{64} << 10;
constexpr std::uint64_t kShortLength = 16 * kMiB;
// Noise of the heap between two processes; a body that is kept anywhere needs as much as its length.
constexpr std::uint64_t kAllowedGrowthKiB = 4096;

void require(bool condition, const char* what) {
    if (!condition) {
        throw std::runtime_error(what);
    }
}

void download(ModuleClient& client, const LoopbackServer& server, std::uint64_t length) {
    std::uint64_t received = 0;
    vantik::ContentConsumer consumer;
    consumer.write = [&](std::span<const std::byte> piece) {
        received += piece.size();
        return std::optional<double>(static_cast<double>(piece.size()));
    };
    client.connection().set("Consumer", vantik::makeConsumer(client.host(), std::move(consumer)));
    client.get(server.url(length), false);
    require(received == length, "content is missing");
}

void save(ModuleClient& client, const LoopbackServer& server, std::uint64_t length) {
    client.getToFile(server.url(length), "/dev/null");
}

void upload(ModuleClient& client, const LoopbackServer& server, std::uint64_t length) {
    const std::string block(kBlockSize, 'u');
    std::uint64_t left = 0;
    vantik::ContentProvider provider;
    provider.rewind = [&] { left = length; };
    provider.read = [&](std::uint64_t wanted) {
        const std::size_t count = std::min({left, wanted, std::uint64_t{block.size()}});
        left -= count;
        return vantik::Array::bytes(std::string_view(block).substr(0, count));
    };
    client.connection().set("Provider", vantik::makeProvider(client.host(), std::move(provider)));
    require(client.put(server.url(0), length, false).byteText() == std::to_string(length), "content was lost");
}

// VmHWM of this process in KiB.
std::uint64_t peakMemory() {
    std::ifstream status("/proc/self/status");
    std::string word;
    std::uint64_t kibibytes = 0;
    while (status >> word) {
        if (word == "VmHWM:" && status >> kibibytes) {
            return kibibytes;
        }
    }
    throw std::runtime_error("the system does not report the peak of memory");
}

using Transfer = void (*)(ModuleClient&, const LoopbackServer&, std::uint64_t);

// Runs in a process of its own, since a peak never goes down again.
std::uint64_t peakOf(Transfer transfer, const LoopbackServer& server, std::uint64_t length) {
    int ends[2];
    if (::pipe(ends) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    const SocketHandle reading(ends[0]);
    SocketHandle writing(ends[1]);
    const pid_t child = ::fork();
    if (child < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (child == 0) {
        std::uint64_t peak = 0;
        try {
            ModuleClient client;
            transfer(client, server, length);
            peak = peakMemory();
        } catch (const std::exception& failure) {
            std::fprintf(stderr, "%s\n", failure.what());
        }
        const bool sent = peak != 0 && ::write(writing.get(), &peak, sizeof peak) == sizeof peak;
        ::_exit(sent ? 0 : 1);
    }
    writing.reset(); // the end of the child is then the end of what can be read
    std::uint64_t peak = 0;
    const bool received = ::read(reading.get(), &peak, sizeof peak) == sizeof peak;
    ::waitpid(child, nullptr, 0);
    require(received, "a transfer has failed");
    return peak;
}

struct Direction {
    const char* Name;
    Transfer Run;
};

constexpr Direction kDirections[] = {
    {"download into a consumer", download},
    {"download to a file", save},
    {"upload from a provider", upload},
};

std::uint64_t longLength(int argumentCount, char** arguments) {
    if (argumentCount < 2) {
        return 1024 * kMiB;
    }
    const std::string_view text = arguments[1];
    std::uint64_t mebibytes = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), mebibytes);
    require(error == std::errc() && end == text.data() + text.size() && mebibytes > kShortLength / kMiB &&
                mebibytes <= kMiB,
            "usage: netrove_stream_memory [LONG_MIB], more than 16");
    return mebibytes * kMiB;
}

int run(int argumentCount, char** arguments) {
    const std::uint64_t length = longLength(argumentCount, arguments);
    const LoopbackServer server;
    bool grows = false;
    std::printf("%-26s %12s %12s\n", "peak memory in KiB", "16 MiB", (std::to_string(length / kMiB) + " MiB").c_str());
    for (const Direction& direction : kDirections) {
        const std::uint64_t shortPeak = peakOf(direction.Run, server, kShortLength);
        const std::uint64_t longPeak = peakOf(direction.Run, server, length);
        const bool grown = longPeak > shortPeak + kAllowedGrowthKiB;
        grows = grows || grown;
        std::printf("%-26s %12llu %12llu%s\n", direction.Name, static_cast<unsigned long long>(shortPeak),
                    static_cast<unsigned long long>(longPeak), grown ? "  grows with the length" : "");
    }
    return grows ? 1 : 0;
}

} // namespace

int main(int argumentCount, char** arguments) {
    try {
        return run(argumentCount, arguments);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 2;
    }
}
