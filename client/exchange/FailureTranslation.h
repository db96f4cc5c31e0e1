// What the class and the host raise, as an Error: what failed, whose fault it was, in words that say both.
#pragma once

#include "vantik/Failure.h"

#include <netrove/error.h>

#include <cstdint>
#include <string>

namespace netrove {

// What the transport knows about the request that failed.
struct Circumstances {
    std::string Url = {};
    std::string Proxy = {};     // host and port, with the scheme where it is not http; empty: none
    bool Tunnelling = false;    // the proxy has been asked for a tunnel and has not answered
    bool Sent = false;          // some of the request has gone out
    int Status = 0;             // of the head that has come; 0: none
    std::uint64_t Received = 0; // bytes of content
    bool TotalTimeOver = false; // the limit of the whole call
    bool Interrupted = false;   // by the program
};

// True for the failure of a proxy that does not make a tunnel.
bool isTunnelRefused(const vantik::Message& message);

Error translated(const vantik::Message& message, const Circumstances& circumstances);

// For a status of 400 and above. One of 407 is the proxy's.
Error statusError(int status, const std::string& reason, const Circumstances& circumstances);

} // namespace netrove
