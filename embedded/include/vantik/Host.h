// A host inside a C++ program: one scope with its own classes, objects, singletons and interrupt state.
#pragma once

#include "vantik/Array.h"
#include "vantik/Failure.h"
#include "vantik/Object.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vantik {

// What a class looks like from outside.
struct MethodDescription {
    std::string Name;
    std::vector<std::string> Inputs; // type words, the object first; empty where nothing is declared
    std::vector<std::string> Outputs;
    int OptionalInputs = 0;
    bool Declared = true;
};
struct PropertyDescription {
    std::string Name;
    std::string Type;
    std::string Description;
    bool Settable = true;
    std::uint32_t Attributes = 0;
};
struct ClassDescription {
    std::string Name;
    std::vector<std::string> BaseClasses;
    std::vector<PropertyDescription> Properties; // in order of registration
    std::vector<MethodDescription> Methods;      // in order of registration, the constructor first; public ones only
    std::vector<std::string> Members;            // of an enumeration
    bool Abstract = false;                       // to derive from only
};

// Where warnings go. The default writes "warning: text" to standard error.
using WarningHandler = std::function<void(const Message&)>;

// One scope. Use it, and everything made in it, on one thread at a time; any number of Hosts may run on as many
// threads.
// Objects made in it keep its scope alive, so the order in which a program drops them does not matter.
class __attribute__((visibility("default"))) Host {
public:
    Host();
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    // Loads a module (a shared object with VKInitialize_<name>) and registers its classes in this scope. A name without
    // a slash is looked up in the folder named by VANTIK_MODULE_PATH, beside the host's own library, then where the
    // dynamic loader looks. Raises Failure with the loader's reason.
    void load(std::string_view module);

    // Makes an object of a class by its full name. Raises Failure for an unknown class or inputs that do not fit.
    Object create(std::string_view className, std::initializer_list<Array> arguments = {});
    Object create(std::string_view className, std::span<const Array> arguments);

    // Calls a builtin function of a loaded module by its mangled or plain symbol name, for example
    // "ws_base::getProxyInfoBuiltin".
    Array callBuiltin(std::string_view name, std::span<const Array> arguments);

    ClassDescription describe(std::string_view className) const; // raises Failure for an unknown class
    std::vector<std::string> classNames() const;                 // in order of definition

    void onWarning(WarningHandler handler);

    // Asks what runs in this scope to stop; it raises Interrupted at its next check. Callable from a signal handler and
    // from any thread. A request that nothing has seen stays pending; `clearInterrupt` drops it.
    void interrupt() noexcept;
    void clearInterrupt() noexcept;
    bool interruptPending() const noexcept;
    // As `interrupt`, once this much time has passed, unless called again before. Zero or less: at once;
    // duration::max(): never.
    void interruptAfter(std::chrono::nanoseconds time);

    // Called on entry and exit of each stretch that runs on the user's behalf (during a send).
    void onImpersonation(std::function<void()> entry, std::function<void()> exit);
    std::size_t impersonationDepth() const noexcept;

    // How many array handles live in this process. For leak checks.
    static std::size_t liveArrays() noexcept;

    const std::shared_ptr<detail::Scope>& scope() const noexcept { return State; }

private:
    std::shared_ptr<detail::Scope> State;
};

// A list of names, one a line, of what this host is made of ("ICU 72.1", …).
__attribute__((visibility("default"))) std::vector<std::string> hostComponents();

} // namespace vantik
