// What one run of the program works with: the host, the connection object, and the moment at which it is to be over.
#pragma once

#include <optional>
#include <string>

#include "vantik/Host.h"

#include "cli/Settings.h"
#include "cli/Signals.h"

namespace netrove::cli {

constexpr const char* kModule = "netrove";
constexpr const char* kConnectionClass = "vantik.internal.webservices.HTTPConnectionAdapter";

struct Session {
    vantik::Host Host;
    vantik::Object Connection;                 // in the host; destroyed before it
    std::optional<Clock::time_point> Deadline; // of --max-time
    double MaxTimeSeconds = 0;
    std::optional<vantik::Message> Partial; // the warning that content was cut short

    // Loads the module. Nothing else may be done before.
    void load() { Host.load(kModule); }

    void limitTime(double seconds) {
        const auto time = std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(seconds));
        MaxTimeSeconds = seconds;
        Deadline = Clock::now() + time;
        Host.interruptAfter(time);
    }
    bool timeIsOver() const { return Deadline && Clock::now() >= *Deadline; }
};

} // namespace netrove::cli
