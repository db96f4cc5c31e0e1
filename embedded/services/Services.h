// The services that the embedded host offers, and which framework is in force.
#pragma once

#include "host/ProxySelector.h"
#include "host/Services.h"

#include <memory>
#include <utility>

namespace vantik::detail {

// A started framework with no services. Programs may register their own in it.
VANTIK_HOST_API std::shared_ptr<cppmicroservices::Framework> makeEmptyFramework();

// Puts a framework, or null, in the place of the process's own, for every scope.
VANTIK_HOST_API void replaceFramework(std::shared_ptr<cppmicroservices::Framework> framework);
// Restores the process's own framework.
VANTIK_HOST_API void restoreFramework();

// Replaces the framework as long as it lives.
class FrameworkReplacement {
public:
    explicit FrameworkReplacement(std::shared_ptr<cppmicroservices::Framework> framework) {
        replaceFramework(std::move(framework));
    }
    ~FrameworkReplacement() { restoreFramework(); }
    FrameworkReplacement(const FrameworkReplacement&) = delete;
    FrameworkReplacement& operator=(const FrameworkReplacement&) = delete;
};

// A selector that asks the environment, the desktop's settings and proxy scripts.
VANTIK_HOST_API std::shared_ptr<foundation::httpproxy::ProxySelector> makeProxySelector();

} // namespace vantik::detail
