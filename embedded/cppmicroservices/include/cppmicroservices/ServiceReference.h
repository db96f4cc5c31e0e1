// References to registered services.
#pragma once

#include "cppmicroservices/GlobalConfig.h"
#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/ServiceProperties.h"

#include <memory>
#include <string>
#include <vector>

namespace cppmicroservices {

class BundleContext;
class ServiceObjectsBase;
class ServiceRegistrationBase;

namespace detail {
struct RegisteredService;
class ServiceRegistry;
} // namespace detail

// Names one service; does not keep its object alive.
class US_Framework_EXPORT ServiceReferenceBase {
public:
    ServiceReferenceBase(const ServiceReferenceBase& ref);
    ServiceReferenceBase& operator=(const ServiceReferenceBase& reference);
    ServiceReferenceBase& operator=(std::nullptr_t);
    ~ServiceReferenceBase();

    explicit operator bool() const; // false once the service is unregistered
    // Still answers after the service was unregistered. Keys are compared without regard to case; an unknown key gives
    // an empty value.
    Any GetProperty(const std::string& key) const;
    std::vector<std::string> GetPropertyKeys() const;
    std::string GetInterfaceId() const;

    // A service is less than another one if its ranking is lower, or its id higher where the rankings are the same.
    bool operator<(const ServiceReferenceBase& reference) const;
    bool operator==(const ServiceReferenceBase& reference) const;

private:
    friend class BundleContext;
    friend class LDAPFilter;
    friend class ServiceObjectsBase;
    friend class ServiceRegistrationBase;
    friend class detail::ServiceRegistry;
    template <class S>
    friend class ServiceReference;

    ServiceReferenceBase();
    ServiceReferenceBase(std::shared_ptr<detail::RegisteredService> service, std::string interfaceId);
    ServiceReferenceBase boundTo(const std::string& interfaceId) const;

    std::shared_ptr<detail::RegisteredService> Service;
    std::string InterfaceId;
};

template <class S>
class ServiceReference : public ServiceReferenceBase {
public:
    using ServiceType = S;

    ServiceReference() = default; // names no service
    // Names nothing where the object does not implement S.
    ServiceReference(const ServiceReferenceBase& base)
        : ServiceReferenceBase(base.boundTo(us_service_interface_iid<S>())) {}
    using ServiceReferenceBase::operator=;
};

template <>
class ServiceReference<void> : public ServiceReferenceBase {
public:
    ServiceReference() = default;
    ServiceReference(const ServiceReferenceBase& base) : ServiceReferenceBase(base) {}
    using ServiceReferenceBase::operator=;
};

using ServiceReferenceU = ServiceReference<void>;

} // namespace cppmicroservices
