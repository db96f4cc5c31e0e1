// Failures about a URL that cannot be used. If its parts cannot be told apart, nobody knows where a user name and a
// password begin in it, so everything before its last '@' is taken for them.
#pragma once

#include <netrove/api.h>
#include <vantik/Failure.h>

#include <string>
#include <string_view>

namespace netrove {

// The URL with everything between its scheme and its last '@' replaced by "***".
NETROVE_API std::string maskRefusedUrl(std::string_view url);

// The message with that URL masked wherever it occurs, and the user name too if it was taken for a scheme.
NETROVE_API vantik::Message withRefusedUrlMasked(vantik::Message message, std::string_view url);

} // namespace netrove
