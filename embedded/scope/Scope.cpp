#include "embedded/scope/Scope.h"

#include "embedded/classes/HostClasses.h"

#include <stdexcept>
#include <utility>

namespace vantik::detail {

namespace {

thread_local Scope* currentScope = nullptr;

} // namespace

Scope& Scope::current() {
    if (currentScope == nullptr) {
        // A mistake in the calling code, which no user can do anything about: no identifier.
        throw std::logic_error("This thread is in no host scope");
    }
    return *currentScope;
}

Scope* Scope::currentOrNull() noexcept {
    return currentScope;
}

void Scope::Presence::enter(Scope& scope) noexcept {
    Enclosing = std::exchange(currentScope, &scope);
    Entered = true;
}

void Scope::Presence::leave() noexcept {
    if (std::exchange(Entered, false)) {
        currentScope = Enclosing;
    }
}

Scope::Scope() : Present(*this) {
    defineHostClasses(Classes);
    Present.leave();
}

Scope::~Scope() {
    Present.enter(*this);
    Modules.terminate();
    Singletons.clear();
}

ScopeEntry::ScopeEntry(std::shared_ptr<Scope> scope) noexcept
    : Entered(std::move(scope)), Previous(std::exchange(currentScope, Entered.get())) {}

ScopeEntry::~ScopeEntry() {
    // First back to the previous scope: this may be the last owner, and the scope's end has an order of its own.
    currentScope = Previous;
}

} // namespace vantik::detail
