#include "tests/support/server/SocketHandle.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace testsupport {
namespace {

struct Address {
    sockaddr_storage Storage{};
    socklen_t Length = 0;
    sockaddr* raw() { return reinterpret_cast<sockaddr*>(&Storage); }
};

Address loopback(Family family, std::uint16_t port) {
    Address address;
    if (family == Family::IPv6) {
        auto& in6 = reinterpret_cast<sockaddr_in6&>(address.Storage);
        in6.sin6_family = AF_INET6;
        in6.sin6_port = htons(port);
        in6.sin6_addr = in6addr_loopback;
        address.Length = sizeof(sockaddr_in6);
    } else {
        auto& in4 = reinterpret_cast<sockaddr_in&>(address.Storage);
        in4.sin_family = AF_INET;
        in4.sin_port = htons(port);
        in4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.Length = sizeof(sockaddr_in);
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

void SocketHandle::reset() noexcept {
    if (Descriptor >= 0) {
        ::close(std::exchange(Descriptor, -1));
    }
}

SocketHandle bindLoopback(Family family, bool blocking) {
    SocketHandle socket = open(family, blocking ? 0 : SOCK_NONBLOCK);
    Address address = loopback(family, 0);
    if (::bind(socket.get(), address.raw(), address.Length) != 0) {
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
    address.Length = sizeof(address.Storage);
    if (::getsockname(socket.get(), address.raw(), &address.Length) != 0) {
        fail("getsockname");
    }
    return ntohs(address.Storage.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6&>(address.Storage).sin6_port
                                                       : reinterpret_cast<sockaddr_in&>(address.Storage).sin_port);
}

SocketHandle connectLoopback(std::uint16_t port, Family family) {
    SocketHandle socket = open(family, 0);
    Address address = loopback(family, port);
    if (::connect(socket.get(), address.raw(), address.Length) != 0) {
        fail("connect");
    }
    return socket;
}

SocketHandle beginConnect(std::uint16_t port) {
    SocketHandle socket = open(Family::IPv4, SOCK_NONBLOCK);
    Address address = loopback(Family::IPv4, port);
    if (::connect(socket.get(), address.raw(), address.Length) != 0 && errno != EINPROGRESS) {
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
