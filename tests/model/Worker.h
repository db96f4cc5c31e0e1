// Another process that plays the sequences, so that one that ends its process is found, shown and made smaller like any
// other.
#pragma once

#include "tests/model/Commands.h"
#include "tests/support/server/SocketHandle.h"

#include <chrono>
#include <string>
#include <sys/types.h>

namespace model {

class Worker {
public:
    Worker();
    ~Worker(); // ends the process
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // What was wrong; empty where nothing was. After anything wrong the next sequence has a new process.
    std::string play(const Sequence& sequence);

    // From the next process on. A sequence that hangs is made smaller in far less time, at the price that on a very
    // slow machine one that does not may be taken for it then.
    void losePatience() { Patience = std::chrono::seconds(4); }

    // Lets the process end by itself, and says what it then complains of: a sanitizer reports leaks.
    std::string end();

private:
    void start();
    void kill() noexcept;
    int await() noexcept;           // the status with which the process ended; 0 for none
    std::string complaints() const; // the end of what it wrote to standard error

    std::chrono::seconds Patience{45}; // for one sequence
    testsupport::SocketHandle Errors;  // its standard error, a file
    testsupport::SocketHandle Channel;
    pid_t Process = -1;
};

} // namespace model
