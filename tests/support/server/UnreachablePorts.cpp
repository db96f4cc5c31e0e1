#include "tests/support/server/UnreachablePorts.h"

#include <cerrno>
#include <sys/socket.h>
#include <system_error>

namespace testsupport {

SilentPort::SilentPort() {
    if (::listen(Bound.get(), 0) != 0) {
        throw std::system_error(errno, std::generic_category(), "listen");
    }
    // A queue of length 0 still takes one connection. The second filler stays unanswered already.
    for (SocketHandle& filler : Fillers) {
        filler = connectLoopback(port(), Family::IPv4, &filler == &Fillers.front());
    }
}

} // namespace testsupport
