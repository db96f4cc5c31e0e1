#include "cppmicroservices/Framework.h"

#include "ServiceRegistry.h"
#include "cppmicroservices/FrameworkEvent.h"
#include "cppmicroservices/FrameworkFactory.h"

#include <condition_variable>
#include <mutex>
#include <utility>

namespace cppmicroservices {

// The state of one framework. Each run has a registry of its own, so that contexts of an earlier run stay invalid.
class BundlePrivate {
public:
    std::shared_ptr<detail::ServiceRegistry> registry() const {
        const std::lock_guard lock(Guard);
        return Registry;
    }

    void start() {
        const std::lock_guard lock(Guard);
        if (!Registry) {
            Registry = std::make_shared<detail::ServiceRegistry>();
        }
    }

    void stop() {
        const std::shared_ptr<detail::ServiceRegistry> leaving = registry();
        if (!leaving) {
            return;
        }
        leaving->close();
        {
            const std::lock_guard lock(Guard);
            if (Registry == leaving) {
                Registry.reset();
            }
        }
        Stopped.notify_all();
    }

    bool waitForStop(std::chrono::milliseconds timeout) const {
        std::unique_lock lock(Guard);
        const auto stopped = [this] { return !Registry; };
        if (timeout == std::chrono::milliseconds::zero()) {
            Stopped.wait(lock, stopped);
            return true;
        }
        return Stopped.wait_for(lock, timeout, stopped);
    }

private:
    mutable std::mutex Guard;
    mutable std::condition_variable Stopped;
    std::shared_ptr<detail::ServiceRegistry> Registry; // null unless it runs
};

BundleContext Bundle::GetBundleContext() const {
    return BundleContext(d->registry());
}

void Bundle::Start() {
    d->start();
}

void Bundle::Stop() {
    d->stop();
}

FrameworkEvent Framework::WaitForStop(const std::chrono::milliseconds& timeout) {
    return FrameworkEvent(d->waitForStop(timeout) ? FrameworkEvent::FRAMEWORK_STOPPED
                                                  : FrameworkEvent::FRAMEWORK_WAIT_TIMEDOUT);
}

Framework FrameworkFactory::NewFramework() {
    return Framework(std::make_shared<BundlePrivate>());
}

} // namespace cppmicroservices
