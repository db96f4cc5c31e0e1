// Runs a function when it leaves scope.
#pragma once

#include <utility>

namespace netrove {

// What the function raises is swallowed: it runs while another failure may be under way.
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
