// A framework: one registry of services with its life. Copies name the same framework.
#pragma once

#include "cppmicroservices/Bundle.h"

#include <chrono>

namespace cppmicroservices {

class FrameworkEvent;

class US_Framework_EXPORT Framework : public Bundle {
public:
    // Stop may return before the framework has stopped; this waits for it, without a limit where the time is zero.
    FrameworkEvent WaitForStop(const std::chrono::milliseconds& timeout);

private:
    friend class FrameworkFactory;
    using Bundle::Bundle;
};

} // namespace cppmicroservices
