/// @file
/// A host inside a C++ program: one scope with its own classes, objects, singletons and interrupt state.
#pragma once

#include "vantik/Array.h"
#include "vantik/Failure.h"
#include "vantik/Object.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vantik {

/// What a class looks like from outside. Type words are those that messages use: "double scalar", "uint8 vector",
/// "any".
struct MethodDescription {
    std::string Name;                 ///< without its class
    std::vector<std::string> Inputs;  ///< type words, the object first; empty where nothing is declared
    std::vector<std::string> Outputs; ///< type words
    int OptionalInputs = 0;           ///< how many of the last inputs may be left out
    bool Declared = true;             ///< false: it takes and returns anything
};
/// A property of a class.
struct PropertyDescription {
    std::string Name;             ///< without its class
    std::string Type;             ///< a type word
    std::string Description;      ///< one line
    bool Settable = true;         ///< false: read only
    std::uint32_t Attributes = 0; ///< the class system's own, without a meaning for a program
};
/// A class, or an enumeration.
struct ClassDescription {
    std::string Name;                            ///< with its package
    std::vector<std::string> BaseClasses;        ///< with their packages
    std::vector<PropertyDescription> Properties; ///< in order of registration
    std::vector<MethodDescription> Methods;      ///< in order of registration, the constructor first; public ones only
    std::vector<std::string> Members;            ///< of an enumeration
    bool Abstract = false;                       ///< only to derive from
};

/// Where warnings go, called on the Host's thread in the middle of the operation that warns. What it raises is dropped,
/// and the warning goes to standard error: a warning stops nothing by itself (see `Host::treatAsFailure`).
using WarningHandler = std::function<void(const Message&)>;

/// One scope: its own classes, objects, connections and cookies. Use it, and everything made in it, on one thread at a
/// time; any number of Hosts may run on as many threads. Only `interrupt`, `clearInterrupt`, `interruptPending`,
/// `wasInterrupted` and `interruptAfter` may be called from any thread, for as long as the Host lives.
/// Objects made in it keep its scope alive, so the order in which a program drops them does not matter. Operations
/// raise Failure, or Interrupted where they run long, with the identifiers named here and those of the class that is
/// called.
class __attribute__((visibility("default"))) Host {
public:
    Host(); ///< raises Failure where its parts cannot be made
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    /// Loads a module (a shared object with VKInitialize_<name>) and registers its classes in this scope. A name
    /// without a slash is looked up in the folder named by VANTIK_MODULE_PATH, next to the host's own library, then
    /// where the dynamic loader looks; one with a slash is a file. Loading twice does no harm. Raises
    /// VANTIK:host:ModuleNotLoaded with the loader's reason.
    void load(std::string_view module);

    ///@{
    /// Makes an object of a class by its full name. Raises VANTIK:vcos:UnknownClass, with the nearest name that there
    /// is; VANTIK:vcos:AbstractClass, VANTIK:vcos:NotConstructible; VANTIK:vcos:TooManyInputs,
    /// VANTIK:vcos:NotEnoughInputs and VANTIK:vcos:WrongInputType for inputs that do not fit; what the constructor
    /// raises, VANTIK:http:OnlyOneTransferAtATime among it: one connection of a Host is open at a time.
    Object create(std::string_view className, std::initializer_list<Array> arguments = {});
    Object create(std::string_view className, std::span<const Array> arguments);
    ///@}

    ///@{
    /// Calls a builtin function of a loaded module by its mangled or plain symbol name, for example
    /// "ws_base::getProxyInfoBuiltin", with one result wanted, which the caller owns. Raises VANTIK:host:UnknownBuiltin
    /// and what the function raises.
    Array callBuiltin(std::string_view name, std::initializer_list<Array> arguments);
    Array callBuiltin(std::string_view name, std::span<const Array> arguments);
    ///@}

    ClassDescription describe(std::string_view className) const; ///< raises VANTIK:vcos:UnknownClass
    std::vector<std::string> classNames() const;                 ///< in order of definition

    void onWarning(WarningHandler handler); ///< an empty handler: "warning: text" on standard error, as at first

    /// From now on an operation of an Object or a builtin during which this warning came fails with it at its end, as
    /// Failure with the warning's message, unless it fails anyway; its results are dropped. The warning is not shown.
    /// For example kIncompleteContent: otherwise content that was cut off is a result like any other.
    void treatAsFailure(std::string_view identifier);

    /// Asks what runs in this scope to stop; it raises Interrupted at its next check, about a second later at most
    /// while a transfer runs. A wait for the network ends for it. Callable from a signal handler and from any thread. A
    /// request that nothing has seen stays pending, and stops the next operation that checks; `clearInterrupt` drops
    /// it.
    void interrupt() noexcept;
    void clearInterrupt() noexcept;         ///< also makes `wasInterrupted` false
    bool interruptPending() const noexcept; ///< a request to stop that nothing has seen yet
    /// True once a request to stop, or a time limit, has stopped an operation, until `clearInterrupt`. It distinguishes
    /// a failed connection from one that was stopped: see Interrupted.
    bool wasInterrupted() const noexcept;
    /// As `interrupt`, once this much time has passed, unless called again before. Zero or less: at once;
    /// duration::max(): never. The time runs on from one operation to the next.
    void interruptAfter(std::chrono::nanoseconds time);

    /// Asked at each check for a request to stop, on the Host's thread: at least once a second while a transfer runs.
    /// True is as `interrupt`. It must raise nothing. For programs whose signals a thread has to ask for.
    void onInterruptCheck(std::function<bool()> asksToStop);

    /// Called on entry and exit of each stretch that runs on the user's behalf (during a send), on the Host's thread.
    /// What `entry` raises fails the send. Either may be empty.
    void onImpersonation(std::function<void()> entry, std::function<void()> exit);
    std::size_t impersonationDepth() const noexcept; ///< how many such stretches are under way

    /// How many array handles live in this process. For leak checks.
    static std::size_t liveArrays() noexcept;

    /// For the host's own parts; a program has no use for it.
    const std::shared_ptr<detail::Scope>& scope() const noexcept { return State; }

private:
    std::shared_ptr<detail::Scope> State;
};

/// What this host is made of, one name and version each ("ICU 72.1", …). Any thread.
__attribute__((visibility("default"))) std::vector<std::string> hostComponents();

} // namespace vantik
