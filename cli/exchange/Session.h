// What one run of the program works with: the host, the connection object, and the time at which it must end.
#pragma once

#include "cli/options/Settings.h"
#include "cli/system/Signals.h"
#include "cli/terminal/Output.h"
#include "vantik/Host.h"
#include "vantik/Http.h"

#include <optional>
#include <string>

namespace netrove::cli {

constexpr const char* kModule = "netrove";

struct Session {
    vantik::Host Host;
    vantik::Object Connection;                 // in the host; destroyed before it
    std::optional<Clock::time_point> Deadline; // of --max-time
    double MaxTimeSeconds = 0;
    std::optional<vantik::Message> Partial; // the warning that content was cut short

    // Loads the module. Must come first.
    void load() { Host.load(kModule); }

    // From here on warnings go to `console`, which must outlive the session. The warning of incomplete content is kept
    // instead, and reported as a failure once the exchange is over.
    void reportWarnings(const Console& console) {
        Host.onWarning([this, &console](const vantik::Message& message) {
            if (message.identifier() == vantik::kIncompleteContent) {
                Partial = message;
            } else {
                console.warning(message);
            }
        });
    }

    void limitTime(double seconds) {
        const auto time = std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(seconds));
        MaxTimeSeconds = seconds;
        Deadline = Clock::now() + time;
        Host.interruptAfter(time);
    }
    bool timeIsOver() const { return Deadline && Clock::now() >= *Deadline; }
};

} // namespace netrove::cli
