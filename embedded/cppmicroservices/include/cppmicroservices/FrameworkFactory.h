// Makes frameworks.
#pragma once

#include "cppmicroservices/Framework.h"
#include "cppmicroservices/GlobalConfig.h"

namespace cppmicroservices {

class US_Framework_EXPORT FrameworkFactory {
public:
    Framework NewFramework(); // not started yet
};

} // namespace cppmicroservices
