#include "ServiceRegistry.h"

#include <algorithm>
#include <cstdlib>
#include <cxxabi.h>
#include <iterator>
#include <stdexcept>

namespace cppmicroservices {

ServiceException::~ServiceException() = default;

namespace detail {

std::string GetDemangledName(const std::type_info& typeInfo) {
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> name(abi::__cxa_demangle(typeInfo.name(), nullptr, nullptr, &status),
                                                      std::free);
    return status == 0 && name ? name.get() : typeInfo.name();
}

std::shared_ptr<RegisteredService> ServiceRegistry::add(const std::string& interfaceId, std::shared_ptr<void> object) {
    if (interfaceId.empty() || !object) {
        throw std::invalid_argument("A service must have an object and an interface with a name");
    }
    const std::lock_guard lock(Guard);
    requireOpen();
    Services.push_back(std::make_shared<RegisteredService>(interfaceId, std::move(object)));
    return Services.back();
}

void ServiceRegistry::remove(const std::shared_ptr<RegisteredService>& service) {
    const std::lock_guard lock(Guard);
    const auto found = std::ranges::find(Services, service);
    if (found == Services.end()) {
        throw std::logic_error("The service is no longer registered");
    }
    service->Registered.store(false, std::memory_order_release);
    Services.erase(found);
}

std::vector<std::shared_ptr<RegisteredService>> ServiceRegistry::find(const std::string& interfaceId,
                                                                      const std::string& filter) const {
    if (!filter.empty()) {
        throw std::invalid_argument("Filter \"" + filter +
                                    "\": this build looks services up by their interface alone, without a filter");
    }
    std::vector<std::shared_ptr<RegisteredService>> result;
    const std::lock_guard lock(Guard);
    requireOpen();
    std::ranges::copy_if(Services, std::back_inserter(result),
                         [&](const auto& service) { return service->InterfaceId == interfaceId; });
    return result;
}

void ServiceRegistry::close() noexcept {
    std::vector<std::shared_ptr<RegisteredService>> leaving;
    {
        const std::lock_guard lock(Guard);
        Open.store(false, std::memory_order_release);
        for (const auto& service : Services) {
            service->Registered.store(false, std::memory_order_release);
        }
        leaving.swap(Services);
    }
    // Services are released without the lock: a destructor may look into the registry.
}

void ServiceRegistry::requireOpen() const {
    if (!isOpen()) {
        throwInvalidContext();
    }
}

void throwInvalidContext() {
    throw std::runtime_error("The bundle context is no longer valid");
}

} // namespace detail

ServiceReferenceBase::operator bool() const {
    return Service && Service->Registered.load(std::memory_order_acquire);
}

std::shared_ptr<void> ServiceReferenceBase::object() const {
    return *this ? Service->Object : nullptr;
}

ServiceRegistrationBase& ServiceRegistrationBase::operator=(std::nullptr_t) {
    Registry.reset();
    Service.reset();
    return *this;
}

void ServiceRegistrationBase::Unregister() {
    if (!Registry) {
        throw std::logic_error("The registration names no service");
    }
    Registry->remove(Service);
}

BundleContext::operator bool() const {
    return Registry && Registry->isOpen();
}

detail::ServiceRegistry& BundleContext::registry() const {
    if (!Registry) {
        detail::throwInvalidContext();
    }
    return *Registry;
}

ServiceRegistrationBase BundleContext::add(const std::string& interfaceId, std::shared_ptr<void> object) {
    return {Registry, registry().add(interfaceId, std::move(object))};
}

std::vector<std::shared_ptr<detail::RegisteredService>> BundleContext::find(const std::string& interfaceId,
                                                                            const std::string& filter) const {
    return registry().find(interfaceId, filter);
}

std::shared_ptr<void> BundleContext::object(const ServiceReferenceBase& reference) const {
    std::shared_ptr<void> result = reference.object();
    if (!result) {
        throw std::invalid_argument("The service reference is invalid");
    }
    registry().requireOpen();
    return result;
}

} // namespace cppmicroservices
