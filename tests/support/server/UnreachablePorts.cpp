#include "tests/support/server/UnreachablePorts.h"

#include <cerrno>
#include <sys/socket.h>
#include <system_error>

namespace testsupport {
namespace {

std::string loopbackUrl(std::uint16_t port, const std::string& path) {
    return "http://127.0.0.1:" + std::to_string(port) + path;
}

} // namespace

RefusingPort::RefusingPort() : Bound(bindLoopback(Family::IPv4, true)) {}

std::string RefusingPort::url(const std::string& path) const {
    return loopbackUrl(port(), path);
}

SilentPort::SilentPort() : Listening(bindLoopback(Family::IPv4, true)) {
    if (::listen(Listening.get(), 0) != 0) {
        throw std::system_error(errno, std::generic_category(), "listen");
    }
    // A queue of length 0 still takes one connection. The second filler stays unanswered already.
    Fillers.push_back(connectLoopback(port()));
    Fillers.push_back(beginConnect(port()));
}

std::string SilentPort::url(const std::string& path) const {
    return loopbackUrl(port(), path);
}

} // namespace testsupport
