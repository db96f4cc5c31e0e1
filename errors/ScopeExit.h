// Runs a function when it leaves scope.
#pragma once

#include <utility>

namespace netrove {

// Whatever the function raises is swallowed, because another failure may already be unwinding.
template <class Function>
class ScopeExit {
public:
    explicit ScopeExit(Function function) : Run(std::move(function)) {}
    ~ScopeExit() {
        try {
            Run();
        } catch (...) { // see above
        }
    }
    ScopeExit(const ScopeExit&) = delete;
    ScopeExit& operator=(const ScopeExit&) = delete;

private:
    Function Run;
};

} // namespace netrove
