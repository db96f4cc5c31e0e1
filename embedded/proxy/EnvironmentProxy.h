// Which proxy the variables of the environment name for a URL. They are read each time, since programs may change them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vantik::detail {

struct EnvironmentProxy {
    enum class Kind {
        Nothing, // other settings count
        Direct,
        Proxy, // named by `Setting`
        Script // a proxy script, named by `Setting`, which libproxy reads from the same variable
    };
    Kind What = Kind::Nothing;
    std::string Variable = {}; // that decides
    std::string Setting = {};
};

// `question` is a URL as proxyQuestion makes it.
EnvironmentProxy environmentProxy(std::string_view question);

// True if a variable is set that may name a proxy for some URL.
bool environmentHasProxies();

// True if an exception of the list `exceptions`, in the form of no_proxy, is for that host. `host` is in ASCII, without
// brackets; empty for a question about a scheme alone.
bool isException(std::string_view exceptions, std::string_view host, std::uint16_t port);

} // namespace vantik::detail
