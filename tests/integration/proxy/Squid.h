// The proxy Squid with a configuration of its own.
#pragma once

#include "tests/integration/support/PeerProcess.h"
#include "tests/support/process/TemporaryFolder.h"

#include <cstdint>
#include <list>
#include <memory>
#include <string>

namespace integrationtest {

enum class SquidLogin { None, Basic, Digest, Both };

// Knows the names "origin.test" and "refused.test" as names of this machine, and refuses to go to the second one. It
// caches nothing. Where it asks for a login, the user is KnownUser of PasswordFiles.h.
class Squid {
public:
    explicit Squid(SquidLogin login);
    Squid(const Squid&) = delete;
    Squid& operator=(const Squid&) = delete;

    std::uint16_t port() const { return Port; }
    std::string folder() const { return Folder.path(); }
    std::string authority() const { return "127.0.0.1:" + std::to_string(Port); }

private:
    testsupport::TemporaryFolder Folder;
    std::uint16_t Port = 0;
    std::list<testsupport::WatchedPath> Memory; // what it shares with its helpers; has the name of the service
    std::unique_ptr<PeerProcess> Process;       // goes first

    std::string service() const { return "netrove" + std::to_string(Port); }
    std::string configuration(SquidLogin login) const;
};

} // namespace integrationtest
