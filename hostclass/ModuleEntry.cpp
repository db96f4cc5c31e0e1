#include "hostclass/ModuleEntry.h"

#include "host/ClassSystem.h"
#include "hostclass/ClassRegistration.h"

#include <cstdlib>
#include <mutex>

namespace {

// Runs the registration until it has succeeded once in this process. What it raises passes to the caller and leaves the
// flag unset, so that a later call tries again.
void registerOnce() {
    static std::once_flag registered;
    bool registrationFailed = false;
    try {
        std::call_once(registered, [&] {
            registrationFailed = true;
            netrove::registerAdapterClass();
            registrationFailed = false;
        });
    } catch (...) {
        if (registrationFailed) {
            throw;
        }
        std::abort(); // the once primitive itself failed: nothing is known about the class any more
    }
}

} // namespace

void VKInitialize_netrove() {
    // One class system for each scope: every scope needs its own registration.
    if (omGetVcosUsingUSM()) {
        netrove::registerAdapterClass();
    } else {
        registerOnce();
    }
}

void VKTerminate_netrove() {}
