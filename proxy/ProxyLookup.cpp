#include "proxy/ProxyLookup.h"

#include "errors/InternalError.h"
#include "host/Messages.h"
#include "hostcalls/HostArray.h"
#include "hostcalls/ServiceLookup.h"
#include "hostcalls/TextEncoding.h"

#include <string>

using namespace netrove;
namespace vx = matrix::detail::noninlined::vx_array_api;

using foundation::httpproxy::Proxy;
using foundation::httpproxy::ProxyList;
using foundation::httpproxy::ProxySelector;

namespace {

// Without a path: settings that fail on a whole URL may still answer for its scheme. Only the exact bytes "https"
// count, whatever follows them.
std::string schemeAlone(const std::string& url) {
    return url.starts_with("https") ? "https://" : "http://";
}

ProxyList askSelector(ProxySelector& selector, const std::string& url) {
    try {
        return selector.getProxies(url);
    } catch (...) {
        // Asked again outside this handler.
    }
    return selector.getProxies(schemeAlone(url));
}

HostArray makeProxyStruct(const std::string& host, double port, const std::string& username,
                          const std::string& password) {
    static constexpr const char* fieldNames[] = {"Host", "Port", "Username", "Password"};
    HostArray info(vx::vxCreateStructMatrix(1, 1, 4, fieldNames));
    vx::vxSetField(info.get(), 0, "Host", vx::vxCreateString(host.c_str()));
    vx::vxSetField(info.get(), 0, "Port", vx::vxCreateDoubleScalar(port));
    vx::vxSetField(info.get(), 0, "Username", vx::vxCreateString(username.c_str()));
    vx::vxSetField(info.get(), 0, "Password", vx::vxCreateString(password.c_str()));
    return info;
}

} // namespace

std::shared_ptr<ProxySelector> netrove::findProxySelector(const cppmicroservices::LDAPFilter& filter) {
    return findService<ProxySelector>(filter);
}

void ws_base::getProxyInfoBuiltin(int lhsCount, vxArray_tag** lhs, int rhsCount, vxArray_tag** rhs) {
    if (lhsCount > 1) {
        matrix::detail::error_maxlhs();
    }
    if (rhsCount > 1) {
        matrix::detail::error_maxrhs();
    }
    if (rhsCount < 1) {
        matrix::detail::error_minrhs();
    }
    const std::string url = toNarrow(matrix::get_ustring(rhs[0]), "");
    const std::shared_ptr<ProxySelector> selector = findProxySelector(cppmicroservices::LDAPFilter());
    if (!selector) {
        // Every host registers one; one that does not gets a readable failure instead of a crash.
        throwInternalError("The host has no proxy selector");
    }
    const ProxyList list = askSelector(*selector, url);
    const Proxy proxy = list.empty() ? Proxy::NO_PROXY : list.front();
    const std::string host = proxy.getHost();
    // The list decides, not the proxy: the port of NO_PROXY is never read.
    const double port = list.empty() ? 80.0 : static_cast<double>(proxy.getPort());
    const std::string username = proxy.hasCredentials() ? proxy.getCredentials().getUsername() : std::string();
    const std::string password = proxy.hasCredentials() ? proxy.getCredentials().getPassword() : std::string();
    // A caller who asks for no result gets one too.
    lhs[0] = makeProxyStruct(host, port, username, password).release();
}
