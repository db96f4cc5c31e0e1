// Access to the host's service framework (libvkcppmicroservices), and the service that keeps libcurl initialised.
#pragma once

#include "host/HostApi.h"

#include <cppmicroservices/Framework.h>
#include <cppmicroservices/ServiceInterface.h>

#include <memory>

namespace foundation::cppmicroservices {

// The running framework, or null where the host has none.
VANTIK_HOST_API std::shared_ptr<::cppmicroservices::Framework> getFramework();

} // namespace foundation::cppmicroservices

namespace foundation::httpclient_core::libcurlinitializer {

// While a reference to this service lives, libcurl's global state is initialised. It has no operations.
class VANTIK_HOST_API LibCurlInitializer {
public:
    virtual ~LibCurlInitializer();
};

} // namespace foundation::httpclient_core::libcurlinitializer

CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE(foundation::httpclient_core::libcurlinitializer::LibCurlInitializer,
                                           "foundation::httpclient_core::libcurlinitializer::LibCurlInitializer")
