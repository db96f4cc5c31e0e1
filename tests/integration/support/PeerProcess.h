// A server program that nobody here wrote, started by a test and stopped by its process id.
#pragma once

#include "tests/support/process/WatchedProcess.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace integrationtest {

struct PeerOptions {
    std::map<std::string, std::string> Environment{}; // besides PATH, HOME and LANG
    std::string Folder{};                             // to run in
    int StopSignal = 15;                              // SIGTERM
};

// Every process that it starts in turn is ended with it, and with a test that is killed: they form a process group.
class PeerProcess {
public:
    // The program is looked for in the PATH and in the folders of system programs. What it prints goes to the file
    // `log`. Raises std::system_error where it cannot be started.
    PeerProcess(std::vector<std::string> command, std::string log, const PeerOptions& options = {});
    ~PeerProcess();
    PeerProcess(const PeerProcess&) = delete;
    PeerProcess& operator=(const PeerProcess&) = delete;

    // Until the program, or one that it has started, listens on a port. Raises std::runtime_error with the end of the
    // log where the program ends before that, or where it takes unreasonably long.
    void awaitListening(std::uint16_t port);

    // Until `condition` holds; the same failures.
    void awaitCondition(const std::function<bool()>& condition, const std::string& what);

    // Ends the program and waits for it. Does nothing the second time.
    void stop() noexcept;

private:
    std::optional<testsupport::WatchedProcess> Process;
    std::string Name;
    std::string Log;
    int StopSignal;
};

// Loopback ports that were free when asked for, all of them different. Somebody else may take one before the server
// does: see startOnFreePorts.
std::vector<std::uint16_t> freePorts(std::size_t count);

// Starts a server on ports that the system picks: `start` is given `count` ports, writes the configuration, starts the
// program and waits until it listens. A start that fails is tried again on other ports, a few times, before its failure
// is passed on.
std::unique_ptr<PeerProcess>
startOnFreePorts(std::size_t count,
                 const std::function<std::unique_ptr<PeerProcess>(const std::vector<std::uint16_t>& ports)>& start);

} // namespace integrationtest
