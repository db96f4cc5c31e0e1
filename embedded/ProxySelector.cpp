#include "host/ProxySelector.h"

#include "embedded/ProxyText.h"
#include "embedded/Services.h"

#include <proxy.h>

#include <list>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace foundation::httpproxy {

ProxyCredentials::~ProxyCredentials() = default;

Proxy::Proxy(std::string host, std::uint16_t port, std::shared_ptr<const ProxyCredentials> credentials)
    : Host(std::move(host)), Port(port), Credentials(std::move(credentials)) {}
Proxy::Proxy(const Proxy& other) = default;
Proxy& Proxy::operator=(const Proxy& other) = default;
Proxy::~Proxy() = default;

std::string Proxy::getHost() const {
    return Host;
}

std::uint16_t Proxy::getPort() const {
    return Port;
}

bool Proxy::hasCredentials() const {
    return Credentials != nullptr;
}

const ProxyCredentials& Proxy::getCredentials() const {
    if (!Credentials) {
        throw std::logic_error("The proxy has no credentials");
    }
    return *Credentials;
}

const Proxy Proxy::NO_PROXY("", 0);

ProxyList::ProxyList() = default;
ProxyList::ProxyList(std::list<Proxy> proxies) : Proxies(std::move(proxies)) {}
ProxyList::ProxyList(ProxyList&& other) noexcept = default;
ProxyList& ProxyList::operator=(ProxyList&& other) noexcept = default;
ProxyList::~ProxyList() = default;

bool ProxyList::empty() const {
    return Proxies.empty();
}

const Proxy& ProxyList::front() const {
    if (Proxies.empty()) {
        throw std::logic_error("The list of proxies is empty");
    }
    return Proxies.front();
}

ProxySelector::~ProxySelector() = default;

} // namespace foundation::httpproxy

namespace vantik::detail {

using foundation::httpproxy::Proxy;
using foundation::httpproxy::ProxyList;

namespace {

// libproxy's reader of settings. It holds the proxy script that it has fetched, and is never freed: that would unload
// the engine that runs proxy scripts, and the engine's own threads would go on in memory that is gone.
struct SystemSettings {
    std::mutex Guard; // one for all scopes
    pxProxyFactory* Factory = nullptr;
};

SystemSettings& systemSettings() {
    static SystemSettings& instance = *new SystemSettings;
    return instance;
}

struct FreeProxies {
    void operator()(char** proxies) const noexcept { px_proxy_factory_free_proxies(proxies); }
};

class SystemProxySelector final : public foundation::httpproxy::ProxySelector {
public:
    ProxyList getProxies(const std::string& url) override {
        const std::string question = proxyQuestion(url);
        SystemSettings& settings = systemSettings();
        const std::lock_guard lock(settings.Guard);
        if (settings.Factory == nullptr) {
            settings.Factory = px_proxy_factory_new();
        }
        if (settings.Factory == nullptr) {
            throw std::runtime_error("The proxy settings of this system cannot be read");
        }
        const std::unique_ptr<char*, FreeProxies> answer(
            px_proxy_factory_get_proxies(settings.Factory, question.c_str()));
        if (!answer) {
            throw std::runtime_error("The proxy settings of this system give no answer for this URL");
        }
        std::list<Proxy> proxies;
        for (char** entry = answer.get(); *entry != nullptr; ++entry) {
            const std::string text(*entry);
            if (text.starts_with("direct://")) {
                break; // what comes behind a direct connection is for a failure of that
            }
            if (std::optional<Proxy> proxy = parseProxy(text)) {
                proxies.push_back(std::move(*proxy));
            }
        }
        return ProxyList(std::move(proxies));
    }
};

} // namespace

std::shared_ptr<foundation::httpproxy::ProxySelector> makeProxySelector() {
    return std::make_shared<SystemProxySelector>();
}

} // namespace vantik::detail
