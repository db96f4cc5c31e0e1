#include "tests/integration/nginx/AddressPeer.h"

#include "tests/integration/nginx/NginxProcess.h"
#include "tests/support/crypto/Certificates.h"

#include <cerrno>
#include <memory>
#include <netdb.h>
#include <sys/socket.h>
#include <system_error>

namespace integrationtest {
namespace {

using testsupport::SocketHandle;

void require(bool good, const char* what) {
    if (!good) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

} // namespace

// A port that is bound without listening refuses; one with a full queue is silent.
void AddressPeer::hold(const std::string& address, std::uint16_t port, Side side) {
    addrinfo numeric{};
    numeric.ai_flags = AI_NUMERICHOST;
    numeric.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    require(::getaddrinfo(address.c_str(), std::to_string(port).c_str(), &numeric, &found) == 0, "address");
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> where(found, ::freeaddrinfo);
    const auto makeSocket = [&](int flags) {
        Held.emplace_back(::socket(where->ai_family, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
        require(static_cast<bool>(Held.back()), "socket");
        return Held.back().get();
    };
    const int descriptor = makeSocket(0);
    require(::bind(descriptor, where->ai_addr, where->ai_addrlen) == 0, "bind");
    if (side == Side::Refused) {
        return;
    }
    require(::listen(descriptor, 0) == 0, "listen");
    for (int filler = 0; filler < 2; ++filler) {
        const int filling = makeSocket(SOCK_NONBLOCK);
        require(::connect(filling, where->ai_addr, where->ai_addrlen) == 0 || errno == EINPROGRESS, "connect");
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
        for (const auto& [side, address] : {std::pair{ipv4, "127.0.0.1"}, {ipv6, "::1"}}) {
            const bool isIPv6 = address == std::string("::1");
            for (const bool secure : {false, true}) {
                if (isIPv6 && !HasIPv6) {
                    continue;
                }
                if (side == Side::Served) {
                    listening += std::string("    listen ") + (isIPv6 ? "[::1]" : address) + ":" +
                                 std::to_string(port(secure)) + (secure ? " ssl" : "") + ";\n";
                } else {
                    hold(address, port(secure), side);
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
