// The server of the tour: HTTP on a loopback port that the system picks.
#pragma once

#include "cli/demo/DemoCalls.h"
#include "late/LateLibrary.h"

#include <memory>
#include <string>

namespace netrove::cli {

// Paths: /hello a short text; /file content of `kDemoFileSize` bytes; /upload answers what it received; /missing a 404;
// /silent sends nothing until released; /half sends half of /file and stops until released.
class DemoServer {
public:
    std::string url(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(Inside->port()) + path;
    }
    // Lets the handlers of /silent and /half go on, now and later. So does the end.
    void release() { Inside->release(); }

private:
    std::unique_ptr<DemoPeer> Inside = lateCalls<DemoCalls>().server();
};

} // namespace netrove::cli
