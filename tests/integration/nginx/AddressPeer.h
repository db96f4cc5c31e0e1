// nginx on some of the loopback addresses, with something known on the others.
#pragma once

#include "tests/integration/support/PeerProcess.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/SocketHandle.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace integrationtest {

// What happens to a connection on the ports of the server.
enum class Side {
    Served,
    Refused,
    Silent, // neither accepted nor refused
};

class AddressPeer {
public:
    // Where the machine has no IPv6 loopback address, `ipv6` is not heeded: see url.
    AddressPeer(Side ipv4, Side ipv6);

    std::uint16_t port(bool secure) const { return Ports.at(secure ? 1 : 0); }
    // Answered with the value of the request's Host field, a blank and the address that was connected to. Raises
    // std::runtime_error where the machine lacks the ::1 that the host needs.
    std::string url(const std::string& host, bool secure) const;
    std::string certificateFile() const { return Folder.file("certificate"); } // for 127.0.0.1, ::1 and localhost

private:
    testsupport::TemporaryFolder Folder;
    const bool HasIPv6 = testsupport::hasLoopback(testsupport::Family::IPv6);
    bool OnlyIPv6Serves;
    std::vector<std::uint16_t> Ports; // plain, under TLS, and one of 127.0.0.1 to wait for
    std::vector<testsupport::SocketHandle> Held;
    std::unique_ptr<PeerProcess> Process;

    void hold(const std::string& address, std::uint16_t port, Side side);
};

} // namespace integrationtest
