// The services of one running framework.
#pragma once

#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/LDAPFilter.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace cppmicroservices::detail {

// One registration. All but the flag is fixed once it is built, so it needs no lock.
struct RegisteredService {
    RegisteredService(InterfaceMapConstPtr objects, ServiceProperties properties, long id, int ranking)
        : Objects(std::move(objects)), Properties(std::move(properties)), Id(id), Ranking(ranking) {}

    InterfaceMapConstPtr Objects;
    ServiceProperties Properties;
    long Id;
    int Ranking;
    std::atomic<bool> Registered{true};
};

// Text compared without regard to case, as keys of properties are.
bool sameKey(const std::string& left, const std::string& right);
// The property of that key, or null.
const Any* findProperty(const ServiceProperties& properties, const std::string& key);

class ServiceRegistry {
public:
    std::shared_ptr<RegisteredService> add(const InterfaceMapConstPtr& objects, const ServiceProperties& properties);
    void remove(const std::shared_ptr<RegisteredService>& service); // raises std::logic_error where it is gone already
    std::vector<ServiceReferenceU> find(const std::string& interfaceId, const std::string& filter) const;

    // Takes every service back; from then on the registry is closed and every operation raises.
    void close() noexcept;
    bool isOpen() const noexcept { return Open.load(std::memory_order_acquire); }
    void requireOpen() const; // raises std::runtime_error

private:
    mutable std::mutex Guard;
    std::vector<std::shared_ptr<RegisteredService>> Services; // the preferred first
    long LastId = 0;
    std::atomic<bool> Open{true};
};

} // namespace cppmicroservices::detail
