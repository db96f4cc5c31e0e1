#include "cli/ProxyChoice.h"

#include <algorithm>
#include <charconv>
#include <iterator>

#include "cli/CliFailure.h"
#include "cli/FieldText.h"
#include "cli/UrlText.h"

namespace netrove::cli {

namespace {

constexpr std::string_view kSchemes[] = {"http", "https", "socks4", "socks4a", "socks5", "socks5h"};
constexpr unsigned kHttpPort = 80;
constexpr unsigned kSocksPort = 1080;

unsigned parsePort(const std::string& text, std::string_view scheme) {
    if (text.empty()) // a scheme whose own port splitUrl does not know
        return scheme.starts_with("socks") ? kSocksPort : kHttpPort;
    unsigned port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc() || end != text.data() + text.size() || port == 0 || port > 65535)
        failUsage("the port of the proxy is not a number from 1 to 65535");
    return port;
}

} // namespace

ProxyChoice parseProxy(std::string_view text) {
    ProxyChoice choice;
    if (text.empty())
        return choice;
    if (hasControlBytes(text))
        failUsage("the proxy has control characters");
    std::string url(text);
    if (url.find("://") == url.npos)
        url = "http://" + url;
    const UserInfo user = takeUserInfo(url);
    const UrlParts parts = splitUrl(url);
    if (parts.Host.empty() || (!parts.Path.empty() && parts.Path != "/"))
        failUsage("a proxy is written [scheme://][user@]host[:port]");
    if (std::find(std::begin(kSchemes), std::end(kSchemes), parts.Scheme) == std::end(kSchemes))
        failUsage("the scheme of a proxy is http, https, socks4, socks4a, socks5 or socks5h");
    choice.Host = parts.Scheme == "http" ? parts.Host : parts.Scheme + "://" + parts.Host;
    choice.Port = parsePort(parts.Port, parts.Scheme);
    choice.User = user.User;
    choice.Password = user.Password.value_or("");
    return choice;
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
    if (setting == "none")
        return {};
    return setting == "auto" ? lookUpProxy(host, url) : parseProxy(setting);
}

} // namespace netrove::cli
