// Stands between the library and its host in a test's executable: records the host operations that the library calls
// and makes a chosen one fail.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace testsupport {

// How an operation fails.
enum class HostFault {
    UserException,   // a failure of the host with an identifier: "VANTIK:test:Injected"
    OutOfMemory,     // std::bad_alloc
    UnknownException // not derived from std::exception
};

inline constexpr const char* kInjectedIdentifier = "VANTIK:test:Injected";

// One at a time, on the thread of the test. Without an instance alive every call goes to the host. The names of the
// calls are those of the operations, without their namespaces.
class HostOperations {
public:
    HostOperations();
    ~HostOperations();
    HostOperations(const HostOperations&) = delete;
    HostOperations& operator=(const HostOperations&) = delete;

    // Records from now on, and makes the n-th call from now fail, once. 0: none.
    void start(std::size_t nth = 0, HostFault fault = HostFault::UserException);
    void stop() { Recording = false; }

    const std::vector<std::string>& calls() const { return Calls; }
    bool hasFailed() const { return Failed; }

    // For the wrapped operations: raises where this call is the one to fail.
    static void enter(const char* name);

private:
    bool Recording = false;
    bool Failed = false;
    std::size_t FailAt = 0;
    HostFault Fault = HostFault::UserException;
    std::vector<std::string> Calls;
};

} // namespace testsupport
