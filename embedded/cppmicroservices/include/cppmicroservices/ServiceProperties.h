// Properties of a registered service. Text, bool, int, long and double values take part in filters.
#pragma once

#include <any>
#include <string>
#include <unordered_map>

namespace cppmicroservices {

using Any = std::any;
using std::any_cast;

using ServiceProperties = std::unordered_map<std::string, Any>;

namespace Constants {

// An int; the service with the highest one is found first. 0 where it is missing.
inline const std::string SERVICE_RANKING = "service.ranking";
// A long, given by the framework in order of registration.
inline const std::string SERVICE_ID = "service.id";

} // namespace Constants

} // namespace cppmicroservices
