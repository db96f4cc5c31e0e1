// The rules for following a redirect, without any transfer (RFC 9110, section 15.4).
#pragma once

#include <netrove/transport.h>

#include <set>
#include <string>
#include <utility>

namespace netrove {

bool isRedirect(int status); // 301, 302, 303, 307, 308

// True if the request that follows is a GET without content.
bool becomesGet(const Request& request, int status);

// One chain of redirects.
class RedirectChain {
public:
    explicit RedirectChain(const Request& first);

    // The request that follows `current`. 303, and 301 and 302 after a POST, turn into GET without content. On another
    // origin what is meant for the first one is dropped for good. Raises RedirectRefused for a target that must not be
    // followed or that has been asked for before, and TooManyRedirects.
    Request next(const Request& current, const Head& redirect);

    int followed() const { return Followed; }

private:
    int Followed = 0;
    std::set<std::pair<std::string, std::string>> Seen; // method and URL, since the last new cookie
};

} // namespace netrove
