// A service operation that was called wrongly.
#pragma once

#include "cppmicroservices/GlobalConfig.h"

#include <stdexcept>

namespace cppmicroservices {

class US_Framework_EXPORT ServiceException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    ~ServiceException() override;
};

} // namespace cppmicroservices
