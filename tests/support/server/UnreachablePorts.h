// Loopback ports where connecting fails in a known way. Both hold their port, so nobody else can come to listen on it.
#pragma once

#include "tests/support/server/SocketHandle.h"

#include <array>
#include <cstdint>
#include <string>

namespace testsupport {

class LoopbackPort {
public:
    std::uint16_t port() const { return boundPort(Bound); }
    std::string url(const std::string& path = "/") const { return "http://127.0.0.1:" + std::to_string(port()) + path; }

protected:
    const SocketHandle Bound = bindLoopback(Family::IPv4, true);
};

// Bound but not listening: connections are refused at once.
class RefusingPort : public LoopbackPort {};

// Listening with a full queue that nobody empties: a further connection is neither accepted nor refused.
class SilentPort : public LoopbackPort {
public:
    SilentPort();

private:
    std::array<SocketHandle, 2> Fillers;
};

} // namespace testsupport
