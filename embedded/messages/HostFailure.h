// Failures that the embedded host itself raises, by identifier. Their texts are in the message catalogue.
#pragma once

#include "host/Messages.h"

#include <exception>
#include <string>
#include <vector>

namespace vantik::detail {

// A message identifier that is known at run time only.
class HostMessage : public resource_core::BaseMsgID {
public:
    using BaseMsgID::BaseMsgID;
};

using HostException = foundation::core::except::Exception<HostMessage, std::exception, void>;

// Raises a user exception of the host, for example
// raiseHostFailure("VANTIK:vcos", "UnknownProperty", {className, propertyName}).
[[noreturn]] void raiseHostFailure(std::string catalogue, std::string key,
                                   std::vector<resource_core::MsgArgument> arguments);

} // namespace vantik::detail
