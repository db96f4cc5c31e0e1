#include "host/ProxySelector.h"

#include "embedded/proxy/EnvironmentProxy.h"
#include "embedded/proxy/LibproxyPlugIns.h"
#include "embedded/proxy/ProxyAnswers.h"
#include "embedded/proxy/ProxyText.h"
#include "embedded/proxy/SerialCalls.h"
#include "embedded/scope/Scope.h"
#include "embedded/services/Services.h"
#include "host/Interrupt.h"
#include "late/LateLibrary.h"
#include "late/LibproxyCalls.h"

#include <list>
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
using foundation::httpproxy::ProxyCredentials;
using foundation::httpproxy::ProxyList;

namespace {

class StoredCredentials final : public ProxyCredentials {
public:
    StoredCredentials(std::string username, std::string password)
        : Username(std::move(username)), Password(std::move(password)) {}
    std::string getUsername() const override { return Username; }
    std::string getPassword() const override { return Password; }

private:
    std::string Username;
    std::string Password;
};

// libproxy's reader of settings. It holds the proxy script that it has fetched, and is never freed: that would unload
// the engine that runs proxy scripts, and the engine's own threads would go on running in memory that is gone. It
// answers one question at a time, whatever the thread. A server of proxy scripts that does not answer holds it up
// without a limit.
struct SystemSettings {
    ProxyAnswers Answers;   // for all scopes
    void* Reader = nullptr; // libproxy's; only within a call
};

SystemSettings& systemSettings() {
    static SystemSettings& instance = *new SystemSettings;
    return instance;
}

SerialCalls::Answer askSettings(SystemSettings& settings, const std::string& question) {
    const auto& libproxy = netrove::lateCalls<netrove::LibproxyCalls>();
    if (settings.Reader == nullptr) {
        settings.Reader = libproxy.newReader();
    }
    if (settings.Reader == nullptr) {
        throw std::runtime_error("The proxy settings of this system cannot be read");
    }
    auto answer = libproxy.proxies(settings.Reader, question);
    if (!answer) {
        throw std::runtime_error("The proxy settings of this system have no answer for this URL");
    }
    return *std::move(answer);
}

// The caller takes every failure for a failure of the URL, and asks again with the scheme alone. So a request to stop
// stays for that second question, which takes it.
void stopWhereWanted(bool askedAgain) {
    Scope* const scope = Scope::currentOrNull();
    if (scope == nullptr || !scope->wantsToStop()) {
        return;
    }
    if (!askedAgain) {
        throw Zentorak::System::InterruptException(false);
    }
    utInterruptState::ThrowIfInterruptPending();
}

// Without an identifier of its own: whoever asks takes any failure, and a program sees VANTIK:host:Failure with this
// text.
[[noreturn]] void refuseSetting(const std::string& reason) {
    throw std::runtime_error("A proxy setting of this system cannot be used: " + reason);
}

Proxy proxyOf(const std::string& setting) {
    try {
        ProxyText text = readProxy(setting);
        std::shared_ptr<const ProxyCredentials> credentials;
        if (text.HasCredentials) {
            credentials = std::make_shared<StoredCredentials>(std::move(text.Username), std::move(text.Password));
        }
        return Proxy(std::move(text.Host), text.Port, std::move(credentials));
    } catch (const std::invalid_argument& refusal) {
        refuseSetting(refusal.what());
    }
}

class SystemProxySelector final : public foundation::httpproxy::ProxySelector {
public:
    ProxyList getProxies(const std::string& url) override {
        const std::string question = proxyQuestion(url);
        const auto checkStop = [schemeAlone = question.ends_with("://")] { stopWhereWanted(schemeAlone); };
        checkStop();
        const EnvironmentProxy environment = environmentProxy(question);
        if (environment.What == EnvironmentProxy::Kind::Proxy) {
            return ProxyList({proxyOf(environment.Setting)});
        }
        const bool script = environment.What == EnvironmentProxy::Kind::Script;
        if (environment.What == EnvironmentProxy::Kind::Direct || (!script && !libproxyReadsMoreThanEnvironment())) {
            return {};
        }
        SystemSettings& settings = systemSettings();
        const SerialCalls::Answer answer = settings.Answers.get(
            question + ' ' + environment.Setting, [&settings, question] { return askSettings(settings, question); },
            checkStop);
        std::list<Proxy> proxies;
        for (const std::string& text : answer) {
            if (text.starts_with("direct://")) {
                break; // what follows a direct connection is for when that fails
            }
            proxies.push_back(proxyOf(text));
        }
        return ProxyList(std::move(proxies));
    }
};

} // namespace

std::shared_ptr<foundation::httpproxy::ProxySelector> makeProxySelector() {
    return std::make_shared<SystemProxySelector>();
}

} // namespace vantik::detail
