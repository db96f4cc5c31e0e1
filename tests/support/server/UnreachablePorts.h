// Loopback ports where connecting fails in a known way. Both hold their port, so nobody else can come to listen on it.
#pragma once

#include "tests/support/server/SocketHandle.h"

#include <cstdint>
#include <string>
#include <vector>

namespace testsupport {

// Bound but not listening: connections are refused at once.
class RefusingPort {
public:
    RefusingPort();
    std::uint16_t port() const { return boundPort(Bound); }
    std::string url(const std::string& path = "/") const;

private:
    SocketHandle Bound;
};

// Listening with a full queue that nobody empties: a further connection is neither accepted nor refused.
class SilentPort {
public:
    SilentPort();
    std::uint16_t port() const { return boundPort(Listening); }
    std::string url(const std::string& path = "/") const;

private:
    SocketHandle Listening;
    std::vector<SocketHandle> Fillers;
};

} // namespace testsupport
