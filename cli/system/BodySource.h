// Request content that is streamed from a file or from standard input through a content provider.
#pragma once

#include "cli/system/Descriptor.h"
#include "cli/system/Signals.h"
#include "vantik/HostClass.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace netrove::cli {

class BodySource {
public:
    // "-" is standard input. Raises FileNotRead.
    BodySource(const std::string& file, std::optional<Clock::time_point> deadline);
    BodySource(const BodySource&) = delete;
    BodySource& operator=(const BodySource&) = delete;

    // The length in bytes, which is known beforehand for regular files.
    std::optional<std::uint64_t> length() const { return Length; }
    // From now on exactly `length` bytes are delivered: more are left out, fewer are a failure.
    void promiseLength() { Promised = true; }

    // Before each request of a chain of redirects. Raises ContentNotRewound if bytes were read that cannot be read
    // again.
    void beginRequest();

    // The callables refer to this object.
    vantik::ContentProvider provider();
    void onRead(std::function<void(std::uint64_t given)> handler) { ReadHandler = std::move(handler); }

    // What went wrong here, whatever the library made of it.
    const std::optional<vantik::Message>& failure() const { return Failed; }

private:
    void rewind();
    vantik::Array read(std::uint64_t wanted);
    std::size_t readSome(std::size_t wanted);
    [[noreturn]] void failWith(vantik::Message message);

    std::string Name;
    Descriptor File; // none for standard input, which is not ours to close
    int Input;
    bool Regular = false;
    std::int64_t Start = 0; // where the content begins in a regular file
    std::optional<std::uint64_t> Length;
    bool Promised = false;
    std::uint64_t Given = 0; // in this request
    std::optional<Clock::time_point> Deadline;
    std::vector<std::byte> Buffer;
    std::function<void(std::uint64_t)> ReadHandler;
    std::optional<vantik::Message> Failed;
};

// The whole of a file, or of standard input for "-", in memory. Raises FileNotRead, also for more than
// `kLargestInMemory`.
constexpr std::size_t kLargestInMemory = std::size_t{1} << 30;
std::string readWhole(const std::string& file, std::optional<Clock::time_point> deadline = std::nullopt);

} // namespace netrove::cli
