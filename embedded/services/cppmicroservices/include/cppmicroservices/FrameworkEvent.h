// Why waiting for a framework has ended.
#pragma once

#include "cppmicroservices/GlobalConfig.h"

#include <cstdint>

namespace cppmicroservices {

class US_Framework_EXPORT FrameworkEvent {
public:
    enum Type : std::uint32_t { FRAMEWORK_STOPPED = 0x00000040, FRAMEWORK_WAIT_TIMEDOUT = 0x00000200 };

    explicit FrameworkEvent(Type type) : Kind(type) {}
    Type GetType() const { return Kind; }

private:
    Type Kind;
};

} // namespace cppmicroservices
