// Gives the object behind a service reference.
#pragma once

#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/ServiceReference.h"

#include <memory>
#include <utility>

namespace cppmicroservices {

template <class S>
class ServiceObjects {
public:
    ServiceObjects(const ServiceObjects& other) = delete;
    ServiceObjects& operator=(const ServiceObjects& other) = delete;
    ServiceObjects(ServiceObjects&& other) noexcept = default;
    ServiceObjects& operator=(ServiceObjects&& other) noexcept = default;

    // Null where the service is no longer registered. Raises where the context is no longer valid.
    std::shared_ptr<S> GetService() const { return Context.GetService(Reference); }
    ServiceReference<S> GetServiceReference() const { return Reference; }

private:
    friend class BundleContext;
    ServiceObjects(BundleContext context, ServiceReference<S> reference)
        : Context(std::move(context)), Reference(std::move(reference)) {}

    mutable BundleContext Context;
    ServiceReference<S> Reference;
};

} // namespace cppmicroservices
