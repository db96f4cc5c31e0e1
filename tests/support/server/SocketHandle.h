// Owned descriptors and loopback addresses.
#pragma once

#include <cstdint>
#include <string>
#include <unistd.h>
#include <utility>

namespace testsupport {

enum class Family { IPv4, IPv6 };

// What a test says that needs the address.
inline constexpr const char* kMissingIPv6 = "this machine has no IPv6 loopback address (::1), which this test needs";

// Closes its descriptor at the end.
class SocketHandle {
public:
    SocketHandle() noexcept = default;
    explicit SocketHandle(int descriptor) noexcept : Descriptor(descriptor) {}
    ~SocketHandle() { reset(); }
    SocketHandle(SocketHandle&& other) noexcept : Descriptor(std::exchange(other.Descriptor, -1)) {}
    SocketHandle& operator=(SocketHandle&& other) noexcept {
        std::swap(Descriptor, other.Descriptor);
        return *this;
    }

    int get() const noexcept { return Descriptor; }
    explicit operator bool() const noexcept { return Descriptor >= 0; }
    void reset() noexcept {
        if (Descriptor >= 0) {
            ::close(std::exchange(Descriptor, -1));
        }
    }

private:
    int Descriptor = -1;
};

// A stream socket bound to a free port of the loopback address. Raises std::system_error, with a text of its own where
// the machine has no such address.
SocketHandle bindLoopback(Family family, bool blocking);

// False where IPv6 is switched off, as it is in many containers.
bool hasLoopback(Family family);

// The port that a socket is bound to.
std::uint16_t boundPort(const SocketHandle& socket);

// A socket connected to a port of the loopback address; where it is not blocking, one that has begun to connect.
SocketHandle connectLoopback(std::uint16_t port, Family family = Family::IPv4, bool blocking = true);

// Blocking transfer on a connected socket, for clients in tests. `readSome` returns an empty text at the end.
void writeAll(const SocketHandle& socket, const std::string& bytes);
std::string readSome(const SocketHandle& socket);
std::string readToEnd(const SocketHandle& socket);

} // namespace testsupport
