#include "cli/options/ProxyChoice.h"

#include "cli/failures/CliFailure.h"
#include "vantik/Failure.h"
#include "vantik/Http.h"

#include <string>
#include <utility>
#include <variant>

namespace netrove::cli {

ProxyChoice parseProxy(std::string_view text) {
    if (text.empty()) {
        return {};
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
    return {std::move(proxy.Host), proxy.Port, std::move(proxy.Username), std::move(proxy.Password)};
}

ProxyChoice lookUpProxy(vantik::Host& host, const std::string& url) {
    const vantik::Array arguments[] = {vantik::Array(url)};
    const vantik::Array answer = host.callBuiltin("ws_base::getProxyInfoBuiltin", arguments);
    ProxyChoice choice;
    choice.Host = answer.field("Host").text();
    choice.Port = static_cast<unsigned>(answer.field("Port").number());
    choice.User = answer.field("Username").text();
    choice.Password = answer.field("Password").text();
    return choice;
}

ProxyChoice chooseProxy(vantik::Host& host, const std::string& setting, const std::string& url) {
    if (setting == "none") {
        return {};
    }
    return setting == "auto" ? lookUpProxy(host, url) : parseProxy(setting);
}

} // namespace netrove::cli
