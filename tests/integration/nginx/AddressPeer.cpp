#include "tests/integration/nginx/AddressPeer.h"

#include "tests/integration/nginx/NginxProcess.h"
#include "tests/support/crypto/Certificates.h"

#include <cerrno>
#include <netinet/in.h>
#include <sys/socket.h>
#include <system_error>

namespace integrationtest {
namespace {

using testsupport::Family;
using testsupport::SocketHandle;

struct Loopback {
    sockaddr_storage Storage{};
    socklen_t Length = 0;
    Loopback(Family family, std::uint16_t port) {
        if (family == Family::IPv6) {
            auto& address = reinterpret_cast<sockaddr_in6&>(Storage);
            address.sin6_family = AF_INET6;
            address.sin6_port = htons(port);
            address.sin6_addr = in6addr_loopback;
            Length = sizeof address;
        } else {
            auto& address = reinterpret_cast<sockaddr_in&>(Storage);
            address.sin_family = AF_INET;
            address.sin_port = htons(port);
            address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            Length = sizeof address;
        }
    }
    const sockaddr* raw() const { return reinterpret_cast<const sockaddr*>(&Storage); }
};

void require(bool good, const char* what) {
    if (!good) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

SocketHandle makeSocket(Family family, int flags = 0) {
    SocketHandle socket(::socket(family == Family::IPv6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
    require(static_cast<bool>(socket), "socket");
    return socket;
}

} // namespace

// A port that is bound without listening refuses; one with a full queue is silent.
void AddressPeer::hold(Family family, std::uint16_t port, Side side) {
    const Loopback address(family, port);
    Held.push_back(makeSocket(family));
    const int descriptor = Held.back().get();
    require(::bind(descriptor, address.raw(), address.Length) == 0, "bind");
    if (side == Side::Refused) {
        return;
    }
    require(::listen(descriptor, 0) == 0, "listen");
    for (int filler = 0; filler < 2; ++filler) {
        Held.push_back(makeSocket(family, SOCK_NONBLOCK));
        require(::connect(Held.back().get(), address.raw(), address.Length) == 0 || errno == EINPROGRESS, "connect");
    }
}

AddressPeer::AddressPeer(Side ipv4, Side ipv6) : OnlyIPv6Serves(ipv4 != Side::Served && ipv6 == Side::Served) {
    const testsupport::Credentials identity =
        testsupport::selfSigned({.Names = "IP:127.0.0.1,IP:::1,IP:::ffff:127.0.0.1,DNS:localhost"});
    testsupport::writeFile(Folder.file("certificate"), identity.Certificate);
    testsupport::writeFile(Folder.file("key"), identity.Key);
    Process = startOnFreePorts(3, [&](const std::vector<std::uint16_t>& ports) {
        Ports = ports;
        Held.clear();
        std::string listening;
        for (const auto& [side, family, address] :
             {std::tuple{ipv4, Family::IPv4, "127.0.0.1:"}, std::tuple{ipv6, Family::IPv6, "[::1]:"}}) {
            if (family == Family::IPv6 && !HasIPv6) {
                continue;
            }
            for (const bool secure : {false, true}) {
                if (side == Side::Served) {
                    listening += std::string("    listen ") + address + std::to_string(port(secure)) +
                                 (secure ? " ssl" : "") + ";\n";
                } else {
                    hold(family, port(secure), side);
                }
            }
        }
        return startNginx(Folder,
                          nginxFrame(Folder) + "  server {\n" + listening +
                              "    listen 127.0.0.1:" + std::to_string(Ports.at(2)) + ";\n    ssl_certificate " +
                              Folder.file("certificate") + ";\n    ssl_certificate_key " + Folder.file("key") +
                              ";\n    location / { return 200 \"$http_host $server_addr\"; }\n  }\n}\n",
                          Ports.at(2));
    });
}

std::string AddressPeer::url(const std::string& host, bool secure) const {
    const bool withinIPv6 = host.starts_with("[::ffff:"); // goes to 127.0.0.1
    const bool isName = host.find_first_not_of("0123456789.") != std::string::npos && host.front() != '[';
    if (!HasIPv6 && ((host.front() == '[' && !withinIPv6) || (isName && OnlyIPv6Serves))) {
        throw std::runtime_error(testsupport::kMissingIPv6);
    }
    return (secure ? "https://" : "http://") + host + ":" + std::to_string(port(secure)) + "/";
}

} // namespace integrationtest
