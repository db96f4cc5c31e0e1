#include "tests/support/server/SocketHandle.h"

#include <array>
#include <cerrno>
#include <netinet/in.h>
#include <sys/socket.h>
#include <system_error>

namespace testsupport {
namespace {

union Address {
    sockaddr Any;
    sockaddr_in In4;
    sockaddr_in6 In6{};
};

Address loopback(Family family, std::uint16_t port) {
    Address address;
    address.In6.sin6_family = family == Family::IPv6 ? AF_INET6 : AF_INET;
    address.In6.sin6_port = htons(port); // at the same place in both
    if (family == Family::IPv6) {
        address.In6.sin6_addr = in6addr_loopback;
    } else {
        address.In4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    }
    return address;
}

[[noreturn]] void fail(const char* call) {
    throw std::system_error(errno, std::generic_category(), call);
}

[[noreturn]] void failWithAddress(const char* call, Family family) {
    const bool missing = errno == EADDRNOTAVAIL || errno == EAFNOSUPPORT;
    fail(missing && family == Family::IPv6 ? kMissingIPv6 : call);
}

SocketHandle open(Family family, int flags) {
    SocketHandle socket(::socket(family == Family::IPv6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
    if (!socket) {
        failWithAddress("socket", family);
    }
    return socket;
}

} // namespace

SocketHandle bindLoopback(Family family, bool blocking) {
    SocketHandle socket = open(family, blocking ? 0 : SOCK_NONBLOCK);
    const Address address = loopback(family, 0);
    if (::bind(socket.get(), &address.Any, sizeof address) != 0) {
        failWithAddress("bind", family);
    }
    return socket;
}

bool hasLoopback(Family family) {
    try {
        bindLoopback(family, true);
        return true;
    } catch (const std::system_error&) {
        return false;
    }
}

std::uint16_t boundPort(const SocketHandle& socket) {
    Address address;
    socklen_t length = sizeof address;
    if (::getsockname(socket.get(), &address.Any, &length) != 0) {
        fail("getsockname");
    }
    return ntohs(address.In6.sin6_port);
}

SocketHandle connectLoopback(std::uint16_t port, Family family, bool blocking) {
    SocketHandle socket = open(family, blocking ? 0 : SOCK_NONBLOCK);
    const Address address = loopback(family, port);
    if (::connect(socket.get(), &address.Any, sizeof address) != 0 && (blocking || errno != EINPROGRESS)) {
        fail("connect");
    }
    return socket;
}

void writeAll(const SocketHandle& socket, const std::string& bytes) {
    std::size_t position = 0;
    while (position < bytes.size()) {
        const ssize_t sent = ::send(socket.get(), bytes.data() + position, bytes.size() - position, MSG_NOSIGNAL);
        if (sent < 0) {
            fail("send");
        }
        position += static_cast<std::size_t>(sent);
    }
}

std::string readSome(const SocketHandle& socket) {
    std::array<char, 65536> block;
    const ssize_t length = ::recv(socket.get(), block.data(), block.size(), 0);
    if (length < 0) {
        fail("recv");
    }
    return {block.data(), static_cast<std::size_t>(length)};
}

std::string readToEnd(const SocketHandle& socket) {
    std::string all;
    for (std::string some = readSome(socket); !some.empty(); some = readSome(socket)) {
        all += some;
    }
    return all;
}

} // namespace testsupport
