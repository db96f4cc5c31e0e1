// Host classes whose methods are C++ callables: content providers, content consumers, progress reporters and any other.
#pragma once

#include "vantik/Array.h"
#include "vantik/Object.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vantik {

class Host;

// A method as a callable. It gets the object first, then the caller's inputs, and gives its results in order; more than
// the caller wants are dropped. What it throws reaches the caller of the method unchanged, through every host call in
// between (except that a handler in between may turn it into a failure of its own).
using Method = std::function<std::vector<Array>(std::span<const Array> inputs)>;

// Defines one class in a Host. Build it once, then make objects of it with `Host::create`.
class __attribute__((visibility("default"))) HostClass {
public:
    explicit HostClass(std::string fullName); // dotted, for example "example.FileProvider"
    ~HostClass();
    HostClass(HostClass&&) noexcept;
    HostClass& operator=(HostClass&&) noexcept;

    HostClass& derivesFrom(std::string fullName);
    // A method named like the class (without its package) is the constructor; its results count for nothing. A class
    // without one takes the one of its base class.
    HostClass& method(std::string name, Method body);
    // The same with declared inputs (after the object) and outputs, in type words; calls that do not fit are refused.
    HostClass& method(std::string name, std::vector<std::string> inputTypes, std::vector<std::string> outputTypes,
                      Method body);
    void defineIn(Host& host) const; // raises Failure for a name that is taken or a base class that is missing

private:
    struct Definition;
    std::unique_ptr<Definition> Content;
};

// Ready-made objects for the three roles. The callables live as long as the object; `read`, `write` and the reporter
// must be set, the others may be left out.

// Gives the next bytes, at most about `wanted` of them; no bytes mean the end. `rewind` is called before the first read
// and whenever the content has to be sent again from its start.
struct ContentProvider {
    std::function<void()> rewind{};
    std::function<Array(std::uint64_t wanted)> read{}; // n-by-1 uint8
};

// Takes bytes. `start` may give the largest piece wanted (at most 16384 count). `write` gives how many bytes it took;
// fewer than offered end the copy quietly, and nothing at all stops it with a failure.
struct ContentConsumer {
    std::function<std::optional<double>()> start{};
    std::function<std::optional<double>(std::span<const std::byte> piece)> write{};
    std::function<void()> close{};
    std::function<void()> interrupted{};                                    // the user stopped the transfer
    std::function<void(std::span<const std::byte> saved)> savedOnFailure{}; // what had been collected before a failure
};

// Told the number of bytes so far; false stops the transfer.
using ProgressReporter = std::function<bool(std::uint64_t bytes)>;

__attribute__((visibility("default"))) Object makeProvider(Host& host, ContentProvider provider);
__attribute__((visibility("default"))) Object makeConsumer(Host& host, ContentConsumer consumer);
__attribute__((visibility("default"))) Object makeProgressReporter(Host& host, ProgressReporter reporter);

} // namespace vantik
