// Makes frameworks.
#pragma once

#include "cppmicroservices/GlobalConfig.h"

namespace cppmicroservices {

class Framework;

class US_Framework_EXPORT FrameworkFactory {
public:
    Framework NewFramework(); // not started yet
};

} // namespace cppmicroservices
