// A server for measurements: it sends and receives bytes on loopback as fast as sockets allow, in a process of its own,
// so that neither its time nor its memory is counted as the client's.
#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>

namespace bench {

//   GET /N          answers with N bytes
//   anything else   takes the content, sized or chunked, and answers with its length in decimal
// Connections are kept, and 100 is sent if a request expects it.
class LoopbackServer {
public:
    LoopbackServer(); // forks; raises std::system_error. Make it before any thread is started.
    ~LoopbackServer();
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    std::string url(std::uint64_t bytes) const; // for a download of that many bytes, or for an upload

private:
    std::uint16_t Port = 0;
    pid_t Process = -1;
};

} // namespace bench
