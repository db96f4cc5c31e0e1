// Counts that have to be back where they were.
#pragma once

#include <cstddef>

namespace testsupport {

// Notes how many host arrays live, and expects as many when it is destroyed. The first member of a fixture, so that
// it goes after everything that may hold arrays.
class LeakCheck {
public:
    LeakCheck();
    ~LeakCheck();
    LeakCheck(const LeakCheck&) = delete;
    LeakCheck& operator=(const LeakCheck&) = delete;

private:
    std::size_t ArraysAtStart;
};

} // namespace testsupport
