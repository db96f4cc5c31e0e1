// The rules for following a redirect, without any transfer.
#pragma once

#include "cli/options/Settings.h"

#include <string>
#include <string_view>
#include <vector>

namespace netrove::cli {

// One request of a chain.
struct Request {
    std::string Url;
    std::string Method;
    std::vector<Field> Fields;
    std::vector<std::string> RemovedFields;
    bool Body = false;
    bool Credentials = true; // user name and password may be sent

    bool operator==(const Request&) const = default;
};

bool isRedirect(int status); // 301, 302, 303, 307, 308

// The request that follows `current` after a redirect. 303, and 301 and 302 after a POST, turn into GET without a body.
// Credentials and the fields Authorization, Proxy-Authorization, Cookie and Host are dropped for good once scheme, host
// or port changes. Raises RedirectRefused for a target that is neither http nor https.
Request followRedirect(const Request& current, int status, std::string_view target);

} // namespace netrove::cli
