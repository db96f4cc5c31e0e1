// The services of one run of a framework.
#pragma once

#include "cppmicroservices/BundleContext.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace cppmicroservices::detail {

// One registration. All but the flag is fixed once it is built, so it needs no lock.
struct RegisteredService {
    RegisteredService(std::string interfaceId, std::shared_ptr<void> object)
        : InterfaceId(std::move(interfaceId)), Object(std::move(object)) {}

    const std::string InterfaceId;
    const std::shared_ptr<void> Object;
    std::atomic<bool> Registered{true};
};

class ServiceRegistry {
public:
    std::shared_ptr<RegisteredService> add(const std::string& interfaceId, std::shared_ptr<void> object);
    void remove(const std::shared_ptr<RegisteredService>& service); // raises std::logic_error where it is gone already
    // In the order of registration. Raises std::invalid_argument for a filter that is not empty.
    std::vector<std::shared_ptr<RegisteredService>> find(const std::string& interfaceId,
                                                         const std::string& filter) const;

    // Takes every service back; from then on the registry is closed, and every operation but remove raises.
    void close() noexcept;
    bool isOpen() const noexcept { return Open.load(std::memory_order_acquire); }
    void requireOpen() const;

private:
    mutable std::mutex Guard;
    std::vector<std::shared_ptr<RegisteredService>> Services; // the first one registered first
    std::atomic<bool> Open{true};
};

} // namespace cppmicroservices::detail
