// A bundle: what owns a context and runs. Here there is one kind, the framework itself.
#pragma once

#include "cppmicroservices/GlobalConfig.h"

#include <memory>
#include <utility>

namespace cppmicroservices {

class BundleContext;
class BundlePrivate;

class US_Framework_EXPORT Bundle {
public:
    BundleContext GetBundleContext() const; // invalid unless the bundle runs
    void Start();
    void Stop();

protected:
    explicit Bundle(std::shared_ptr<BundlePrivate> data) : d(std::move(data)) {}
    std::shared_ptr<BundlePrivate> d;
};

} // namespace cppmicroservices
