// A framework: one registry of services with its life. Copies name the same framework.
#pragma once

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/FrameworkEvent.h"

#include <chrono>
#include <memory>

namespace cppmicroservices {

class FrameworkFactory;

class US_Framework_EXPORT Framework : public Bundle {
public:
    Framework(const Framework& fw);
    Framework(Framework&& fw) noexcept;
    Framework& operator=(const Framework& fw);
    Framework& operator=(Framework&& fw) noexcept;
    ~Framework() override;

    void Init(); // gives the framework a new, valid context; nothing where it has one
    // Returns once the framework is stopped or the time is over; zero: no limit.
    FrameworkEvent WaitForStop(const std::chrono::milliseconds& timeout);

private:
    friend class FrameworkFactory;
    explicit Framework(std::shared_ptr<BundlePrivate> data);
};

} // namespace cppmicroservices
