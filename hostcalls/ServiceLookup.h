// Looks up a service in the host's service framework. Nothing is kept between look-ups.
#pragma once

#include "host/Services.h"

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/LDAPFilter.h>
#include <cppmicroservices/ServiceObjects.h>
#include <cppmicroservices/ServiceReference.h>

#include <memory>
#include <stdexcept>

namespace netrove {

// The service of the first reference that the framework returns for `Interface` and the filter; other references are
// ignored. Empty if the host has no framework or no such service. The reference keeps the service in use.
template <class Interface>
std::shared_ptr<Interface> findService(const cppmicroservices::LDAPFilter& filter) {
    const auto framework = foundation::cppmicroservices::getFramework();
    if (!framework) {
        return nullptr;
    }
    cppmicroservices::BundleContext context = framework->GetBundleContext();
    const auto references = context.GetServiceReferences<Interface>(filter.ToString());
    if (references.empty()) {
        return nullptr;
    }
    // The framework may have stopped since it handed out its context. The type and the words are those of the
    // framework's own library.
    if (!context) {
        throw std::runtime_error("The bundle context is no longer valid");
    }
    return context.GetServiceObjects(references.front()).GetService();
}

} // namespace netrove
