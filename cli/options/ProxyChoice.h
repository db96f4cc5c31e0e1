// The value of --proxy.
#pragma once

#include <string_view>

namespace netrove::cli {

// "[scheme://][user[:password]@]host[:port]"; an empty text is none. Raises a usage failure for anything else.
void checkProxy(std::string_view text);

} // namespace netrove::cli
