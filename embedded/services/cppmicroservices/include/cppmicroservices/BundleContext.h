// Through a context, services are registered and found.
#pragma once

#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/ServiceRegistration.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace cppmicroservices {

template <class S>
class ServiceObjects;

namespace detail {
[[noreturn]] US_Framework_EXPORT void throwInvalidContext();
}

// Valid while its bundle runs; a later run has a context of its own. Operations on an invalid context raise
// std::runtime_error with the text "The bundle context is no longer valid". May be used by any number of threads.
class US_Framework_EXPORT BundleContext {
public:
    BundleContext() = default; // invalid
    explicit operator bool() const;

    // Raises std::invalid_argument for a null object or an interface without a name.
    template <class I, class Impl>
    [[nodiscard]] ServiceRegistration<I> RegisterService(const std::shared_ptr<Impl>& impl) {
        return ServiceRegistration<I>(add(us_service_interface_iid<I>(), std::static_pointer_cast<I>(impl)));
    }

    // The services of an interface, in the order of their registration. Raises std::invalid_argument for a filter that
    // is not empty: see LDAPFilter.
    template <class S>
    std::vector<ServiceReference<S>> GetServiceReferences(const std::string& filter = {}) {
        std::vector<ServiceReference<S>> result;
        for (const auto& service : find(nameOf<S>(), filter)) {
            result.push_back(ServiceReference<S>(service));
        }
        return result;
    }

    // The first of them; a reference that names nothing where there is none.
    template <class S>
    ServiceReference<S> GetServiceReference() {
        const auto found = GetServiceReferences<S>();
        return found.empty() ? ServiceReference<S>() : found.front();
    }

    // Both raise std::invalid_argument for a reference that names no registered service, no longer or never.
    template <class S>
    std::shared_ptr<S> GetService(const ServiceReference<S>& reference) {
        return std::static_pointer_cast<S>(object(reference));
    }
    template <class S>
    ServiceObjects<S> GetServiceObjects(const ServiceReference<S>& reference) {
        if (!Registry) {
            detail::throwInvalidContext();
        }
        return ServiceObjects<S>(reference);
    }

private:
    friend class Bundle;
    explicit BundleContext(std::shared_ptr<detail::ServiceRegistry> registry) : Registry(std::move(registry)) {}

    template <class S>
    static const std::string& nameOf() {
        const std::string& name = us_service_interface_iid<S>();
        if (name.empty()) {
            throw ServiceException(
                "The service interface class has no CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE macro");
        }
        return name;
    }
    detail::ServiceRegistry& registry() const;
    ServiceRegistrationBase add(const std::string& interfaceId, std::shared_ptr<void> object);
    std::vector<std::shared_ptr<detail::RegisteredService>> find(const std::string& interfaceId,
                                                                 const std::string& filter) const;
    std::shared_ptr<void> object(const ServiceReferenceBase& reference) const;

    std::shared_ptr<detail::ServiceRegistry> Registry;
};

} // namespace cppmicroservices
