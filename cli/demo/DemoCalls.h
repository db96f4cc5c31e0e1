// What the tour asks of Poco: the servers that it talks to.
#pragma once

#include <cstdint>
#include <memory>

namespace netrove::cli {

class DemoPeer {
public:
    virtual ~DemoPeer() = default;
    virtual std::uint16_t port() const = 0;
    // Lets the handlers that wait go on, now and later.
    virtual void release() {}
};

struct DemoCalls {
    static constexpr const char* kLibrary = "libnetrove_demo.so";

    std::unique_ptr<DemoPeer> (*server)();     // see DemoServer.h for what it answers
    std::unique_ptr<DemoPeer> (*closedPort)(); // nobody listens there, and nobody else can take it
};

} // namespace netrove::cli
