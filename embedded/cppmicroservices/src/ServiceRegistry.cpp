#include "ServiceRegistry.h"

#include <cxxabi.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace cppmicroservices {

ServiceException::~ServiceException() = default;

namespace detail {

std::string GetDemangledName(const std::type_info& typeInfo) {
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> name(abi::__cxa_demangle(typeInfo.name(), nullptr, nullptr, &status),
                                                      std::free);
    return status == 0 && name ? name.get() : typeInfo.name();
}

bool sameKey(const std::string& left, const std::string& right) {
    return std::ranges::equal(left, right,
                              [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); });
}

const Any* findProperty(const ServiceProperties& properties, const std::string& key) {
    const auto found = std::ranges::find_if(properties, [&](const auto& entry) { return sameKey(entry.first, key); });
    return found == properties.end() ? nullptr : &found->second;
}

std::shared_ptr<RegisteredService> ServiceRegistry::add(const InterfaceMapConstPtr& objects,
                                                        const ServiceProperties& properties) {
    if (!objects || objects->empty()) {
        throw std::invalid_argument("A service must have at least one interface");
    }
    for (const auto& [interfaceId, object] : *objects) {
        if (interfaceId.empty()) {
            throw std::invalid_argument("A service interface must have a name");
        }
        if (!object) {
            throw std::invalid_argument("The service object for " + interfaceId + " is null");
        }
    }
    const Any* ranking = findProperty(properties, Constants::SERVICE_RANKING);
    const int* rank = ranking == nullptr ? nullptr : any_cast<int>(ranking);
    auto service = std::make_shared<RegisteredService>(objects, properties, 0L, rank == nullptr ? 0 : *rank);

    const std::lock_guard lock(Guard);
    requireOpen();
    service->Id = ++LastId;
    service->Properties.insert_or_assign(Constants::SERVICE_ID, Any(service->Id));
    // Behind every service of the same or a higher ranking, so that the elder one stays preferred.
    const auto place =
        std::ranges::find_if(Services, [&](const auto& other) { return other->Ranking < service->Ranking; });
    Services.insert(place, service);
    return service;
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

std::vector<ServiceReferenceU> ServiceRegistry::find(const std::string& interfaceId, const std::string& filter) const {
    const LDAPFilter condition(filter);
    const std::lock_guard lock(Guard);
    requireOpen();
    std::vector<ServiceReferenceU> result;
    for (const auto& service : Services) {
        const bool named = interfaceId.empty() || service->Objects->contains(interfaceId);
        if (named && condition.Match(service->Properties)) {
            result.emplace_back(ServiceReferenceBase(service, interfaceId));
        }
    }
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
        throw std::runtime_error("The bundle context is no longer valid");
    }
}

} // namespace detail

ServiceReferenceBase::ServiceReferenceBase() = default;
ServiceReferenceBase::ServiceReferenceBase(const ServiceReferenceBase&) = default;
ServiceReferenceBase& ServiceReferenceBase::operator=(const ServiceReferenceBase&) = default;
ServiceReferenceBase::~ServiceReferenceBase() = default;

ServiceReferenceBase::ServiceReferenceBase(std::shared_ptr<detail::RegisteredService> service, std::string interfaceId)
    : Service(std::move(service)), InterfaceId(std::move(interfaceId)) {}

ServiceReferenceBase ServiceReferenceBase::boundTo(const std::string& interfaceId) const {
    if (!Service || !Service->Objects->contains(interfaceId)) {
        return {};
    }
    return {Service, interfaceId};
}

ServiceReferenceBase& ServiceReferenceBase::operator=(std::nullptr_t) {
    Service.reset();
    InterfaceId.clear();
    return *this;
}

ServiceReferenceBase::operator bool() const {
    return Service && Service->Registered.load(std::memory_order_acquire);
}

Any ServiceReferenceBase::GetProperty(const std::string& key) const {
    const Any* value = Service ? detail::findProperty(Service->Properties, key) : nullptr;
    return value == nullptr ? Any() : *value;
}

std::vector<std::string> ServiceReferenceBase::GetPropertyKeys() const {
    std::vector<std::string> keys;
    if (Service) {
        for (const auto& entry : Service->Properties) {
            keys.push_back(entry.first);
        }
    }
    return keys;
}

std::string ServiceReferenceBase::GetInterfaceId() const {
    return InterfaceId;
}

bool ServiceReferenceBase::operator<(const ServiceReferenceBase& reference) const {
    if (!Service || !reference.Service) {
        return !Service && reference.Service;
    }
    if (Service->Ranking != reference.Service->Ranking) {
        return Service->Ranking < reference.Service->Ranking;
    }
    return Service->Id > reference.Service->Id;
}

bool ServiceReferenceBase::operator==(const ServiceReferenceBase& reference) const {
    return Service == reference.Service;
}

ServiceRegistrationBase::ServiceRegistrationBase() = default;
ServiceRegistrationBase::ServiceRegistrationBase(const ServiceRegistrationBase&) = default;
ServiceRegistrationBase::ServiceRegistrationBase(ServiceRegistrationBase&&) noexcept = default;
ServiceRegistrationBase& ServiceRegistrationBase::operator=(const ServiceRegistrationBase&) = default;
ServiceRegistrationBase& ServiceRegistrationBase::operator=(ServiceRegistrationBase&&) noexcept = default;
ServiceRegistrationBase::~ServiceRegistrationBase() = default;

ServiceRegistrationBase::ServiceRegistrationBase(std::shared_ptr<detail::ServiceRegistry> registry,
                                                 std::shared_ptr<detail::RegisteredService> service)
    : Registry(std::move(registry)), Service(std::move(service)) {}

ServiceRegistrationBase& ServiceRegistrationBase::operator=(std::nullptr_t) {
    Registry.reset();
    Service.reset();
    return *this;
}

ServiceRegistrationBase::operator bool() const {
    return Service != nullptr;
}

ServiceReferenceBase ServiceRegistrationBase::GetReference(const std::string& interfaceId) const {
    const ServiceReferenceBase reference(Service, interfaceId);
    if (!reference) {
        throw std::logic_error("The service is no longer registered");
    }
    return interfaceId.empty() ? reference : reference.boundTo(interfaceId);
}

void ServiceRegistrationBase::Unregister() {
    if (!Registry) {
        throw std::logic_error("The registration names no service");
    }
    Registry->remove(Service);
}

BundleContext::BundleContext() = default;

BundleContext::BundleContext(std::shared_ptr<detail::ServiceRegistry> registry) : Registry(std::move(registry)) {}

bool BundleContext::operator==(const BundleContext& rhs) const {
    return *this ? Registry == rhs.Registry : !rhs;
}

BundleContext::operator bool() const {
    return Registry && Registry->isOpen();
}

BundleContext& BundleContext::operator=(std::nullptr_t) {
    Registry.reset();
    return *this;
}

detail::ServiceRegistry& BundleContext::registry() const {
    if (!Registry) {
        throw std::runtime_error("The bundle context is no longer valid");
    }
    Registry->requireOpen();
    return *Registry;
}

ServiceRegistrationU BundleContext::RegisterService(const InterfaceMapConstPtr& service,
                                                    const ServiceProperties& properties) {
    return ServiceRegistrationBase(Registry, registry().add(service, properties));
}

std::vector<ServiceReferenceU> BundleContext::GetServiceReferences(const std::string& clazz,
                                                                   const std::string& filter) {
    return registry().find(clazz, filter);
}

ServiceReferenceU BundleContext::GetServiceReference(const std::string& clazz) {
    const std::vector<ServiceReferenceU> found = GetServiceReferences(clazz);
    return found.empty() ? ServiceReferenceU() : found.front();
}

std::shared_ptr<void> BundleContext::GetService(const ServiceReferenceBase& reference) {
    registry();
    if (!reference) {
        return nullptr;
    }
    const InterfaceMap& objects = *reference.Service->Objects;
    const auto found = reference.InterfaceId.empty() ? objects.begin() : objects.find(reference.InterfaceId);
    return found == objects.end() ? nullptr : found->second;
}

} // namespace cppmicroservices
