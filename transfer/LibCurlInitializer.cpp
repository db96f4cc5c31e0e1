#include "transfer/LibCurlInitializer.h"

#include "hostcalls/ServiceLookup.h"

namespace netrove {

std::shared_ptr<foundation::httpclient_core::libcurlinitializer::LibCurlInitializer> newLibCurlInitializer() {
    return findService<foundation::httpclient_core::libcurlinitializer::LibCurlInitializer>(
        cppmicroservices::LDAPFilter());
}

} // namespace netrove
