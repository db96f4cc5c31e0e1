// A filter over the properties of services.
#pragma once

#include "cppmicroservices/GlobalConfig.h"

#include <string>

namespace cppmicroservices {

// The package reads filters by RFC 1960. Callers here look services up by their interface alone, so this subset has the
// filter without a constraint only; a lookup refuses every other text.
class US_Framework_EXPORT LDAPFilter {
public:
    std::string ToString() const { return {}; }
};

} // namespace cppmicroservices
