// The host's proxy library (libvkflhttpproxy). The selector is a service: the host registers one implementation, and
// the library looks it up for every question.
#pragma once

#include "host/HostApi.h"

#include <cppmicroservices/ServiceInterface.h>

#include <cstdint>
#include <list>
#include <memory>
#include <string>

namespace foundation::httpproxy {

class VANTIK_HOST_API ProxyCredentials {
public:
    virtual std::string getUsername() const = 0;
    virtual std::string getPassword() const = 0;
    virtual ~ProxyCredentials();
};

// One proxy. Its host is handed to libcurl as it is, so it may begin with a scheme, as in "socks5://host"; without one
// the proxy speaks HTTP. `NO_PROXY` has an empty host and no credentials.
class VANTIK_HOST_API Proxy {
public:
    Proxy(std::string host, std::uint16_t port, std::shared_ptr<const ProxyCredentials> credentials = nullptr);
    Proxy(const Proxy& other);
    Proxy& operator=(const Proxy& other);
    ~Proxy();

    std::string getHost() const;
    std::uint16_t getPort() const;
    bool hasCredentials() const;
    // Only where `hasCredentials` is true.
    const ProxyCredentials& getCredentials() const;

    static const Proxy NO_PROXY;

private:
    std::string Host;
    std::uint16_t Port;
    std::shared_ptr<const ProxyCredentials> Credentials;
};

// The proxies for one URL, in order of preference. Empty: connect directly.
class VANTIK_HOST_API ProxyList {
public:
    ProxyList();
    explicit ProxyList(std::list<Proxy> proxies);
    ProxyList(ProxyList&& other) noexcept;
    ProxyList& operator=(ProxyList&& other) noexcept;
    ~ProxyList();

    bool empty() const;
    // Only where the list is not empty.
    const Proxy& front() const;

private:
    std::list<Proxy> Proxies;
};

class VANTIK_HOST_API ProxySelector {
public:
    // The proxies that apply to `url`; raises where the settings cannot be read for it.
    virtual ProxyList getProxies(const std::string& url) = 0;
    virtual ~ProxySelector();
};

} // namespace foundation::httpproxy

CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE(foundation::httpproxy::ProxySelector, "foundation::httpproxy::ProxySelector")
