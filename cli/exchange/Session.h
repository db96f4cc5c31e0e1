// The host and the connection object, for the commands that show them.
#pragma once

#include "vantik/Host.h"
#include "vantik/Http.h"

namespace netrove::cli {

constexpr const char* kModule = "netrove";

struct Session {
    vantik::Host Host;
    vantik::Object Connection; // in the host; destroyed before it

    // Loads the module. Must come first.
    void load() { Host.load(kModule); }
    void interrupt() noexcept { Host.interrupt(); }
};

} // namespace netrove::cli
