// One host scope: everything that the host keeps for one running part of a program. The functions declared in host/
// find the scope of the calling thread through `Scope::current`.
#pragma once

#include "embedded/arrays/CallFrame.h"
#include "embedded/classes/ClassRegistry.h"
#include "embedded/classes/InternTable.h"
#include "embedded/messages/WarningSink.h"
#include "embedded/scope/ImpersonationState.h"
#include "embedded/scope/InterruptState.h"
#include "embedded/scope/ModuleTable.h"
#include "embedded/scope/SingletonTable.h"

#include <functional>
#include <memory>
#include <utility>

namespace vantik::detail {

// Destroyed with its last owner: the Host and every object made in it hold it. The order of the members is the order of
// life: modules are notified first, then singletons go (they may still log), then classes, then the names that classes
// use as keys.
class __attribute__((visibility("default"))) Scope : public std::enable_shared_from_this<Scope> {
    // Makes the scope current while its members are built and again until the last of them is gone: what is made or
    // deleted then may ask for its scope.
    class Presence {
    public:
        explicit Presence(Scope& scope) noexcept { enter(scope); }
        ~Presence() { leave(); }
        Presence(const Presence&) = delete;
        Presence& operator=(const Presence&) = delete;
        void enter(Scope& scope) noexcept;
        void leave() noexcept;

    private:
        Scope* Enclosing = nullptr;
        bool Entered = false;
    } Present;
    // Outlives the singletons: what they need of the process, libcurl's global state first.
    std::shared_ptr<void> ProcessServices;

public:
    Scope();
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

    // The scope that the calling thread is in; raises std::logic_error outside every scope.
    static Scope& current();
    static Scope* currentOrNull() noexcept;

    // A request to stop is pending, or the program makes one now that it is asked. On the scope's thread only.
    bool wantsToStop() {
        if (AsksToStop && AsksToStop()) {
            Interrupt.request();
        }
        return Interrupt.pending();
    }

    // Keeps something of the process alive until every member of the scope is gone.
    void keepAlive(std::shared_ptr<void> services) noexcept { ProcessServices = std::move(services); }
    const void* keptAlive() const noexcept { return ProcessServices.get(); }

    InternTable Names;
    ClassRegistry Classes;
    InterruptState Interrupt;
    std::function<bool()> AsksToStop; // the program's own question at each check, beside the state; may be empty
    WarningSink Warnings;
    ImpersonationState Impersonation;
    bool RegistersPerScope = true;    // what omGetVcosUsingUSM answers
    bool ConnectionWasOpened = false; // by the program: see program/CallOrder.h
    SingletonTable Singletons;
    ModuleTable Modules; // told to terminate before anything goes
};

// Makes a scope the calling thread's current one for as long as it lives; nests.
class __attribute__((visibility("default"))) ScopeEntry {
public:
    explicit ScopeEntry(std::shared_ptr<Scope> scope) noexcept;
    ~ScopeEntry();
    ScopeEntry(const ScopeEntry&) = delete;
    ScopeEntry& operator=(const ScopeEntry&) = delete;

private:
    std::shared_ptr<Scope> Entered; // kept alive until the entry ends
    Scope* Previous;
};

} // namespace vantik::detail
