// A bundle: what owns a context and runs. Here there is one kind, the framework itself.
#pragma once

#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/GlobalConfig.h"

#include <cstdint>
#include <memory>

namespace cppmicroservices {

class BundlePrivate;

class US_Framework_EXPORT Bundle {
public:
    enum State : std::uint32_t {
        STATE_UNINSTALLED = 0x00000001,
        STATE_INSTALLED = 0x00000002,
        STATE_RESOLVED = 0x00000004,
        STATE_STARTING = 0x00000008,
        STATE_STOPPING = 0x00000010,
        STATE_ACTIVE = 0x00000020
    };

    Bundle(); // invalid; its other operations raise std::invalid_argument
    Bundle(const Bundle&);
    Bundle(Bundle&&) noexcept;
    Bundle& operator=(const Bundle&);
    Bundle& operator=(Bundle&&) noexcept;
    virtual ~Bundle();

    explicit operator bool() const;
    State GetState() const;
    BundleContext GetBundleContext() const; // invalid unless the bundle is starting or active
    void Start();
    void Stop();

protected:
    explicit Bundle(std::shared_ptr<BundlePrivate> data);
    std::shared_ptr<BundlePrivate> d;
};

} // namespace cppmicroservices
