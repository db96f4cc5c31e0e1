// What a scope does around each stretch that runs on the user's behalf.
#pragma once

#include <cstddef>
#include <functional>

namespace vantik::detail {

struct ImpersonationState {
    std::size_t Depth = 0;         // guards that are alive
    std::function<void()> OnEntry; // may raise: the stretch is then not entered
    std::function<void()> OnExit;  // what it raises is dropped, since it runs while others unwind
};

} // namespace vantik::detail
