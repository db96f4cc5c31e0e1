// Through a context, services are registered and found.
#pragma once

#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/ServiceReference.h"
#include "cppmicroservices/ServiceRegistration.h"

#include <memory>
#include <string>
#include <vector>

namespace cppmicroservices {

class Bundle;
template <class S>
class ServiceObjects;

// Valid while its bundle runs. Every operation on an invalid context raises std::runtime_error with the text "The
// bundle context is no longer valid". May be used by any number of threads.
class US_Framework_EXPORT BundleContext {
public:
    BundleContext(); // invalid
    bool operator==(const BundleContext& rhs) const;
    bool operator!=(const BundleContext& rhs) const { return !(*this == rhs); }
    explicit operator bool() const;
    BundleContext& operator=(std::nullptr_t);

    // Raises std::invalid_argument for an empty map, a null object or an interface without a name.
    ServiceRegistrationU RegisterService(const InterfaceMapConstPtr& service, const ServiceProperties& properties = {});

    template <class I1, class... Interfaces, class Impl>
    ServiceRegistration<I1, Interfaces...> RegisterService(const std::shared_ptr<Impl>& impl,
                                                           const ServiceProperties& properties = {}) {
        const InterfaceMapConstPtr services = MakeInterfaceMap<I1, Interfaces...>(impl);
        return ServiceRegistration<I1, Interfaces...>(RegisterService(services, properties));
    }

    // The services of an interface whose properties match, the preferred one first. An empty name stands for every
    // interface, an empty filter for no constraint. Raises std::invalid_argument for a filter that cannot be read.
    std::vector<ServiceReferenceU> GetServiceReferences(const std::string& clazz, const std::string& filter = {});

    template <class S>
    std::vector<ServiceReference<S>> GetServiceReferences(const std::string& filter = {}) {
        const std::vector<ServiceReferenceU> found = GetServiceReferences(namedInterface<S>(), filter);
        return {found.begin(), found.end()};
    }

    // The preferred service of an interface; a reference that names nothing where there is none.
    ServiceReferenceU GetServiceReference(const std::string& clazz);

    template <class S>
    ServiceReference<S> GetServiceReference() {
        const ServiceReferenceU found = GetServiceReference(namedInterface<S>());
        return found ? ServiceReference<S>(found) : ServiceReference<S>();
    }

    // Null where the service is no longer registered.
    std::shared_ptr<void> GetService(const ServiceReferenceBase& reference);

    template <class S>
    std::shared_ptr<S> GetService(const ServiceReference<S>& reference) {
        return std::static_pointer_cast<S>(GetService(static_cast<const ServiceReferenceBase&>(reference)));
    }

    template <class S>
    ServiceObjects<S> GetServiceObjects(const ServiceReference<S>& reference) {
        registry(); // raises where the context is invalid
        return ServiceObjects<S>(*this, reference);
    }

private:
    friend class Bundle;
    explicit BundleContext(std::shared_ptr<detail::ServiceRegistry> registry);

    template <class S>
    static std::string namedInterface() {
        std::string name = us_service_interface_iid<S>();
        if (name.empty()) {
            throw ServiceException(
                "The service interface class has no CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE macro");
        }
        return name;
    }
    detail::ServiceRegistry& registry() const;

    std::shared_ptr<detail::ServiceRegistry> Registry;
};

} // namespace cppmicroservices

#include "cppmicroservices/ServiceObjects.h"
