#include "host/State.h"

#include "embedded/scope/Scope.h"

#include <functional>

namespace services::state {

using vantik::detail::ImpersonationState;
using vantik::detail::Scope;

ImpersonationGuard::ImpersonationGuard() {
    ImpersonationState& state = Scope::current().Impersonation;
    if (state.OnEntry) {
        const std::function<void()> entry = state.OnEntry; // the hook may set another one
        entry();
    }
    ++state.Depth;
}

ImpersonationGuard::~ImpersonationGuard() {
    // A guard ends on the thread and in the scope in which it began.
    ImpersonationState& state = Scope::current().Impersonation;
    --state.Depth;
    try {
        if (state.OnExit) {
            const std::function<void()> exit = state.OnExit;
            exit();
        }
    } catch (...) {
        // A guard may end while an exception unwinds; a second one would end the process.
    }
}

} // namespace services::state
