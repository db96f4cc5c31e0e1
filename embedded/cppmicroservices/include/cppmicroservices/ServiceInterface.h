// Names of service interfaces, and the map from names to the object that implements them.
#pragma once

#include "cppmicroservices/GlobalConfig.h"
#include "cppmicroservices/ServiceException.h"

#include <map>
#include <memory>
#include <string>
#include <typeinfo>

namespace cppmicroservices {

using InterfaceMap = std::map<std::string, std::shared_ptr<void>>;
using InterfaceMapPtr = std::shared_ptr<InterfaceMap>;
using InterfaceMapConstPtr = std::shared_ptr<const InterfaceMap>;

namespace detail {
US_Framework_EXPORT std::string GetDemangledName(const std::type_info& typeInfo);
}

} // namespace cppmicroservices

// The name under which services of the interface T are registered and found.
template <class T>
std::string us_service_interface_iid() {
    return cppmicroservices::detail::GetDemangledName(typeid(T));
}

template <>
inline std::string us_service_interface_iid<void>() {
    return {};
}

// Gives an interface a name of its own. Stands outside every namespace, after the interface.
#define CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE(_service_interface_type, _service_interface_id)                     \
    template <>                                                                                                        \
    inline std::string us_service_interface_iid<_service_interface_type>() {                                           \
        return _service_interface_id;                                                                                  \
    }

namespace cppmicroservices {

// Lists an object under the interfaces that it implements.
template <class... Interfaces>
class MakeInterfaceMap {
public:
    template <class Impl>
    explicit MakeInterfaceMap(const std::shared_ptr<Impl>& impl) : Map(std::make_shared<InterfaceMap>()) {
        // Each entry holds a pointer to the interface, not to the implementation: it is cast back from void.
        (Map->emplace(us_service_interface_iid<Interfaces>(), std::shared_ptr<Interfaces>(impl)), ...);
    }

    operator InterfaceMapPtr() const { return Map; }
    operator InterfaceMapConstPtr() const { return Map; }

private:
    InterfaceMapPtr Map;
};

} // namespace cppmicroservices
