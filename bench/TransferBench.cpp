// The module and a bare libcurl loop doing the same work, side by side. Every exchange goes over loopback to a server
// in another process; connections are kept.
#include "bench/LoopbackServer.h"
#include "bench/ModuleClient.h"
#include "bench/PlainCurl.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using bench::LoopbackServer;
using bench::ModuleClient;
using bench::PlainCurl;

constexpr std::int64_t kMiB = std::int64_t{1} << 20;
constexpr std::size_t kPieceSize = 16384;

const LoopbackServer* theServer = nullptr;

void require(bool condition, const std::string& what) {
    if (!condition) {
        throw std::runtime_error(what);
    }
}

// A file name that is free, and is free again after the measurement.
class TargetFile {
public:
    TargetFile() : Name(std::filesystem::temp_directory_path() / ("netrove-bench-" + std::to_string(::getpid()))) {}
    ~TargetFile() {
        std::error_code ignored;
        std::filesystem::remove(Name, ignored);
    }
    std::string name() const { return Name.string(); }
    void expectSize(std::uint64_t length) const { require(std::filesystem::file_size(Name) == length, "file size"); }

private:
    std::filesystem::path Name;
};

// Runs one exchange per iteration and reports the rate of content.
template <class Exchange>
void measure(benchmark::State& state, const Exchange& exchange) {
    const std::int64_t length = state.range(0);
    try {
        exchange(); // connects
        for ([[maybe_unused]] auto iteration : state) {
            exchange();
        }
    } catch (const std::exception& failure) {
        state.SkipWithError(failure.what());
        return;
    }
    state.SetBytesProcessed(state.iterations() * length);
    state.SetItemsProcessed(state.iterations());
}

// Download into bytes

void downloadBytesModule(benchmark::State& state) {
    ModuleClient client;
    const auto length = static_cast<std::uint64_t>(state.range(0));
    const std::string url = theServer->url(length);
    measure(state, [&] {
        const vantik::Array content = client.get(url);
        require(content.size() == length, "content is missing");
    });
}

// The room is made at once here too: this is the best that such a loop can do.
void downloadBytesPlain(benchmark::State& state) {
    PlainCurl client;
    const auto length = static_cast<std::uint64_t>(state.range(0));
    const std::string url = theServer->url(length);
    measure(state, [&] {
        std::string content;
        content.reserve(length);
        client.download(url, [&](std::span<const char> piece) { content.append(piece.data(), piece.size()); });
        benchmark::DoNotOptimize(content.data());
        require(content.size() == length, "content is missing");
    });
}

// Download into a consumer

void downloadConsumerModule(benchmark::State& state) {
    ModuleClient client;
    const auto length = static_cast<std::uint64_t>(state.range(0));
    const std::string url = theServer->url(length);
    std::uint64_t received = 0;
    vantik::ContentConsumer consumer;
    consumer.write = [&](std::span<const std::byte> piece) {
        received += piece.size();
        return std::optional<double>(static_cast<double>(piece.size()));
    };
    const vantik::Object object = vantik::makeConsumer(client.host(), std::move(consumer));
    client.connection().set("Consumer", object);
    measure(state, [&] {
        received = 0;
        client.get(url, false);
        require(received == length, "content is missing");
    });
}

void downloadConsumerPlain(benchmark::State& state) {
    PlainCurl client;
    const auto length = static_cast<std::uint64_t>(state.range(0));
    const std::string url = theServer->url(length);
    measure(state, [&] {
        std::uint64_t received = 0;
        client.download(url, [&](std::span<const char> piece) { received += piece.size(); });
        require(received == length, "content is missing");
    });
}

// Download to a file

void downloadFileModule(benchmark::State& state) {
    ModuleClient client;
    const TargetFile file;
    const auto length = static_cast<std::uint64_t>(state.range(0));
    const std::string url = theServer->url(length);
    measure(state, [&] {
        client.getToFile(url, file.name());
        file.expectSize(length);
    });
}

void downloadFilePlain(benchmark::State& state) {
    PlainCurl client;
    const TargetFile file;
    const auto length = static_cast<std::uint64_t>(state.range(0));
    const std::string url = theServer->url(length);
    measure(state, [&] {
        std::ofstream output(file.name(), std::ios::binary | std::ios::trunc);
        client.download(url, [&](std::span<const char> piece) {
            output.write(piece.data(), static_cast<std::streamsize>(piece.size()));
        });
        output.close();
        file.expectSize(length);
    });
}

// Upload. The server answers with the number of bytes that it has received.

void uploadMemoryModule(benchmark::State& state) {
    ModuleClient client;
    const auto length = static_cast<std::uint64_t>(state.range(0));
    const std::string url = theServer->url(0);
    client.connection().set("Payload", vantik::Array::bytes(std::string(length, 'u')));
    measure(state,
            [&] { require(client.put(url, length, true).byteText() == std::to_string(length), "content was lost"); });
}

void uploadMemoryPlain(benchmark::State& state) {
    PlainCurl client;
    const auto length = static_cast<std::uint64_t>(state.range(0));
    const std::string url = theServer->url(0);
    const std::string content(length, 'u');
    const std::vector<std::string> fields{"Content-Length: " + std::to_string(length), "Transfer-Encoding:"};
    measure(state, [&] {
        std::size_t position = 0;
        std::string answer;
        client.upload(
            url, fields,
            [&](std::span<char> room) {
                const std::size_t count = std::min(room.size(), content.size() - position);
                std::memcpy(room.data(), content.data() + position, count);
                position += count;
                return count;
            },
            [&](std::span<const char> piece) { answer.append(piece.data(), piece.size()); });
        require(answer == std::to_string(length), "content was lost");
    });
}

// Whole arrays share their contents, so the provider itself does next to nothing.
void uploadProviderModule(benchmark::State& state) {
    ModuleClient client;
    const auto length = static_cast<std::uint64_t>(state.range(0));
    const std::string url = theServer->url(0);
    const vantik::Array block = vantik::Array::bytes(std::string(static_cast<std::size_t>(state.range(1)), 'u'));
    std::uint64_t left = 0;
    vantik::ContentProvider provider;
    provider.rewind = [&] { left = length; };
    provider.read = [&](std::uint64_t) {
        if (left >= block.size()) {
            left -= block.size();
            return vantik::Array(block);
        }
        return vantik::Array::bytes(block.byteText().substr(0, std::exchange(left, 0)));
    };
    const vantik::Object object = vantik::makeProvider(client.host(), std::move(provider));
    client.connection().set("Provider", object);
    client.connection().set("ProviderBufferSize", static_cast<std::uint64_t>(state.range(1)));
    measure(state,
            [&] { require(client.put(url, length, true).byteText() == std::to_string(length), "content was lost"); });
}

// One read of libcurl gets what one array of a provider holds.
void uploadProviderPlain(benchmark::State& state) {
    PlainCurl client;
    const auto length = static_cast<std::uint64_t>(state.range(0));
    const std::string url = theServer->url(0);
    const std::string block(static_cast<std::size_t>(state.range(1)), 'u');
    const std::vector<std::string> fields{"Content-Length: " + std::to_string(length), "Transfer-Encoding:"};
    measure(state, [&] {
        std::uint64_t left = length;
        std::string answer;
        client.upload(
            url, fields,
            [&](std::span<char> room) {
                const std::size_t count = std::min({left, std::uint64_t{room.size()}, std::uint64_t{block.size()}});
                std::memcpy(room.data(), block.data(), count);
                left -= count;
                return count;
            },
            [&](std::span<const char> piece) { answer.append(piece.data(), piece.size()); });
        require(answer == std::to_string(length), "content was lost");
    });
}

// Lengths, in bytes; for providers with the size of one array.
void downloads(benchmark::internal::Benchmark* setup) {
    setup->Arg(1 * kMiB)->Arg(64 * kMiB)->Arg(256 * kMiB)->UseRealTime()->Unit(benchmark::kMillisecond);
}
void uploads(benchmark::internal::Benchmark* setup) {
    setup->Arg(64 * kMiB)->UseRealTime()->Unit(benchmark::kMillisecond);
}
void providedUploads(benchmark::internal::Benchmark* setup) {
    setup->Args({64 * kMiB, kPieceSize})->Args({64 * kMiB, kMiB})->UseRealTime()->Unit(benchmark::kMillisecond);
}
void smallRequests(benchmark::internal::Benchmark* setup) {
    setup->Arg(100)->UseRealTime()->Unit(benchmark::kMicrosecond);
}

// clang-format off
BENCHMARK(downloadBytesModule)->Name("download/bytes/module")->Apply(downloads);
BENCHMARK(downloadBytesPlain)->Name("download/bytes/plain")->Apply(downloads);
BENCHMARK(downloadConsumerModule)->Name("download/consumer/module")->Apply(downloads);
BENCHMARK(downloadConsumerPlain)->Name("download/consumer/plain")->Apply(downloads);
BENCHMARK(downloadFileModule)->Name("download/file/module")->Apply(downloads);
BENCHMARK(downloadFilePlain)->Name("download/file/plain")->Apply(downloads);
BENCHMARK(uploadMemoryModule)->Name("upload/memory/module")->Apply(uploads);
BENCHMARK(uploadMemoryPlain)->Name("upload/memory/plain")->Apply(uploads);
BENCHMARK(uploadProviderModule)->Name("upload/provider/module")->Apply(providedUploads);
BENCHMARK(uploadProviderPlain)->Name("upload/provider/plain")->Apply(providedUploads);
BENCHMARK(downloadBytesModule)->Name("small/download/module")->Apply(smallRequests);
BENCHMARK(downloadBytesPlain)->Name("small/download/plain")->Apply(smallRequests);
BENCHMARK(uploadMemoryModule)->Name("small/upload/module")->Apply(smallRequests);
BENCHMARK(uploadMemoryPlain)->Name("small/upload/plain")->Apply(smallRequests);
// clang-format on

} // namespace

int main(int argumentCount, char** arguments) {
    const LoopbackServer server;
    theServer = &server;
    benchmark::Initialize(&argumentCount, arguments);
    if (benchmark::ReportUnrecognizedArguments(argumentCount, arguments)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
