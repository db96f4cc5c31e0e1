// Which proxy a request goes through: the one named by --proxy, the one that the host's settings name, or none.
#pragma once

#include "vantik/Host.h"

#include <string>
#include <string_view>

namespace netrove::cli {

struct ProxyChoice {
    std::string Host; // empty: a direct connection. May begin with a scheme, as in "socks5://host".
    unsigned Port = 80;
    std::string User;
    std::string Password;
};

// "[scheme://][user[:password]@]host[:port]"; an empty text is none. Raises a usage failure.
ProxyChoice parseProxy(std::string_view text);

// What the module's lookup says about a URL in ASCII.
ProxyChoice lookUpProxy(vantik::Host& host, const std::string& url);

// By the value of --proxy: "auto", "none" or a proxy.
ProxyChoice chooseProxy(vantik::Host& host, const std::string& setting, const std::string& url);

} // namespace netrove::cli
