// What registers a service keeps this, to take the service back. Without it the service stays registered.
#pragma once

#include "cppmicroservices/ServiceReference.h"

#include <cstddef>
#include <memory>
#include <utility>

namespace cppmicroservices {

class US_Framework_EXPORT ServiceRegistrationBase {
public:
    ServiceRegistrationBase& operator=(std::nullptr_t);
    void Unregister(); // raises std::logic_error for a service that is no longer registered

private:
    friend class BundleContext;
    template <class I>
    friend class ServiceRegistration;

    ServiceRegistrationBase(std::shared_ptr<detail::ServiceRegistry> registry,
                            std::shared_ptr<detail::RegisteredService> service)
        : Registry(std::move(registry)), Service(std::move(service)) {}

    std::shared_ptr<detail::ServiceRegistry> Registry;
    std::shared_ptr<detail::RegisteredService> Service;
};

template <class I>
class ServiceRegistration : public ServiceRegistrationBase {
public:
    using ServiceRegistrationBase::operator=;

private:
    friend class BundleContext;
    explicit ServiceRegistration(ServiceRegistrationBase base) : ServiceRegistrationBase(std::move(base)) {}
};

} // namespace cppmicroservices
