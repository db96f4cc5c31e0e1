// Look-up of the service that keeps libcurl's global state initialised. This library never initialises it itself.
#pragma once

#include "host/Services.h"

#include <memory>

namespace netrove {

// A reference to the service, or null if the host has no framework or no such service. Raises std::runtime_error if the
// framework goes away during the look-up.
std::shared_ptr<foundation::httpclient_core::libcurlinitializer::LibCurlInitializer> newLibCurlInitializer();

} // namespace netrove
