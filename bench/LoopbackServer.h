// A server for measurements: it sends and receives bytes on loopback as fast as sockets allow, in a process of its own,
// so that neither its time nor its memory is counted as the client's.
#pragma once

#include "tests/support/server/SocketHandle.h"

#include <cstdint>
#include <string>
#include <sys/types.h>

namespace bench {

//   GET /N            answers with N bytes of Content.h
//   GET /N/NAME       the same; the name is for programs that save under it
//   GET /N?fields=K   the same, with K header fields more
//   GET /cpu          answers with the CPU seconds of the server so far
//   PUT /checksum     takes the content, sized or chunked, and answers with its length and its CRC-32, in decimal
//   anything else     takes the content and answers with its length
// Connections are kept, and 100 is sent if a request expects it.
[[noreturn]] void serveForever(const testsupport::SocketHandle& listening);

// A socket that listens on a free port of 127.0.0.1.
testsupport::SocketHandle listenOnLoopback(); // raises std::system_error

// The server in a process of its own.
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
