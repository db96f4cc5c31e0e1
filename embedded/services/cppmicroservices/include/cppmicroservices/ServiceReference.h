// References to registered services.
#pragma once

#include "cppmicroservices/GlobalConfig.h"
#include "cppmicroservices/ServiceInterface.h"

#include <memory>
#include <utility>

namespace cppmicroservices {

class BundleContext;

namespace detail {
struct RegisteredService;
class ServiceRegistry;
} // namespace detail

class US_Framework_EXPORT ServiceReferenceBase {
public:
    explicit operator bool() const; // false where it names nothing, or no longer a registered service

private:
    friend class BundleContext;
    template <class S>
    friend class ServiceObjects;
    template <class S>
    friend class ServiceReference;

    std::shared_ptr<void> object() const; // null where the reference is false

    ServiceReferenceBase() = default;
    explicit ServiceReferenceBase(std::shared_ptr<detail::RegisteredService> service) : Service(std::move(service)) {}

    std::shared_ptr<detail::RegisteredService> Service;
};

template <class S>
class ServiceReference : public ServiceReferenceBase {
public:
    ServiceReference() = default; // names no service

private:
    friend class BundleContext;
    using ServiceReferenceBase::ServiceReferenceBase;
};

} // namespace cppmicroservices
