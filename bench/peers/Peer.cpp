#include "bench/peers/Peer.h"

#include <algorithm>
#include <barrier>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <sys/resource.h>
#include <thread>
#include <vector>

// The counts of scripts/bench-check are those of the requests.
#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_ZERO_STATS
#define CALLGRIND_DUMP_STATS_AT(name)
#endif

namespace peers {
namespace {

using Options = std::map<std::string, std::string, std::less<>>;

std::uint64_t numberOf(const std::string& text) {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    require(error == std::errc() && end == text.data() + text.size(), "\"" + text + "\" is not a number");
    return number;
}

struct Task {
    std::string Job;
    Request What;
    std::uint64_t Count = 1;
    unsigned Threads = 1;
    unsigned Jobs = 1;
    bool Check = false;
};

Task readArguments(const std::vector<std::string>& arguments) {
    require(arguments.size() >= 2, "usage: JOB URL [NAME=VALUE...]");
    Task task;
    task.Job = arguments[0];
    task.What.Url = arguments[1];
    for (const std::string& argument : std::vector(arguments.begin() + 2, arguments.end())) {
        const std::size_t equals = argument.find('=');
        const std::string name = argument.substr(0, equals);
        const std::string value = equals == std::string::npos ? "" : argument.substr(equals + 1);
        if (name == "file") {
            task.What.File = value;
        } else if (name == "size") {
            task.What.Size = numberOf(value);
        } else if (name == "piece") {
            task.What.Piece = numberOf(value);
        } else if (name == "fields") {
            task.What.Fields = static_cast<unsigned>(numberOf(value));
        } else if (name == "count") {
            task.Count = numberOf(value);
        } else if (name == "sized") {
            task.What.Sized = value != "0";
        } else if (name == "jobs") {
            task.Jobs = static_cast<unsigned>(numberOf(value));
        } else if (name == "threads") {
            task.Threads = static_cast<unsigned>(numberOf(value));
        } else if (name == "check") {
            task.Check = value != "0";
        } else {
            throw std::runtime_error("there is no setting \"" + name + "\"");
        }
    }
    require(task.Threads > 0 && task.What.Piece > 0, "threads and piece are at least 1");
    return task;
}

// Plays the task's requests on one client.
void play(Peer& peer, const Task& task, std::uint64_t count, Source& source, bench::Tally& received,
          std::string& answer) {
    if (task.Jobs > 1) {
        peer.many(task.What, count, task.Jobs, received);
        return;
    }
    for (std::uint64_t done = 0; done < count; ++done) {
        if (task.Job == "consumer") {
            peer.consumer(task.What, received);
        } else if (task.Job == "memory") {
            peer.memory(task.What, received);
        } else if (task.Job == "file") {
            peer.file(task.What);
        } else if (task.Job == "upload") {
            source.rewind();
            answer = peer.upload(task.What, source);
        } else {
            throw std::runtime_error("there is no job \"" + task.Job + "\"");
        }
    }
}

double cpuSeconds() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Not ru_maxrss, which begins with what the program had that started this one.
std::uint64_t peakKiB() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        std::uint64_t kibibytes = 0;
        if (word == "VmHWM:" && status >> kibibytes) {
            return kibibytes;
        }
    }
    throw std::runtime_error("the system does not report the peak of memory");
}

void run(const Task& task) {
    std::vector<bench::Tally> received(task.Threads, bench::Tally(task.Check));
    std::vector<std::string> answers(task.Threads);
    std::vector<std::exception_ptr> failures(task.Threads);
    double cpu = 0;
    std::chrono::steady_clock::time_point start;
    std::barrier begin(task.Threads, [&]() noexcept { // all clients are made
        CALLGRIND_ZERO_STATS;
        cpu = cpuSeconds();
        start = std::chrono::steady_clock::now();
    });
    double seconds = 0;
    std::barrier end(task.Threads, [&]() noexcept { // none has been destroyed
        seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        cpu = cpuSeconds() - cpu;
        CALLGRIND_DUMP_STATS_AT("requests");
    });
    const auto playOne = [&](unsigned index) {
        std::unique_ptr<Peer> peer;
        std::optional<Source> source; // a large piece takes longer to make than to send
        const auto guarded = [&](const auto& step) {
            try {
                step();
            } catch (...) {
                failures[index] = std::current_exception();
            }
        };
        guarded([&] {
            source.emplace(task.What);
            peer = makePeer();
        });
        begin.arrive_and_wait();
        if (peer) {
            const std::uint64_t count = task.Count / task.Threads + (index < task.Count % task.Threads ? 1 : 0);
            guarded([&] { play(*peer, task, count, *source, received[index], answers[index]); });
        }
        end.arrive_and_wait();
    };
    std::vector<std::jthread> others;
    for (unsigned index = 1; index < task.Threads; ++index) {
        others.emplace_back(playOne, index);
    }
    playOne(0);
    others.clear();
    for (const std::exception_ptr& failure : failures) {
        if (failure) {
            std::rethrow_exception(failure);
        }
    }
    std::uint64_t bytes = 0;
    for (const bench::Tally& tally : received) {
        bytes += tally.count();
    }
    std::printf("{\"seconds\":%.6f,\"cpu\":%.6f,\"peak\":%llu,\"bytes\":%llu,\"checksum\":%u,\"answer\":\"%s\"}\n",
                seconds, cpu, static_cast<unsigned long long>(peakKiB()), static_cast<unsigned long long>(bytes),
                received[0].checksum(), answers[0].c_str());
}

} // namespace

void Peer::many(const Request&, std::uint64_t, unsigned, bench::Tally&) {
    throw std::runtime_error("this peer sends one request at a time");
}

void require(bool condition, const std::string& failure) {
    if (!condition) {
        throw std::runtime_error(failure);
    }
}

UrlParts partsOf(const std::string& url) {
    constexpr std::string_view kScheme = "http://";
    require(url.starts_with(kScheme), "this peer speaks plain HTTP only");
    const std::size_t slash = url.find('/', kScheme.size());
    const std::size_t colon = url.find(':', kScheme.size());
    require(slash != std::string::npos && colon < slash, "the URL needs a port and a path");
    return {url.substr(kScheme.size(), colon - kScheme.size()), url.substr(colon + 1, slash - colon - 1),
            url.substr(slash)};
}

std::string fieldName(unsigned index) {
    return "X-Field-" + std::to_string(index);
}

Source::Source(const Request& request)
    : Piece(bench::contentOf(std::min<std::uint64_t>(request.Piece, request.Size))), Size(request.Size), Left(Size) {}

std::string_view Source::next(std::size_t room) {
    // Every piece begins with the beginning of the content; where there was less room, the rest of it follows.
    const std::size_t begin = Piece.empty() ? 0 : static_cast<std::size_t>((Size - Left) % Piece.size());
    const std::size_t count = std::min({static_cast<std::uint64_t>(room), Left, std::uint64_t{Piece.size() - begin}});
    Left -= count;
    return std::string_view(Piece).substr(begin, count);
}

} // namespace peers

int main(int argumentCount, char** arguments) {
    try {
        peers::run(peers::readArguments({arguments + 1, arguments + argumentCount}));
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s: %s\n", arguments[0], failure.what());
        return 1;
    }
}
