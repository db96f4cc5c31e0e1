// Names of service interfaces.
#pragma once

#include "cppmicroservices/GlobalConfig.h"
#include "cppmicroservices/ServiceException.h"

#include <string>
#include <typeinfo>

namespace cppmicroservices::detail {

US_Framework_EXPORT std::string GetDemangledName(const std::type_info& typeInfo);

} // namespace cppmicroservices::detail

// The name under which services of the interface T are registered and found.
template <class T>
const std::string& us_service_interface_iid() {
    static const std::string name = cppmicroservices::detail::GetDemangledName(typeid(T));
    return name;
}

// Names an interface. Used outside every namespace, after the interface.
#define CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE(_service_interface_type, _service_interface_id)                     \
    template <>                                                                                                        \
    inline const std::string& us_service_interface_iid<_service_interface_type>() {                                    \
        static const std::string name(_service_interface_id);                                                          \
        return name;                                                                                                   \
    }
