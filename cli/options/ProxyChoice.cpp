#include "cli/options/ProxyChoice.h"

#include "cli/failures/CliFailure.h"
#include "vantik/Failure.h"
#include "vantik/Http.h"

#include <string>
#include <variant>

namespace netrove::cli {

void checkProxy(std::string_view text) {
    if (text.empty()) {
        return;
    }
    vantik::HttpProxy proxy;
    try {
        proxy = vantik::readHttpProxy(text);
    } catch (const vantik::Failure& refusal) {
        failUsage("the proxy cannot be used: " + std::get<std::string>(refusal.message().Arguments.front()));
    }
    // A setting may have a path, which means nothing, and may leave the version of SOCKS open. Here both are mistakes.
    if (!proxy.Path.empty() && proxy.Path != "/") {
        failUsage("a proxy is written [scheme://][user@]host[:port]");
    }
    if (proxy.Host.starts_with("socks://")) {
        failUsage("the scheme of a SOCKS proxy is socks4, socks4a, socks5 or socks5h");
    }
}

} // namespace netrove::cli
