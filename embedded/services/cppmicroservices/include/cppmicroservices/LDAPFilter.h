// A filter over the properties of services, after RFC 1960.
#pragma once

#include "cppmicroservices/GlobalConfig.h"

#include <memory>
#include <string>

namespace cppmicroservices {

class LDAPFilterData;

// Comparisons with "=" (where "*" stands for any text), ">=", "<=" and "~=", joined by "&", "|" and "!". Keys are
// compared without regard to case.
class US_Framework_EXPORT LDAPFilter {
public:
    LDAPFilter() = default;                // no constraint; its text is empty
    LDAPFilter(const std::string& filter); // raises std::invalid_argument, naming the place

    std::string ToString() const; // without the blanks that mean nothing

private:
    std::shared_ptr<const LDAPFilterData> d;
};

} // namespace cppmicroservices
