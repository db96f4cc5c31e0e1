// What registers a service keeps this, to take the service back.
#pragma once

#include "cppmicroservices/ServiceReference.h"

#include <memory>
#include <string>

namespace cppmicroservices {

class BundleContext;

namespace detail {
class ServiceRegistry;
}

class US_Framework_EXPORT ServiceRegistrationBase {
public:
    ServiceRegistrationBase(const ServiceRegistrationBase& reg);
    ServiceRegistrationBase(ServiceRegistrationBase&& reg) noexcept;
    ServiceRegistrationBase& operator=(const ServiceRegistrationBase& registration);
    ServiceRegistrationBase& operator=(ServiceRegistrationBase&& registration) noexcept;
    ServiceRegistrationBase& operator=(std::nullptr_t);
    ~ServiceRegistrationBase(); // the service stays registered

    explicit operator bool() const;
    // Both raise std::logic_error for a service that is no longer registered.
    ServiceReferenceBase GetReference(const std::string& interfaceId = {}) const;
    void Unregister();

private:
    friend class BundleContext;
    template <class I1, class... Interfaces>
    friend class ServiceRegistration;

    ServiceRegistrationBase();
    ServiceRegistrationBase(std::shared_ptr<detail::ServiceRegistry> registry,
                            std::shared_ptr<detail::RegisteredService> service);

    std::shared_ptr<detail::ServiceRegistry> Registry;
    std::shared_ptr<detail::RegisteredService> Service;
};

template <class I1, class... Interfaces>
class ServiceRegistration : public ServiceRegistrationBase {
public:
    ServiceRegistration() = default; // registers nothing
    template <class Interface = I1>
    ServiceReference<Interface> GetReference() const {
        return ServiceRegistrationBase::GetReference(us_service_interface_iid<Interface>());
    }
    using ServiceRegistrationBase::operator=;

private:
    friend class BundleContext;
    explicit ServiceRegistration(const ServiceRegistrationBase& base) : ServiceRegistrationBase(base) {}
};

template <>
class ServiceRegistration<void> : public ServiceRegistrationBase {
public:
    ServiceRegistration() = default;
    ServiceRegistration(const ServiceRegistrationBase& base) : ServiceRegistrationBase(base) {}
    using ServiceRegistrationBase::operator=;
};

using ServiceRegistrationU = ServiceRegistration<void>;

} // namespace cppmicroservices
