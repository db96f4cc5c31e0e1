// Which login scheme a server or a proxy asks for.
#pragma once

#include <netrove/fields.h>
#include <netrove/request.h>

#include <optional>
#include <vector>

namespace netrove {

// The safest of these schemes that the values of WWW-Authenticate or Proxy-Authenticate offer (RFC 9110, section 11.6);
// nothing for none.
std::optional<Scheme> offeredScheme(const std::vector<std::string>& challenges, const std::vector<Scheme>& allowed);

// The class's name of a scheme.
const char* className(Scheme scheme);

} // namespace netrove
