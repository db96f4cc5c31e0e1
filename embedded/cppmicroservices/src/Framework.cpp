#include "cppmicroservices/Framework.h"

#include "ServiceRegistry.h"
#include "cppmicroservices/FrameworkFactory.h"

#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace cppmicroservices {

// The state of one framework. Each run has a registry of its own, so that contexts of an earlier run stay invalid.
class BundlePrivate {
public:
    Bundle::State state() const {
        const std::lock_guard lock(Guard);
        return Current;
    }

    std::shared_ptr<detail::ServiceRegistry> registry() const {
        const std::lock_guard lock(Guard);
        return Registry;
    }

    void initialize() {
        const std::lock_guard lock(Guard);
        initializeLocked();
    }

    void start() {
        const std::lock_guard lock(Guard);
        initializeLocked();
        Current = Bundle::STATE_ACTIVE;
    }

    void stop() {
        std::shared_ptr<detail::ServiceRegistry> leaving;
        {
            const std::lock_guard lock(Guard);
            leaving = std::exchange(Registry, nullptr);
        }
        if (leaving) {
            leaving->close();
        }
        {
            const std::lock_guard lock(Guard);
            if (!Registry) {
                Current = Bundle::STATE_RESOLVED;
            }
        }
        Stopped.notify_all();
    }

    bool waitForStop(std::chrono::milliseconds timeout) const {
        std::unique_lock lock(Guard);
        const auto stopped = [this] { return Current == Bundle::STATE_INSTALLED || Current == Bundle::STATE_RESOLVED; };
        if (timeout == std::chrono::milliseconds::zero()) {
            Stopped.wait(lock, stopped);
            return true;
        }
        return Stopped.wait_for(lock, timeout, stopped);
    }

private:
    void initializeLocked() {
        if (!Registry) {
            Registry = std::make_shared<detail::ServiceRegistry>();
            Current = Bundle::STATE_STARTING;
        }
    }

    mutable std::mutex Guard;
    mutable std::condition_variable Stopped;
    Bundle::State Current = Bundle::STATE_INSTALLED;
    std::shared_ptr<detail::ServiceRegistry> Registry; // null unless starting or active
};

namespace {

BundlePrivate& valid(const std::shared_ptr<BundlePrivate>& data) {
    if (!data) {
        throw std::invalid_argument("The bundle is invalid");
    }
    return *data;
}

} // namespace

Bundle::Bundle() = default;
Bundle::Bundle(std::shared_ptr<BundlePrivate> data) : d(std::move(data)) {}
Bundle::Bundle(const Bundle&) = default;
Bundle::Bundle(Bundle&&) noexcept = default;
Bundle& Bundle::operator=(const Bundle&) = default;
Bundle& Bundle::operator=(Bundle&&) noexcept = default;
Bundle::~Bundle() = default;

Bundle::operator bool() const {
    return d != nullptr;
}

Bundle::State Bundle::GetState() const {
    return valid(d).state();
}

BundleContext Bundle::GetBundleContext() const {
    return BundleContext(valid(d).registry());
}

void Bundle::Start() {
    valid(d).start();
}

void Bundle::Stop() {
    valid(d).stop();
}

Framework::Framework(std::shared_ptr<BundlePrivate> data) : Bundle(std::move(data)) {}
Framework::Framework(const Framework&) = default;
Framework::Framework(Framework&&) noexcept = default;
Framework& Framework::operator=(const Framework&) = default;
Framework& Framework::operator=(Framework&&) noexcept = default;
Framework::~Framework() = default;

void Framework::Init() {
    valid(d).initialize();
}

FrameworkEvent Framework::WaitForStop(const std::chrono::milliseconds& timeout) {
    return FrameworkEvent(valid(d).waitForStop(timeout) ? FrameworkEvent::FRAMEWORK_STOPPED
                                                        : FrameworkEvent::FRAMEWORK_WAIT_TIMEDOUT);
}

Framework FrameworkFactory::NewFramework() {
    return Framework(std::make_shared<BundlePrivate>());
}

} // namespace cppmicroservices
