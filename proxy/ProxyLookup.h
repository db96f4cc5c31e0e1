// Which proxy applies to a URL: the library's second entry point, besides the class. It asks the host's proxy selector
// every time and keeps nothing.
#pragma once

#include "host/ArrayApi.h"
#include "host/ProxySelector.h"

#include <cppmicroservices/LDAPFilter.h>

#include <memory>

namespace netrove {

// The host's proxy selector; empty if the host has none.
std::shared_ptr<foundation::httpproxy::ProxySelector> findProxySelector(const cppmicroservices::LDAPFilter& filter);

} // namespace netrove

namespace ws_base {

// Builtin with one input, the URL, and one result, a 1-by-1 struct with the fields Host, Port, Username and Password of
// the first proxy for it. The caller owns the result. Without a proxy the host is empty and the port is 80.
__attribute__((visibility("default"))) void getProxyInfoBuiltin(int lhsCount, vxArray_tag** lhs, int rhsCount,
                                                                vxArray_tag** rhs);

} // namespace ws_base
