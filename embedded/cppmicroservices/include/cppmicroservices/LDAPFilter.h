// A filter over service properties, after RFC 1960.
#pragma once

#include "cppmicroservices/GlobalConfig.h"
#include "cppmicroservices/ServiceProperties.h"

#include <memory>
#include <ostream>
#include <string>

namespace cppmicroservices {

class LDAPFilterData;
class ServiceReferenceBase;

// Comparisons "(key=value)" and "(key=*)", joined by "&", "|" and "!". Other comparisons and patterns within a value
// are refused. Keys are compared without regard to case, values exactly.
class US_Framework_EXPORT LDAPFilter {
public:
    LDAPFilter();                          // no constraint; matches everything, its text is empty
    LDAPFilter(const std::string& filter); // raises std::invalid_argument, naming the place
    LDAPFilter(const LDAPFilter& other);
    LDAPFilter& operator=(const LDAPFilter& filter);
    ~LDAPFilter();

    explicit operator bool() const; // false for a filter without constraint
    bool Match(const ServiceReferenceBase& reference) const;
    bool Match(const ServiceProperties& dictionary) const;
    std::string ToString() const; // without the blanks that mean nothing
    bool operator==(const LDAPFilter& other) const;

private:
    std::shared_ptr<const LDAPFilterData> d;
};

US_Framework_EXPORT std::ostream& operator<<(std::ostream& os, const LDAPFilter& filter);

} // namespace cppmicroservices
