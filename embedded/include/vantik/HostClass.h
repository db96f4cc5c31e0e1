/// @file
/// Host classes whose methods are C++ callables: content providers, content consumers, progress reporters and any
/// other.
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
#include <type_traits>
#include <vector>

namespace vantik {

class Host;

/// A method as a callable. It gets the object first, then the caller's inputs, and returns its results in order; more
/// than the caller wants are dropped. What it throws reaches the caller of the method unchanged, through every host
/// call in between (except that a handler in between may turn it into a failure of its own).
using Method = std::function<std::vector<Array>(std::span<const Array> inputs)>;

/// Defines one class in a Host. Build it once, then make objects of it with `Host::create`. A definition may be used in
/// any number of Hosts, on one thread at a time; each keeps copies of the callables.
class __attribute__((visibility("default"))) HostClass {
public:
    explicit HostClass(std::string fullName); ///< dotted, for example "example.FileProvider"
    ~HostClass();
    ///@{
    /// Movable; a definition that was moved from can only be assigned to or destroyed.
    HostClass(HostClass&&) noexcept;
    HostClass& operator=(HostClass&&) noexcept;
    ///@}

    HostClass& derivesFrom(std::string fullName); ///< may be called for several; looked up by `defineIn`
    /// A method named like the class (without its package) is the constructor; its results are ignored. A class
    /// without one takes that of its base class.
    HostClass& method(std::string name, Method body);
    /// The same with declared inputs (after the object) and outputs, in type words; calls that do not fit are refused.
    HostClass& method(std::string name, std::vector<std::string> inputTypes, std::vector<std::string> outputTypes,
                      Method body);
    /// Raises VANTIK:vcos:InvalidName, VANTIK:vcos:ClassExists, VANTIK:vcos:UnknownClass for a base class that is
    /// missing, VANTIK:vcos:UnknownType for a type word, VANTIK:vcos:MemberExists and VANTIK:vcos:NoCallable.
    void defineIn(Host& host) const;

private:
    struct Definition;
    std::unique_ptr<Definition> Content;
};

/// Returns the next bytes, at most about `wanted` of them; no bytes mean the end. `rewind` is called before the first
/// read and whenever the content has to be sent again from its start.
struct ContentProvider {
    /// Goes back to the first byte.
    std::function<void()> rewind{};
    /// n-by-1 uint8, as `Array::bytes` makes it; text raises VANTIK:vcos:WrongOutputType.
    std::function<Array(std::uint64_t wanted)> read{};
};

/// How many bytes a consumer took; std::nullopt for "stop, as a failure".
class Taken {
public:
    /// Not from a bool: true would be one byte, and so a quiet end after the first piece.
    template <class Number>
        requires(std::is_arithmetic_v<Number> && !std::is_same_v<Number, bool>)
    Taken(Number bytes) : Count(static_cast<double>(bytes)) {}
    Taken(std::optional<double> bytes) : Count(bytes) {}                  ///< empty: stop, as a failure
    Taken(std::nullopt_t) {}                                              ///< stop, as a failure
    const std::optional<double>& count() const noexcept { return Count; } ///< what it was made of

private:
    std::optional<double> Count;
};

/// Takes bytes. `start` may return the largest piece wanted, in bytes (at most 16384 count). `write` gets a piece that
/// stays where it is until the call returns, and returns how many of its bytes it took: fewer than offered end the copy
/// quietly, std::nullopt ends it with VANTIK:webservices:OperationTerminatedByConsumer. `close` is called once at the
/// end, after a failure too, unless `start` itself failed.
struct ContentConsumer {
    /// Called once, before the first piece; returns the largest piece wanted.
    std::function<std::optional<double>()> start{};
    /// Takes a piece; returns how many of its bytes.
    std::function<Taken(std::span<const std::byte> piece)> write{};
    /// Called once at the end.
    std::function<void()> close{};
    std::function<void()> interrupted{}; ///< the user stopped the transfer
    /// Called after `close`: what came before a failure.
    std::function<void(std::span<const std::byte> saved)> savedOnFailure{};
};

/// Called with the number of bytes so far; false stops the transfer, which then raises Interrupted (byProgram).
using ProgressReporter = std::function<bool(std::uint64_t bytes)>;

///@{
/// Objects for the properties Provider, Consumer and ProgressReporter of a connection of the same Host. The callables
/// live as long as the object and run on the Host's thread, in the middle of a transfer; they must not start another
/// one. `read`, `write` and the reporter must be set (otherwise VANTIK:vcos:NoCallable), the others may be left out.
/// What they raise ends the transfer and reaches its caller unchanged, with one exception: an Interrupted while the
/// request is sent becomes VANTIK:webservices:ConnectionFailed.
__attribute__((visibility("default"))) Object makeProvider(Host& host, ContentProvider provider);
__attribute__((visibility("default"))) Object makeConsumer(Host& host, ContentConsumer consumer);
__attribute__((visibility("default"))) Object makeProgressReporter(Host& host, ProgressReporter reporter);
///@}

} // namespace vantik
