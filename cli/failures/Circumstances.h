// What is known of a run when it fails.
#pragma once

#include <string>
#include <vector>

namespace netrove::cli {

// What the program knows about an operation that failed, beyond the failure itself.
struct Circumstances {
    int Signal = 0;              // the signal that this program's own handler saw; 0 for none
    double MaxTimeSeconds = 0;   // of --max-time
    bool MaxTimeElapsed = false; // it was over
    bool Interrupted = false;    // the failure was an interrupt
    // The schemes that a login at the server, and one at the proxy, may use; nothing without such a login.
    std::vector<std::string> Schemes = {};
    std::vector<std::string> ProxySchemes = {};
};

} // namespace netrove::cli
