// Returns the object that a service reference names.
#pragma once

#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/ServiceReference.h"

#include <memory>
#include <stdexcept>

namespace cppmicroservices {

template <class S>
class ServiceObjects {
public:
    ServiceObjects(const ServiceObjects& other) = delete;
    ServiceObjects& operator=(const ServiceObjects& other) = delete;
    ServiceObjects(ServiceObjects&& other) noexcept = default;
    ServiceObjects& operator=(ServiceObjects&& other) noexcept = default;

    // Null where the service is no longer registered, also because its framework has stopped.
    std::shared_ptr<S> GetService() const { return std::static_pointer_cast<S>(Reference.object()); }

private:
    friend class BundleContext;
    explicit ServiceObjects(const ServiceReference<S>& reference) : Reference(reference) {
        if (!Reference) {
            throw std::invalid_argument("The service reference is invalid");
        }
    }

    ServiceReference<S> Reference;
};

} // namespace cppmicroservices
